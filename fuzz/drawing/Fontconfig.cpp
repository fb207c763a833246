// fontconfig refers to parts of its patterns by their distance, which the search for leaks does not follow.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so";
}
