// An object with a thread of its own, an event, and interruption.
#include <ormutil/Event.h>
#include <ormutil/Runnable.h>

#include <cassert>

using namespace orm;

class Counter final : public Runnable {
 public:
  DWORD AddRef() override { return static_cast<DWORD>(++mReferences); }
  bool Release() override {
    if (--mReferences != 0) return false;
    delete this;
    return true;
  }
  BaseFace* QueryFace(const char* faceId) override {
    const FaceId id(faceId);
    if (!id.Names<BaseFace>() && !id.Names<Thread>()) return nullptr;
    AddRef();
    return this;
  }

  bool WaitForTen() { return mTen.Wait(10000); }

 private:
  void Run() override {
    for (int i = 1;; ++i) {
      if (i == 10) mTen.Set();
      Thread::Sleep(1);  // throws when the thread is interrupted, which ends Run
    }
  }

  AtomicCounter mReferences{1};
  Event mTen{Event::MANUAL};
};

int main() {
  const auto counter = FacePtr<Counter>::Adopt(new Counter);
  counter->CreateThread(true, true);
  assert(counter->WaitForTen());
  counter->Interrupt();
  counter->Wait();  // the thread has ended
  assert(counter->IsInterrupted());
}
