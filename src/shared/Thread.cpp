// Thread objects, per-thread data, interruption and the thread module's attach and detach step.
#include <ormutil/Thread.h>

#include "Areas.h"
#include "ModuleFrame.h"
#include "ThreadModule.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Thread";
constexpr DWORD CODE_GENERAL = 0xE7210001;
constexpr DWORD CODE_WAIT_FAILED = 0xE72D0001;
constexpr DWORD CODE_INTERRUPTED = 0xE72D0002;

}  // namespace

constinit DWORD gTlsIndex = TLS_OUT_OF_INDEXES;

namespace {

constinit DWORD gDetachingThread = 0;
// The object of the detaching thread when it asks for one after the detach has taken the slots away. What the
// module holds until its end may do that as it goes.
constinit Thread* gLateThread = nullptr;

// The object that the thread's slot is letting go of. A registration may be among what goes with it.
constinit thread_local Thread* tlsLeaving = nullptr;

DWORD GetDetachingThread() {
  return __atomic_load_n(&gDetachingThread, __ATOMIC_ACQUIRE);
}

// A datum that goes with a thread's object may use the thread, which then gets another object with data of
// its own. So many objects are let go of at most, as the runtime does with its keys.
constexpr int DETACH_PASSES = 4;

}  // namespace

bool HoldAfterDetach() {
  const DWORD detaching = GetDetachingThread();
  if (detaching == 0) return false;
  if (detaching == GetCurrentThreadId()) return true;
  // A component that is being listed may have come here; the detaching thread waits for the lock.
  LeaveClassManagerForEver();
  for (;;) ::Sleep(INFINITE);
}

Thread* GetRegistrant() {
  return tlsLeaving ? tlsLeaving : Thread::GetSelf().Get();
}

void ReleaseLateThread() {
  if (Thread* thread = std::exchange(gLateThread, nullptr)) thread->Release();
}

void ThrowInterrupted(const char* text) {
  Error error;
  error.AddLayer(CODE_INTERRUPTED, text, false);
  throw error;
}

void ThrowGeneralFailure() {
  Error error;
  error.AddLayer(CODE_GENERAL, "", false);
  throw error;
}

void ThrowSystemFailure(const char* text) {
  Error error = MakeSystemError(GetLastError(), "", true);
  error.AddLayer(CODE_WAIT_FAILED, text, false);
  throw error;
}

// The object of a thread that no Runnable started.
class ThreadImpl final : public FaceObject<Thread> {
 public:
  static FacePtr<Thread> MakeForCallingThread() {
    auto result = FacePtr<Thread>::Adopt(new ThreadImpl);
    result->mId = GetCurrentThreadId();
    result->mhInterrupt = CreateEventA(nullptr, true, false, nullptr);
    ORM_ASSERT(result->mhInterrupt != nullptr, "result->mhInterrupt != 0", FILE_NAME, 83);
    const bool duplicated = DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(),
                                            &result->mhThread, 0, false, DUPLICATE_SAME_ACCESS);
    ORM_ASSERT(duplicated,
               "::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), "
               "&result->mhThread, 0, false, 0x00000002)",
               FILE_NAME, 86);
    // One that is not whole is not kept, so that the next call makes another.
    if (!result->mhInterrupt || !result->mhThread) return result;
    const bool stored = TlsSetValue(gTlsIndex, result.AddRef());
    if (!stored) {
      if (HoldAfterDetach()) {
        gLateThread = result.Get();
      } else {
        result->Release();
      }
    }
    ORM_ASSERT(stored, "::TlsSetValue(gTlsIndex, result.AddRef())", FILE_NAME, 91);
    return result;
  }
};

Thread::~Thread() {
  std::fill(std::begin(mRecent), std::end(mRecent), Recent{});
  mData.clear();
  if (mhInterrupt) CloseHandle(mhInterrupt);
  if (mhThread) CloseHandle(mhThread);
}

FacePtr<Thread> Thread::GetSelf() {
  FacePtr<Thread> result(static_cast<Thread*>(TlsGetValue(gTlsIndex)));
  if (!result) [[unlikely]] {
    if (HoldAfterDetach() && gLateThread) return gLateThread;
    ORM_ASSERT(GetLastError() == ERROR_SUCCESS, "result != 0 || ::GetLastError() == ERROR_SUCCESS", FILE_NAME,
               73);
    result = ThreadImpl::MakeForCallingThread();
  }
  return result;
}

// The slot's own reference keeps the object for as long as its thread runs.
Thread* Thread::GetOwn() {
  if (auto* own = static_cast<Thread*>(TlsGetValue(gTlsIndex))) return own;
  GetSelf();
  auto* own = static_cast<Thread*>(TlsGetValue(gTlsIndex));
  return own ? own : gLateThread;
}

inline Thread::Recent& Thread::FindRecent(const char* text) {
  // The blocks of short texts lie 32 bytes apart.
  const uintptr_t first = reinterpret_cast<uintptr_t>(text) / 32;
  Recent* pFree = nullptr;
  for (unsigned i = 0; i < RECENT_PROBES; ++i) {
    Recent& rRecent = mRecent[(first + i) % RECENT];
    if (rRecent.text == text) return rRecent;
    if (!rRecent.text && !pFree) pFree = &rRecent;
  }
  return pFree ? *pFree : mRecent[first % RECENT];
}

// Inline, since finding a recent datum takes less time than a call.
inline FacePtr<BaseFace>* Thread::FindDatum(const BaseString<MbcsTraits>& key) {
  Recent& rRecent = FindRecent(key.GetBegin());
  return rRecent.text == key.GetBegin() ? rRecent.value : FindInMap(key, rRecent);
}

FacePtr<BaseFace>* Thread::FindInMap(const BaseString<MbcsTraits>& key, Recent& rRecent) {
  const auto found = mData.find(key);
  if (found == mData.end()) return nullptr;
  // Only the map's own text is remembered: no other string has that address while the datum is there.
  const char* text = found->first.GetBegin();
  if (text == key.GetBegin()) rRecent = {text, &found->second};
  return &found->second;
}

// Looks for the next one by its key: what is there may have changed, and a copy of all might find no memory.
void Thread::NotifyData(void (Notification::*call)()) {
  for (auto datum = mData.begin(); datum != mData.end();) {
    const BaseString<MbcsTraits> key = datum->first;
    if (const FacePtr<Notification> notification{datum->second}) ((*notification).*call)();
    datum = mData.upper_bound(key);
  }
}

void Thread::SetData(const BaseString<MbcsTraits>& key, FacePtr<BaseFace> value) {
  Thread* const self = GetOwn();
  ORM_ASSERT(self, "pThis != 0", FILE_NAME, 101);
  ORM_ASSERT(!key.IsEmpty(), "!rIdent.IsEmpty()", FILE_NAME, 102);
  if (!self) ThrowGeneralFailure();
  // The old value is released last, out of the map, since its end may come back here.
  FacePtr<BaseFace>* pDatum = self->FindDatum(key);
  if (value) {
    (pDatum ? *pDatum : self->mData[key]).Swap(value);
  } else if (pDatum) {
    pDatum->Swap(value);
    const auto found = self->mData.find(key);
    const char* text = found->first.GetBegin();
    if (Recent& rRecent = self->FindRecent(text); rRecent.text == text) rRecent = {};
    self->mData.erase(found);
  }
}

FacePtr<BaseFace> Thread::GetData(const BaseString<MbcsTraits>& key) {
  Thread* const self = GetOwn();
  ORM_ASSERT(self, "pThis != 0", FILE_NAME, 116);
  ORM_ASSERT(!key.IsEmpty(), "!rIdent.IsEmpty()", FILE_NAME, 117);
  if (!self) return nullptr;
  const FacePtr<BaseFace>* pDatum = self->FindDatum(key);
  return pDatum ? *pDatum : FacePtr<BaseFace>();
}

bool Thread::IsInterrupted() const {
  if (!mhInterrupt) return false;
  const DWORD result = WaitForSingleObject(mhInterrupt, 0);
  if (result == WAIT_OBJECT_0) return true;
  ORM_ASSERT(result == WAIT_TIMEOUT, "result == WAIT_TIMEOUT", FILE_NAME, 149);
  return false;
}

void Thread::CheckInterrupted() {
  if (GetSelf()->IsInterrupted()) ThrowInterrupted();
}

void Thread::Yield() {
  CheckInterrupted();
  ::Sleep(0);
}

void Thread::Sleep(DWORD milliseconds) {
  const FacePtr<Thread> self = GetSelf();
  ORM_ASSERT(self, "pThis != 0", FILE_NAME, 300);
  ORM_ASSERT(self->mhInterrupt != nullptr, "pThis->mhInterrupt != 0", FILE_NAME, 301);
  switch (WaitForSingleObject(self->mhInterrupt, milliseconds)) {
    case WAIT_TIMEOUT:
      return;
    case WAIT_OBJECT_0:
      ThrowInterrupted();
    default:
      ORM_FORCED_ASSERT(FILE_NAME, 311);
      ThrowGeneralFailure();
  }
}

void Thread::MessageSleep(bool& rMessage, DWORD milliseconds, DWORD wakeMask) {
  const FacePtr<Thread> self = GetSelf();
  ORM_ASSERT(self, "pThis != 0", FILE_NAME, 320);
  ORM_ASSERT(self->mhInterrupt != nullptr, "pThis->mhInterrupt != 0", FILE_NAME, 321);
  rMessage = false;
  switch (MsgWaitForMultipleObjects(1, &self->mhInterrupt, false, milliseconds, wakeMask)) {
    case WAIT_TIMEOUT:
      return;
    case WAIT_OBJECT_0 + 1:
      rMessage = true;
      return;
    case WAIT_OBJECT_0:
      ThrowInterrupted();
    default:
      ORM_FORCED_ASSERT(FILE_NAME, 340);
      ThrowGeneralFailure();
  }
}

void Thread::Wait() {
  ORM_ASSERT(mhThread, "mhThread", FILE_NAME, 368);
  const DWORD result = WaitForSingleObject(mhThread, INFINITE);
  ORM_ASSERT(result == WAIT_OBJECT_0,
             "::WaitForSingleObject(mhThread, 0xFFFFFFFF) == ((((DWORD )0x00000000L) ) + 0 )", FILE_NAME,
             373);
}

Thread::PriorityType Thread::GetPriority() const {
  ORM_ASSERT(mhThread, "mhThread", FILE_NAME, 380);
  const int priority = GetThreadPriority(mhThread);
  if (priority == THREAD_PRIORITY_ERROR_RETURN)
    ThrowSystemFailure("Failed to retrieve the thread's priority.");
  // Idle and time-critical read as the two ends.
  if (priority <= PRIORITY_LOWEST) return PRIORITY_LOWEST;
  if (priority >= PRIORITY_HIGHEST) return PRIORITY_HIGHEST;
  return static_cast<PriorityType>(priority);
}

void Thread::SetPriority(PriorityType priority) {
  ORM_ASSERT(mhThread, "mhThread", FILE_NAME, 404);
  if (priority < PRIORITY_LOWEST || priority > PRIORITY_HIGHEST) {
    ORM_FORCED_ASSERT(FILE_NAME, 429);
    ThrowGeneralFailure();
  }
  if (!SetThreadPriority(mhThread, priority)) ThrowSystemFailure("Failed to set the thread's priority.");
}

DWORD GetNow() {
  for (;;) {
    const DWORD now = GetTickCount();
    if (now != 0 && now != 0xFFFFFFFF) return now;
    ::Sleep(0);
  }
}

bool ThreadAttachDetach(DWORD reason) {
  if (reason == DLL_PROCESS_ATTACH) {
    gTlsIndex = TlsAlloc();
    if (gTlsIndex == TLS_OUT_OF_INDEXES) {
      TraceWrite(areaThread, TRACE_ERROR, true, FILE_NAME, 34, "failed to alloc tls index, error %d",
                 GetLastError());
      return false;
    }
    return true;
  }
  if (reason != DLL_THREAD_DETACH && reason != DLL_PROCESS_DETACH) return true;

  auto* thread = static_cast<Thread*>(TlsGetValue(gTlsIndex));
  // The process may have detached while this thread was on its way here.
  if (!thread && GetDetachingThread() != 0) return true;
  ORM_ASSERT(thread || GetLastError() == ERROR_SUCCESS, "pThread != 0 || ::GetLastError() == ERROR_SUCCESS",
             FILE_NAME, 42);
  for (int pass = 0; thread && pass < DETACH_PASSES; ++pass) {
    thread->NotifyData(&Thread::Notification::OnThreadDetach);
    // What goes with the object must not find it any more.
    TlsSetValue(gTlsIndex, nullptr);
    tlsLeaving = thread;
    thread->Release();
    tlsLeaving = nullptr;
    thread = static_cast<Thread*>(TlsGetValue(gTlsIndex));
  }
  if (reason == DLL_PROCESS_DETACH) {
    __atomic_store_n(&gDetachingThread, GetCurrentThreadId(), __ATOMIC_RELEASE);
    const bool freed = TlsFree(gTlsIndex);
    ORM_ASSERT(freed, "::TlsFree(gTlsIndex)", FILE_NAME, 61);
  }
  return true;
}

}  // namespace orm
