// One of many small libraries: real code, a static object with a constructor, and an entry point that counts.
#include <atomic>
#include <map>
#include <string>

#include "win32/modules.h"

namespace {

std::atomic<int> gsThreadReasons[4];

BOOL Main([[maybe_unused]] HINSTANCE module, DWORD reason, void*) {
  ++gsThreadReasons[reason & 3];
#ifdef PART_STAYS
  // As a thread would that loads it at this moment.
  char path[MAX_PATH];
  if (reason == DLL_PROCESS_ATTACH && GetModuleFileNameA(module, path, sizeof(path)) != 0) LoadLibraryA(path);
#endif
#ifdef PART_REFUSES
  return reason != DLL_PROCESS_ATTACH;
#else
  return TRUE;
#endif
}

struct Frame {
  std::map<int, std::string> names{{PART, std::to_string(PART)}};
  Frame() { OrmAttachModule(&gsThreadReasons, &Main); }
  ~Frame() { OrmDetachModule(&gsThreadReasons); }
};
Frame gsFrame;

}  // namespace

extern "C" __attribute__((visibility("default"))) int PartNumber() {
  return std::stoi(gsFrame.names.at(PART));
}
extern "C" __attribute__((visibility("default"))) int PartReasons(unsigned reason) {
  return gsThreadReasons[reason & 3];
}
