// Stands before the C library's function for the whole program.
#include "files/FailingListing.h"

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>

namespace filestest {
namespace {

int entriesLeft = 0;
int failure = 0;

}  // namespace

FailingListing::FailingListing(int entries, int error) {
  entriesLeft = entries;
  failure = error;
}
FailingListing::~FailingListing() {
  failure = 0;
}

}  // namespace filestest

extern "C" [[gnu::visibility("default")]] dirent* readdir(DIR* folder) {
  // The header gives the function another name, which is the one that everybody calls.
  static const auto next = reinterpret_cast<decltype(&readdir)>(dlsym(RTLD_NEXT, "readdir64"));
  if (filestest::failure == 0 || filestest::entriesLeft-- > 0) return next(folder);
  errno = filestest::failure;
  return nullptr;
}
