// Objects that own and run a thread.
#pragma once

#include <ormutil/Error.h>
#include <ormutil/Thread.h>

namespace orm {

// Derive from it, implement the reference counting of a face and Run, hold the object in a FacePtr, and call
// CreateThread. Inside the new thread Thread::GetSelf is the runnable itself. The running thread holds a
// reference of its own, so that the object lives until its thread has ended.
//
//   class Job : public Runnable { ... void Run() override { while (work()) Thread::CheckInterrupted(); } };
//   auto job = FacePtr<Job>::Adopt(new Job);
//   job->CreateThread(true, true);
//   job->Wait();
//
// CreateThread, Start and the destructor belong to the owner's thread.
class ORMUTIL_API Runnable : public Thread {
 public:
  // Makes the thread, suspended, and starts it when asked to (see Start). Throws 0xE72D0001 over the system's
  // error when there is no thread to be had, 0xE7210001 when the runnable has had its thread already.
  void CreateThread(bool startNow, bool waitForInit);

  // Lets the thread run. When asked to wait, returns after Init has returned; throws what Init threw, or
  // 0xE72D0002 when the runnable was interrupted before that.
  void Start(bool waitForInit);

 protected:
  Runnable() = default;
  // Not virtual: the concrete class's Release destroys the concrete object. A thread that was never started
  // is ended.
  ~Runnable();

  // Runs on the new thread before Run. An Error that it throws ends the thread and reaches a waiting Start.
  virtual void Init() {}
  // The thread's work. An Error of code 0xE72D0002 ends it quietly; another one is traced and asserted.
  virtual void Run() = 0;

  // Takes an interruption back, after this runnable has dealt with it.
  void ResetInterrupt();

 private:
  static unsigned BaseThreadBody(void* pRunnable);
  void InitAndRun();
  static void ReportBodyError(const Error& rError);

  bool mStarted = false;
  Error mInitError;
  HANDLE mhInited = nullptr;
};

}  // namespace orm
