// Objects that own and run a thread.
#include <ormutil/Runnable.h>

#include "Areas.h"
#include "ThreadModule.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Thread";
constexpr DWORD CODE_INTERRUPTED = 0xE72D0002;

}  // namespace

void Runnable::CreateThread(bool startNow, bool waitForInit) {
  if (mhThread) {
    ORM_FORCED_ASSERT(FILE_NAME, 444);
    ThrowGeneralFailure();
  }
  mStarted = false;
  unsigned id = 0;
  mhThread =
      reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, BaseThreadBody, this, CREATE_SUSPENDED, &id));
  if (!mhThread) ThrowSystemFailure("Failed to create new thread.");
  mhInterrupt = CreateEventA(nullptr, true, false, nullptr);
  ORM_ASSERT(mhInterrupt, "mhInterrupt", FILE_NAME, 460);
  mId = id;
  if (startNow) Start(waitForInit);
}

void Runnable::Start(bool waitForInit) {
  ORM_ASSERT(mhThread != nullptr, "mhThread != 0", FILE_NAME, 473);
  if (waitForInit) {
    ORM_ASSERT(mhInited == nullptr, "mhInited == 0", FILE_NAME, 480);
    mhInited = CreateEventA(nullptr, true, false, nullptr);
    ORM_ASSERT(mhInited != nullptr, "mhInited != 0", FILE_NAME, 482);
  }
  // The thread's own reference, which goes into its slot and is released by its detach step.
  AddRef();
  mStarted = true;
  const bool resumed = ResumeThread(mhThread);
  ORM_ASSERT(resumed, "::ResumeThread(mhThread)", FILE_NAME, 495);
  if (!waitForInit) return;

  const HANDLE handles[] = {mhInited, mhInterrupt, mhThread};
  switch (WaitForMultipleObjects(3, handles, false, INFINITE)) {
    case WAIT_OBJECT_0:
      if (mInitError.GetLayerCount() != 0) throw Error(mInitError);
      return;
    case WAIT_OBJECT_0 + 1:
      ThrowInterrupted("The thread was interrupted during initialization.");
    default:
      ORM_FORCED_ASSERT(FILE_NAME, 521);
      ThrowGeneralFailure();
  }
}

unsigned Runnable::BaseThreadBody(void* pRunnable) {
  auto* self = static_cast<Runnable*>(pRunnable);
  if (!self->mStarted) return 0;
  self->NotifyData(&Notification::OnThreadAttach);
  // One that has just asked for the thread's object was given another one.
  auto* const early = static_cast<Thread*>(TlsGetValue(gTlsIndex));
  const bool stored = TlsSetValue(gTlsIndex, static_cast<Thread*>(self));
  if (early) early->Release();
  if (!stored) HoldAfterDetach();
  ORM_ASSERT(stored, "::TlsSetValue(gTlsIndex, pThread)", FILE_NAME, 558);
  // Interrupted already: mhInited stays unsignalled, so that a waiting Start learns of the interruption.
  if (!self->IsInterrupted()) self->InitAndRun();
  return 0;
}

void Runnable::InitAndRun() {
  try {
    Init();
  } catch (const Error& error) {
    mInitError = error;
  }
  if (mhInited) {
    const bool signalled = SetEvent(mhInited);
    ORM_ASSERT(signalled, "::SetEvent(pThread->mhInited)", FILE_NAME, 575);
  }
  if (mInitError.GetLayerCount() != 0) return;
  try {
    Run();
  } catch (const Error& error) {
    if (error.GetCode(0) != CODE_INTERRUPTED) ReportBodyError(error);
  }
}

void Runnable::ReportBodyError(const Error& rError) {
  TraceWrite(areaThread, TRACE_ERROR, false, FILE_NAME, 591, "%s", "Runnable thread body caught Error");
  for (unsigned i = 0; i < rError.GetLayerCount(); ++i) {
    TraceWrite(areaThread, TRACE_ERROR, false, FILE_NAME, 591, "[%02u] : %s(%08x)", i, rError.GetMessage(i),
               rError.GetCode(i));
  }
  ORM_FORCED_ASSERT(FILE_NAME, 592);
}

void Runnable::ResetInterrupt() {
  ORM_ASSERT(mhInterrupt != nullptr, "mhInterrupt != 0", FILE_NAME, 535);
  const bool reset = ResetEvent(mhInterrupt);
  ORM_ASSERT(reset, "::ResetEvent(mhInterrupt)", FILE_NAME, 536);
}

Runnable::~Runnable() {
  if (mhThread && !mStarted) {
    ORM_ASSERT(mId != GetCurrentThreadId(), "mId != GetCurrentThreadId()", FILE_NAME, 609);
    TraceWrite(areaThread, TRACE_WARNING, false, FILE_NAME, 615,
               "terminating thread id=0x%04x, which was created but never started", mId);
    const bool terminated = TerminateThread(mhThread, 0);
    ORM_ASSERT(terminated, "::TerminateThread(mhThread, 0)", FILE_NAME, 616);
  }
  if (mhInited) CloseHandle(mhInited);
  mhInited = nullptr;
}

}  // namespace orm
