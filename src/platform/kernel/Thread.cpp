// Threads of the layer: creation at a gate, end, priority.
#include "kernel/Thread.h"

#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>

#include "kernel/Futex.h"
#include "kernel/ModuleEntries.h"
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"

namespace orm::platform {

namespace {

// Thread numbers are the layer's own: a thread that waits at its gate has one before the system has told us
// its. They follow each other, so that counters which are spread by the number find every cell used.
DWORD NewThreadId() {
  static constinit std::atomic<DWORD> last{0};
  const DWORD id = last.fetch_add(1, std::memory_order_relaxed) + 1;
  return id != 0 ? id : NewThreadId();
}

// The number of a thread that the layer did not start. It needs no memory, and outlives the thread's record.
DWORD NumberOfForeignThread() noexcept {
  static constinit thread_local DWORD number ORM_STATIC_TLS = 0;
  if (number == 0) number = NewThreadId();
  return number;
}

int NiceOf(int priority) {
  switch (priority) {
    case THREAD_PRIORITY_IDLE:
      return 19;
    case THREAD_PRIORITY_LOWEST:
      return 10;
    case THREAD_PRIORITY_BELOW_NORMAL:
      return 5;
    case THREAD_PRIORITY_ABOVE_NORMAL:
      return -5;
    case THREAD_PRIORITY_HIGHEST:
      return -10;
    case THREAD_PRIORITY_TIME_CRITICAL:
      return -20;
    default:
      return 0;
  }
}

bool IsPriority(int priority) {
  return (priority >= THREAD_PRIORITY_LOWEST && priority <= THREAD_PRIORITY_HIGHEST) ||
         priority == THREAD_PRIORITY_IDLE || priority == THREAD_PRIORITY_TIME_CRITICAL;
}

class ThreadAttributes {
 public:
  explicit ThreadAttributes(SIZE_T stackSize) noexcept {
    pthread_attr_init(&mAttributes);
    pthread_attr_setdetachstate(&mAttributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) {
      constexpr SIZE_T kPage = 4096;
      constexpr SIZE_T kLargest = SIZE_T{1} << 47;  // no thread has so large a one
      const SIZE_T size = std::clamp(stackSize, static_cast<SIZE_T>(PTHREAD_STACK_MIN), kLargest);
      pthread_attr_setstacksize(&mAttributes, (size + kPage - 1) / kPage * kPage);
    }
  }
  ~ThreadAttributes() { pthread_attr_destroy(&mAttributes); }
  ThreadAttributes(const ThreadAttributes&) = delete;
  ThreadAttributes& operator=(const ThreadAttributes&) = delete;
  const pthread_attr_t* get() const { return &mAttributes; }

 private:
  pthread_attr_t mAttributes;
};

}  // namespace

ThreadObject::ThreadObject(const Body& body) noexcept
    : Waitable(kKind), mId(NewThreadId()), mBody(body), mGate(kSuspended) {}

ThreadObject::ThreadObject() noexcept
    : Waitable(kKind),
      mId(NumberOfForeignThread()),
      mGate(kRunning),
      mNativeId(static_cast<int>(syscall(SYS_gettid))) {}

bool ThreadObject::Start(SIZE_T stackSize) noexcept {
  return OrNoMemory(false, [&]() -> bool {
    const ThreadAttributes attributes(stackSize);
    // Made here, where a lack of memory has a caller to be told.
    auto record = std::make_unique<ThreadRecord>(Ref<ThreadObject>(this));
    pthread_t thread;
    if (pthread_create(&thread, attributes.get(), &Main, record.get()) == 0) {
      static_cast<void>(record.release());  // the new thread's
      return true;
    }
    return NoMemory(false);
  });
}

void* ThreadObject::Main(void* pointer) noexcept {
  ThreadRecord& record = *static_cast<ThreadRecord*>(pointer);
  const bool endsByItself = AttachThread(record);
  record.self->Run();
  if (!endsByItself) EndThread(record);
  return nullptr;
}

void ThreadObject::Run() noexcept {
  const int nativeId = static_cast<int>(syscall(SYS_gettid));
  mNativeId.store(nativeId);
  ApplyPriority(nativeId);
  while (mGate.load(std::memory_order_acquire) == kSuspended) FutexWait(mGate, kSuspended, nullptr);
  if (mGate.load(std::memory_order_relaxed) == kTerminated) {
    tlsThread->silent = true;
    return;
  }
  NotifyThreadAttach();
  const DWORD code = mBody.routine != nullptr ? mBody.routine(mBody.parameter)
                                              : static_cast<DWORD>(mBody.runtimeRoutine(mBody.parameter));
  mExitCode.store(code, std::memory_order_release);
}

DWORD ThreadObject::Resume() noexcept {
  uint32_t gate = kSuspended;
  if (!mGate.compare_exchange_strong(gate, kRunning, std::memory_order_acq_rel)) return 0;
  FutexWake(mGate);
  return 1;
}

bool ThreadObject::Terminate(DWORD exitCode) noexcept {
  uint32_t gate = kSuspended;
  if (!mGate.compare_exchange_strong(gate, kTerminated, std::memory_order_acq_rel)) {
    tlsLastError = gate == kRunning ? ERROR_NOT_SUPPORTED : ERROR_ACCESS_DENIED;
    return false;
  }
  mExitCode.store(exitCode, std::memory_order_release);
  Signal();
  FutexWake(mGate);
  return true;
}

void ThreadObject::End() noexcept {
  if (mGate.exchange(kEnded, std::memory_order_acq_rel) != kTerminated) Conclude();
}

void ThreadObject::Conclude() noexcept {
  DWORD active = STILL_ACTIVE;  // a thread that ended itself without a result
  mExitCode.compare_exchange_strong(active, 0, std::memory_order_acq_rel);
  Signal();
}

void ThreadObject::ForgetOtherThreads(const ThreadRecord* self) noexcept {
  Waitable::ForgetOtherThreads(self);
  if (self != nullptr && self->self.get() == this) {
    mNativeId.store(static_cast<int>(syscall(SYS_gettid)));
    return;
  }
  mGate.store(kEnded);
  Conclude();
}

bool ThreadObject::SetPriority(int priority) noexcept {
  if (!IsPriority(priority)) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return false;
  }
  mPriority.store(priority);
  // The thread looks at its priority after it has told its native id, so one of the two applies it.
  if (const int nativeId = mNativeId.load(); nativeId != 0) ApplyPriority(nativeId);
  return true;
}

// Linux keeps a nice value for each thread. A refusal is fine: the priority is remembered.
void ThreadObject::ApplyPriority(int nativeId) const noexcept {
  const int priority = mPriority.load();
  const bool starting = mGate.load(std::memory_order_relaxed) == kSuspended;
  if (starting && priority == THREAD_PRIORITY_NORMAL) return;
  if (mGate.load() == kEnded) return;
  setpriority(PRIO_PROCESS, static_cast<id_t>(nativeId), NiceOf(priority));
}

namespace {

HANDLE StartThread(const ThreadObject::Body& body, SIZE_T stackSize, DWORD flags, DWORD* threadId) noexcept {
  return OrNoMemory<HANDLE>(nullptr, [&]() -> HANDLE {
    if ((body.routine == nullptr && body.runtimeRoutine == nullptr) || (flags & ~CREATE_SUSPENDED) != 0) {
      tlsLastError = ERROR_INVALID_PARAMETER;
      return nullptr;
    }
    const auto thread = MakeRef<ThreadObject>(body);
    const HANDLE handle = AllocateHandle(thread);
    if (handle == nullptr) return nullptr;
    if (!thread->Start(stackSize)) {
      const DWORD error = tlsLastError;
      ReleaseHandle(handle);
      tlsLastError = error;
      return nullptr;
    }
    if (threadId != nullptr) *threadId = thread->Id();
    if ((flags & CREATE_SUSPENDED) == 0) thread->Resume();
    return handle;
  });
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE CreateThread(SECURITY_ATTRIBUTES*, SIZE_T stackSize, LPTHREAD_START_ROUTINE start, void* parameter,
                    DWORD flags, DWORD* threadId) noexcept {
  return StartThread({.routine = start, .parameter = parameter}, stackSize, flags, threadId);
}

uintptr_t _beginthreadex(void*, unsigned stackSize, OrmRuntimeThreadRoutine start, void* parameter,
                         unsigned flags, unsigned* threadId) noexcept {
  return reinterpret_cast<uintptr_t>(
      StartThread({.runtimeRoutine = start, .parameter = parameter}, stackSize, flags, threadId));
}

DWORD ResumeThread(HANDLE thread) noexcept {
  const HandlePin pin(thread);
  auto* const object = PinnedAs<ThreadObject>(pin);
  return object != nullptr ? object->Resume() : 0xFFFFFFFF;
}

BOOL TerminateThread(HANDLE thread, DWORD exitCode) noexcept {
  const HandlePin pin(thread);
  auto* const object = PinnedAs<ThreadObject>(pin);
  return object != nullptr && object->Terminate(exitCode);
}

BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode) noexcept {
  const HandlePin pin(thread);
  const auto* const object = PinnedAs<ThreadObject>(pin);
  if (object == nullptr) return FALSE;
  *exitCode = object->ExitCode();
  return TRUE;
}

BOOL SetThreadPriority(HANDLE thread, int priority) noexcept {
  const HandlePin pin(thread);
  auto* const object = PinnedAs<ThreadObject>(pin);
  return object != nullptr && object->SetPriority(priority);
}

int GetThreadPriority(HANDLE thread) noexcept {
  const HandlePin pin(thread);
  const auto* const object = PinnedAs<ThreadObject>(pin);
  return object != nullptr ? object->Priority() : THREAD_PRIORITY_ERROR_RETURN;
}

// A record is made here too, since the end of a thread is told when it has one. The number is to be had
// without.
DWORD GetCurrentThreadId() noexcept {
  if (tlsThread != nullptr) return tlsThread->id;
  const DWORD error = tlsLastError;
  const ThreadRecord* const thread = AttachThread();
  tlsLastError = error;
  return thread != nullptr ? thread->id : NumberOfForeignThread();
}
