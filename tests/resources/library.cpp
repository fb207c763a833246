// The code of a library whose point is its resources, or that it has none.
extern "C" __attribute__((visibility("default"))) int Answer();
int Answer() {
  return 42;
}
