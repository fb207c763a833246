// A runnable whose steps are given by the test, and the errors that tests look at.
#pragma once

#include <ormutil/Event.h>
#include <ormutil/Runnable.h>

#include <atomic>
#include <functional>
#include <string>

namespace test {

class TestRunnable : public orm::FaceObject<orm::Runnable> {
 public:
  static orm::FacePtr<TestRunnable> Make(
      std::function<void()> run, std::function<void()> init = [] {}) {
    auto result = orm::FacePtr<TestRunnable>::Adopt(new TestRunnable);
    result->mRun = std::move(run);
    result->mInit = std::move(init);
    return result;
  }
  using orm::Runnable::ResetInterrupt;

  void KeepForItsThread(const char* key, orm::FacePtr<orm::BaseFace> value) { mData[key] = std::move(value); }

  // A handle of the thread's own, for a wait that outlives the runnable.
  HANDLE DuplicateThread() const {
    HANDLE result = nullptr;
    DuplicateHandle(GetCurrentProcess(), mhThread, GetCurrentProcess(), &result, 0, false,
                    DUPLICATE_SAME_ACCESS);
    return result;
  }

  static inline std::atomic<int> live = 0;

 private:
  TestRunnable() { ++live; }
  ~TestRunnable() override { --live; }
  void Init() override { mInit(); }
  void Run() override { mRun(); }

  std::function<void()> mRun, mInit;
};

inline DWORD GetHandleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

// A thread has a message queue from its first look at one; until then nobody can post to it.
inline void MakeQueue() {
  MSG message;
  PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);
}

// The error that the action throws; without layers when it throws none.
template <class Action>
orm::Error Caught(Action action) {
  try {
    action();
  } catch (const orm::Error& error) {
    return error;
  }
  return {};
}

inline bool IsInterruption(const orm::Error& error, const char* text = "The thread was interrupted.") {
  return error.GetLayerCount() == 1 && error.GetCode(0) == 0xE72D0002 && error.GetMessage(0) == text;
}

inline orm::Error MakeError(DWORD code, const char* text) {
  orm::Error error;
  error.AddLayer(code, text, false);
  return error;
}

}  // namespace test
