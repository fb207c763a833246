// The module's entry point, and the order in which everything module-wide comes and goes, from top to bottom.
//
//   load     Start: library group, ordinary group     then DllMain(DLL_PROCESS_ATTACH)
//   threads  DllMain(DLL_THREAD_ATTACH), DllMain(DLL_THREAD_DETACH)
//   unload   DllMain(DLL_PROCESS_DETACH)              then Stop: the exit actions
#include <win32/forkx.h>
#include <win32/memoryx.h>

#include <new>

#include "../Areas.h"
#include "../ModuleFrame.h"
#include "../ThreadModule.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/dll/OrmUtil";

// What is left of the platform's module object here: the library registers no objects through it, so it keeps
// the instance handle between attach and detach.
class ModuleObject {
 public:
  int Init(HINSTANCE instance) {
    mInstance = instance;
    return 0;
  }
  void Term() { mInstance = nullptr; }

 private:
  HINSTANCE mInstance = nullptr;
};

constinit ModuleObject _Module;

// The library group: what other parts need before they can be built. The class manager's start already reads
// the registry and may load component libraries; its first trace line builds the trace facility. False when
// there is no memory for it.
bool BuildLibraryGroup() {
  BuildTracedObjects();
  BuildEmptyString();
  return BuildClassManager();
}

// The ordinary group: the trace facility, then file by file the trace area and the file's other objects.
void BuildOrdinaryGroup() {
  TraceFacilityBuild();
  TraceAreaRegister(areaModule);
  TraceAreaRegister(areaString);
  TraceAreaRegister(areaBinary);
  TraceAreaRegister(areaDate);
  TraceAreaRegister(areaMemoryProperties);
  TraceAreaRegister(areaPersistentProperties);
  TraceAreaRegister(areaThread);
  BuildThreadRegistrar();
  TraceAreaRegister(areaClassManager);
  TraceAreaRegister(areaClassManagerLibrary);
  TraceAreaRegister(areaClassManagerMask);
  TraceAreaRegister(areaClassManagerDirectory);
  TraceAreaRegister(areaClassManagerImpl);
  TraceAreaRegister(areaFont);
  TraceAreaRegister(areaBitmap);
  TraceAreaRegister(areaDllMain);
}

// The child of a fork is to find whole what the other threads were at, and no lock held by a thread that it
// does not have. The order is that in which the locks are taken: the manager traces and registers objects,
// all of them fail assertions, and the facility's lock is taken before the fork after these. Whoever puts a
// bag's properties in order takes no other lock of the module, and who asks for the screen's scale only the
// platform's.
void LockForFork() {
  LockClassManager();
  LockThreadRegistrar();
  LockTracedObjects();
  LockPropertyOrders();
  LockDefaultStretch();
}
template <void unlockClassManager()>
void UnlockAfterFork() {
  UnlockDefaultStretch();
  UnlockPropertyOrders();
  UnlockTracedObjects();
  UnlockThreadRegistrar();
  unlockClassManager();
}

// What registry, named objects and trace facility allocate before the module is ready.
constexpr SIZE_T HEAP_OF_START = 0x14000;

// Whether the module can be used. Stop is called in any case.
bool Start() {
  OrmPopulateHeap(HEAP_OF_START);
  TraceFacilityOwnTearDown();
  const bool isUsable = BuildLibraryGroup();
  BuildOrdinaryGroup();
  return platform::CallAroundFork(LockForFork, UnlockAfterFork<UnlockClassManager>,
                                  UnlockAfterFork<UnlockClassManagerInChild>) &&
         isUsable;
}

// The trace facility goes first: whatever is traced after it reaches the debugger only. The leak report is
// last, when nothing is left that could still release an object.
void Stop() {
  CloseThreadRegistrar();
  TraceFacilityTearDown();
  CloseClassManager();
  ReleaseLateThread();
  ReleaseEmptyString();
  ReportLeaksAndCloseTracedObjects();
}

}  // namespace

}  // namespace orm

using namespace orm;

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    TraceWrite(areaDllMain, TRACE_DEBUG, false, FILE_NAME, 27, "OrmUtil: PROCESS_ATTACH");
    const bool initialised = _Module.Init(hInstance) == 0;
    ORM_ASSERT(initialised, "_Module.Init(0, hInstance) == 0", FILE_NAME, 29);
  } else if (reason == DLL_PROCESS_DETACH) {
    TraceWrite(areaDllMain, TRACE_DEBUG, false, FILE_NAME, 32, "OrmUtil: PROCESS_DETACH");
    _Module.Term();
  }
  try {
    return ThreadAttachDetach(reason);
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return false;
  }
}

namespace {

constinit bool gsStarted = false;

// The entry point of a module that cannot be used.
BOOL WINAPI RefuseAttach(HINSTANCE, DWORD, LPVOID) {
  return false;
}

// The loader's two calls. When the attach fails the parts are torn down at once and the platform refuses the
// load.
[[gnu::constructor]] void OnLoad() {
  gsStarted = Start();
  if (OrmAttachModule(&gsStarted, gsStarted ? DllMain : RefuseAttach)) return;
  gsStarted = false;
  Stop();
}

[[gnu::destructor]] void OnUnload() {
  // Also after an attach that failed: the platform keeps a note of that until the image goes.
  OrmDetachModule(&gsStarted);
  if (gsStarted) Stop();
}

}  // namespace
