// What this library does around a fork.
#include "gdi/Fork.h"

#include <pthread.h>

namespace orm::platform::gdi {
namespace {

// In the order in which the locks are taken. Making the stock objects and the screen takes those below. One
// who draws holds at most surfaces, a font or a palette, all of which are alike here, and takes one of the
// last three under them.
void Before() {
  LockStockObjects();
  LockScreen();
  LockObjects();
  LockSystemPalette();
  LockKeptPixels();
  LockTextLibrary();
}

void After(bool isChild) {
  UnlockTextLibrary(isChild);
  UnlockKeptPixels();
  UnlockSystemPalette();
  UnlockObjects(isChild);
  UnlockScreen();
  UnlockStockObjects();
}

// The kernel's handlers are registered already, as its library is loaded before this one.
[[gnu::constructor]] void OnLoad() {
  pthread_atfork(
      Before, [] { After(false); }, [] { After(true); });
}

}  // namespace
}  // namespace orm::platform::gdi
