// A library with an import that nothing exports.
extern "C" int NobodyExportsThis();
extern "C" __attribute__((visibility("default"))) int Needy() {
  return NobodyExportsThis();
}
