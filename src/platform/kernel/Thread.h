// The thread object behind a thread handle: signalled when the thread has ended.
#pragma once

#include "kernel/Waitable.h"
#include "win32/kernel.h"

namespace orm::platform {

class ThreadObject final : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kThread;

  // What runs on the thread; null for threads that the layer did not start.
  struct Body {
    LPTHREAD_START_ROUTINE routine = nullptr;
    OrmRuntimeThreadRoutine runtimeRoutine = nullptr;
    void* parameter = nullptr;
  };

  explicit ThreadObject(const Body& body) noexcept;
  // Of the calling thread, which the layer did not start.
  ThreadObject() noexcept;

  DWORD Id() const noexcept { return mId; }
  DWORD ExitCode() const noexcept { return mExitCode.load(std::memory_order_acquire); }

  // Starts the thread, which waits at its gate until Resume or Terminate. False when the system refuses.
  bool Start(SIZE_T stackSize) noexcept;
  // The previous suspend count.
  DWORD Resume() noexcept;
  // False, with the last error, unless the thread is still at its gate.
  bool Terminate(DWORD exitCode) noexcept;
  // The thread's last step.
  void End() noexcept;

  // The threads of the parent have ended as far as a child is concerned; the one that forked goes on under
  // another number.
  void ForgetOtherThreads(const ThreadRecord* self) noexcept override;

  bool SetPriority(int priority) noexcept;
  int Priority() const noexcept { return mPriority.load(); }

 private:
  enum Gate : uint32_t { kSuspended, kRunning, kTerminated, kEnded };
  static void* Main(void* record) noexcept;
  void Conclude() noexcept;
  void Run() noexcept;
  void ApplyPriority(int nativeId) const noexcept;

  const DWORD mId;
  const Body mBody;
  std::atomic<uint32_t> mGate;
  std::atomic<DWORD> mExitCode{STILL_ACTIVE};
  std::atomic<int> mPriority{THREAD_PRIORITY_NORMAL};
  std::atomic<int> mNativeId{0};
};

}  // namespace orm::platform
