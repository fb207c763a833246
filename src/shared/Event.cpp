// Events whose waits end when the waiting thread is interrupted.
#include <ormutil/Event.h>

#include "ThreadModule.h"

namespace orm {

namespace {
constexpr const char* FILE_NAME = "src/shared/Thread";
}

Event::Event(Kind kind, bool signalled) : mhEvent(CreateEventA(nullptr, kind == MANUAL, signalled, nullptr)) {
  if (!mhEvent) ThrowSystemFailure("Failed to create system event object.");
}

Event::~Event() {
  CloseHandle(mhEvent);
}

void Event::Set() {
  SetEvent(mhEvent);
}
void Event::Reset() {
  ResetEvent(mhEvent);
}

bool Event::Wait(DWORD timeout) {
  const FacePtr<Thread> self = Thread::GetSelf();
  ORM_ASSERT(self, "pThisThread != 0", FILE_NAME, 239);
  ORM_ASSERT(self->mhInterrupt != nullptr, "pThisThread->mhInterrupt != 0", FILE_NAME, 240);
  const HANDLE handles[] = {mhEvent, self->mhInterrupt};
  switch (WaitForMultipleObjects(2, handles, false, timeout)) {
    case WAIT_OBJECT_0:
      return true;
    case WAIT_TIMEOUT:
      return false;
    case WAIT_OBJECT_0 + 1:
      ThrowInterrupted();
    default:
      ThrowSystemFailure("Failed to wait for system event object.");
  }
}

bool Event::MessageWait(bool& rMessage, DWORD timeout, DWORD wakeMask) {
  const FacePtr<Thread> self = Thread::GetSelf();
  ORM_ASSERT(self, "pThisThread != 0", FILE_NAME, 263);
  ORM_ASSERT(self->mhInterrupt != nullptr, "pThisThread->mhInterrupt != 0", FILE_NAME, 264);
  rMessage = false;
  const HANDLE handles[] = {mhEvent, self->mhInterrupt};
  switch (MsgWaitForMultipleObjects(2, handles, false, timeout, wakeMask)) {
    case WAIT_OBJECT_0:
      return true;
    case WAIT_OBJECT_0 + 2:
      rMessage = true;
      return true;
    case WAIT_TIMEOUT:
      return false;
    case WAIT_OBJECT_0 + 1:
      ThrowInterrupted();
    default:
      ThrowSystemFailure("Failed to wait for system event object or for window message.");
  }
}

}  // namespace orm
