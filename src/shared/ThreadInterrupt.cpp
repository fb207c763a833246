// The registrar of interrupters, and interruption itself.
#include <map>
#include <new>

#include "ModuleFrame.h"
#include "ThreadModule.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Thread";

// One interrupter at most for each thread. The key is the thread object's address, without a reference.
//
// Threads may come here while the module goes, and interrupters use it as they go. So it is closed then, and
// never destroyed: the lock and the empty map stay good for as long as there is code that uses them.
class Registrar {
 public:
  Registrar() { InitializeCriticalSection(&mLock); }
  ~Registrar() = delete;

  using Map = std::map<uintptr_t, FacePtr<Thread::Interrupter>>;

  void Close() {
    Map gone;  // released after the lock is left
    Access map(*this);
    gone.swap(*map);
    mIsClosed = true;
  }

  // Holds the lock; the map is reached through it alone.
  class Access {
   public:
    explicit Access(Registrar& rRegistrar) : mRegistrar(rRegistrar) {
      EnterCriticalSection(&mRegistrar.mLock);
      if (!mRegistrar.mIsClosed) return;
      // Another thread than the one that has closed it finds its registration gone, and must not look.
      LeaveCriticalSection(&mRegistrar.mLock);
      HoldAfterDetach();
      EnterCriticalSection(&mRegistrar.mLock);
    }
    ~Access() { LeaveCriticalSection(&mRegistrar.mLock); }
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;
    Map* operator->() { return &mRegistrar.mMap; }
    Map& operator*() { return mRegistrar.mMap; }

   private:
    Registrar& mRegistrar;
  };

  void Lock() { EnterCriticalSection(&mLock); }
  void Unlock() { LeaveCriticalSection(&mLock); }

 private:
  CRITICAL_SECTION mLock;
  Map mMap;
  bool mIsClosed = false;
};

alignas(Registrar) constinit unsigned char registrarStorage[sizeof(Registrar)]{};

Registrar& TheRegistrar() {
  return *reinterpret_cast<Registrar*>(registrarStorage);
}

uintptr_t KeyOf(const Thread* pThread) {
  return reinterpret_cast<uintptr_t>(pThread);
}

}  // namespace

void BuildThreadRegistrar() {
  new (registrarStorage) Registrar;
}
void CloseThreadRegistrar() {
  TheRegistrar().Close();
}
void LockThreadRegistrar() {
  TheRegistrar().Lock();
}
void UnlockThreadRegistrar() {
  TheRegistrar().Unlock();
}

// The cookie of a registration: made and destroyed on the registered thread.
class InterrupterRegistration final : public FaceObject<BaseFace> {
 public:
  explicit InterrupterRegistration(const FacePtr<Thread::Interrupter>& rInterrupter) {
    const uintptr_t key = KeyOf(GetRegistrant());
    FacePtr<Thread::Interrupter> replaced = rInterrupter;  // released after the lock is left
    Registrar::Access map(TheRegistrar());
    ORM_ASSERT(map->find(key) == map->end(), "msRegistrar.find(npSelf) == msRegistrar.end()", FILE_NAME, 188);
    (*map)[key].Swap(replaced);
  }

 private:
  ~InterrupterRegistration() override {
    // Before the lock is taken: a thread that comes too late does not come back from here.
    const uintptr_t key = KeyOf(GetRegistrant());
    FacePtr<Thread::Interrupter> removed;
    Registrar::Access map(TheRegistrar());
    const auto found = map->find(key);
    ORM_ASSERT(found != map->end(), "msRegistrar.erase(Thread::GetSelf().Get())", FILE_NAME, 216);
    if (found == map->end()) return;
    removed.Swap(found->second);
    map->erase(found);
  }
};

FacePtr<BaseFace> Thread::RegisterInterrupter(const FacePtr<Interrupter>& rInterrupter) {
  return FacePtr<BaseFace>::Adopt(new InterrupterRegistration(rInterrupter));
}

void Thread::Interrupt() {
  FacePtr<Interrupter> interrupter;
  {
    Registrar::Access map(TheRegistrar());
    if (const auto found = map->find(KeyOf(this)); found != map->end()) interrupter = found->second;
  }
  if (interrupter) interrupter->OnInterrupt(FacePtr<Thread>(this));
  ORM_ASSERT(mhInterrupt != nullptr, "mhInterrupt != 0", FILE_NAME, 361);
  const bool signalled = SetEvent(mhInterrupt);
  ORM_ASSERT(signalled, "::SetEvent(mhInterrupt)", FILE_NAME, 362);
}

}  // namespace orm
