// Part of every program and library of the coverage build: maps the file of its counters before anything else
// of it runs, so that what runs while it is being loaded counts, too.
extern "C" {
void __llvm_profile_initialize(void);
// Its presence keeps the runtime from starting itself, which would be too late.
int __llvm_profile_runtime;
}

namespace {

[[gnu::constructor(101)]] void MapCounters() {
  __llvm_profile_initialize();
}

}  // namespace
