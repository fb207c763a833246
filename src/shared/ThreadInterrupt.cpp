// The registrar of interrupters, and interruption itself.
#include <map>
#include <new>

#include "ThreadModule.h"

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/Thread";

// One interrupter at most for each thread. The key is the thread object's address, without a reference.
class Registrar {
 public:
  Registrar() { InitializeCriticalSection(&mLock); }
  ~Registrar() { DeleteCriticalSection(&mLock); }

  // Holds the lock; the map is reached through it alone.
  class Access {
   public:
    explicit Access(Registrar& rRegistrar) : mRegistrar(rRegistrar) {
      HoldAfterDetach();
      EnterCriticalSection(&mRegistrar.mLock);
    }
    ~Access() { LeaveCriticalSection(&mRegistrar.mLock); }
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;
    auto* operator->() { return &mRegistrar.mMap; }

   private:
    Registrar& mRegistrar;
  };

 private:
  CRITICAL_SECTION mLock;
  std::map<uintptr_t, FacePtr<Thread::Interrupter>> mMap;
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
void DestroyThreadRegistrar() {
  TheRegistrar().~Registrar();
}

// The cookie of a registration: made and destroyed on the registered thread.
class InterrupterRegistration final : public FaceObject<BaseFace> {
 public:
  explicit InterrupterRegistration(const FacePtr<Thread::Interrupter>& rInterrupter) {
    const FacePtr<Thread> self = Thread::GetSelf();
    FacePtr<Thread::Interrupter> replaced = rInterrupter;  // released after the lock is left
    Registrar::Access map(TheRegistrar());
    ORM_ASSERT(map->find(KeyOf(self.Get())) == map->end(), "msRegistrar.find(npSelf) == msRegistrar.end()",
               FILE_NAME, 188);
    (*map.operator->())[KeyOf(self.Get())].Swap(replaced);
  }

 private:
  ~InterrupterRegistration() override {
    FacePtr<Thread::Interrupter> removed;
    Registrar::Access map(TheRegistrar());
    const auto found = map->find(KeyOf(Thread::GetSelf().Get()));
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
