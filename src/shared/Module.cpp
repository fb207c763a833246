// The registry of traced objects and the leak report.
#include <ormutil/Module.h>

#include "Areas.h"
#include "ModuleFrame.h"

#include <map>
#include <new>

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Module";

struct TracedObject {
  TraceArea* pArea;
  BaseString<MbcsTraits> className;
  const LONG* pCounter;
};

// Ordered by address, which is the order of the report. Built and closed, but never destroyed: at the end of
// a process other threads may still be at their objects, or wait for the lock, which owns nothing of the
// system.
struct TracedObjects {
  TracedObjects() { InitializeCriticalSection(&mLock); }

  CRITICAL_SECTION mLock;
  std::map<uintptr_t, TracedObject> mMap;
  bool mIsClosed = false;  // the report has been written: objects come and go untraced
};

alignas(TracedObjects) constinit unsigned char storage[sizeof(TracedObjects)]{};

TracedObjects& TheTracedObjects() {
  return *reinterpret_cast<TracedObjects*>(storage);
}

class Lock {
 public:
  Lock() { EnterCriticalSection(&TheTracedObjects().mLock); }
  ~Lock() { LeaveCriticalSection(&TheTracedObjects().mLock); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

uintptr_t KeyOf(const void* pObject) {
  return reinterpret_cast<uintptr_t>(pObject);
}

// No source file and line: the leak belongs to none. At least eight digits, as the addresses of a 32-bit
// process have.
void ReportLeak(uintptr_t address, const TracedObject& object) {
  const auto shown = static_cast<unsigned long>(address);
  if (object.pCounter) {
    TraceWrite(*object.pArea, TRACE_WARNING, false, nullptr, 0,
               "Object LEAK: class = %s, address = %08lx, ref.cnt. = %i.", object.className, shown,
               __atomic_load_n(object.pCounter, __ATOMIC_RELAXED));
  } else {
    TraceWrite(*object.pArea, TRACE_WARNING, false, nullptr, 0, "Object LEAK: class = %s, address = %08lx.",
               object.className, shown);
  }
}

}  // namespace

void BuildTracedObjects() {
  new (storage) TracedObjects;
}

void LockTracedObjects() {
  EnterCriticalSection(&TheTracedObjects().mLock);
}
void UnlockTracedObjects() {
  LeaveCriticalSection(&TheTracedObjects().mLock);
}

// An object whose counter is read here cannot go before its thread has the lock.
void ReportLeaksAndCloseTracedObjects() {
  const Lock lock;
  TracedObjects& rObjects = TheTracedObjects();
  for (const auto& [address, object] : rObjects.mMap) ReportLeak(address, object);
  rObjects.mIsClosed = true;
  rObjects.mMap.clear();
}

}  // namespace orm

using namespace orm;

extern "C" {

int DelayLoadMe() {
  return 0;
}

void TraceObjectRegister(const void* pObject, TraceArea* pArea, const BaseString<MbcsTraits>& className) {
  const Lock lock;
  if (TheTracedObjects().mIsClosed) return;
  auto& map = TheTracedObjects().mMap;
  ORM_ASSERT(map.find(KeyOf(pObject)) == map.end(),
             "gsTracedObjects.mMap.find(pObj) == gsTracedObjects.mMap.end()", FILE_NAME, 308);
  try {
    map.insert_or_assign(KeyOf(pObject), TracedObject{pArea, className, nullptr});
  } catch (const std::bad_alloc&) {
    // The object goes untraced, which its unregistration will say: an aid for finding leaks must not be what
    // ends a program.
  }
}

void TraceObjectUnregister(const void* pObject) {
  const Lock lock;
  if (TheTracedObjects().mIsClosed) return;
  auto& map = TheTracedObjects().mMap;
  ORM_ASSERT(map.find(KeyOf(pObject)) != map.end(),
             "gsTracedObjects.mMap.find(pObj) != gsTracedObjects.mMap.end()", FILE_NAME, 315);
  map.erase(KeyOf(pObject));
}

void TraceObjectRefCounter(const void* pObject, const LONG* pCounter) {
  const Lock lock;
  auto& map = TheTracedObjects().mMap;
  if (const auto found = map.find(KeyOf(pObject)); found != map.end()) found->second.pCounter = pCounter;
}

}  // extern "C"
