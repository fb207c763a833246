// Named mutexes. Locking and unlocking without contention is the C library's robust mutex and nothing else; a
// waiter sleeps on the mutex's own futex word, so that it can wait with a time-out and for other objects as
// well.
#include "kernel/NamedMutex.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <map>
#include <mutex>

#include "kernel/Errno.h"
#include "kernel/Fork.h"
#include "kernel/Futex.h"
#include "kernel/ThreadRecord.h"

namespace orm::platform {

namespace {

constexpr size_t kStateOffset = 64;
constexpr size_t kFileBytes = 4096;

}  // namespace

// Finds the process's object of a name, as long as it has handles.
class NamedMutexTable {
 public:
  static NamedMutexTable& Get() {
    static NamedMutexTable& table = *new NamedMutexTable;
    return table;
  }

  // Runs `make` for a name that the process does not have open, under the table's lock.
  template <class Make>
  Ref<NamedMutex> FindOrMake(const std::string& name, Make&& make) {
    const std::lock_guard lock(mLock);
    Ref<NamedMutex> mutex;
    if (const auto found = mMutexes.find(name); found != mMutexes.end()) {
      mutex = Ref<NamedMutex>(found->second);
    } else {
      // The entry is made first: a mutex that is owned already cannot be given up for want of it.
      std::map<std::string, NamedMutex*> entry{{name, nullptr}};
      mutex = make();
      if (!mutex) return nullptr;
      entry.begin()->second = mutex.get();
      mMutexes.merge(entry);
    }
    ++mutex->mHandles;
    return mutex;
  }

  // False for an object that is pinned still, but had lost its last handle and with it the name.
  bool Opened(NamedMutex& mutex) {
    const std::lock_guard lock(mLock);
    if (mutex.mHandles == 0) return false;
    ++mutex.mHandles;
    return true;
  }

  // The name goes with the last handle, though the object may be pinned or owned still.
  void Closed(NamedMutex& mutex) {
    const std::lock_guard lock(mLock);
    if (--mutex.mHandles != 0) return;
    mMutexes.erase(mutex.mName);
    mutex.mFile.Close();
  }

  std::mutex& Lock() { return mLock; }

 private:
  std::mutex mLock;
  std::map<std::string, NamedMutex*> mMutexes;
};

std::mutex& NamedMutexLock() noexcept {
  return NamedMutexTable::Get().Lock();
}

// Leaves the file mapped, and the mutex to its first owner before anybody else can open it.
class NamedMutex::Initialiser final : public NamedInitialiser {
 public:
  Initialiser(NamedMutex& made, const ThreadRecord* owner) : mMade(made), mOwner(owner) {}

  DWORD Initialise(int descriptor) override {
    if (ftruncate(descriptor, kFileBytes) != 0) return ErrorFromErrno(errno);
    if (const int error = mMade.MapFile(descriptor); error != 0) return ErrorFromErrno(error);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    const int code = pthread_mutex_init(&mMade.mShared->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (code != 0) return ErrorFromErrno(code);
    if (mOwner != nullptr && pthread_mutex_trylock(&mMade.mShared->mutex) == 0) mMade.Own(*mOwner);
    return ERROR_SUCCESS;
  }

 private:
  NamedMutex& mMade;
  const ThreadRecord* const mOwner;
};

// 0 or an errno value.
int NamedMutex::MapFile(int descriptor) noexcept {
  void* const view = mmap(nullptr, kFileBytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (view == MAP_FAILED) return errno;
  mShared = reinterpret_cast<SharedState*>(static_cast<std::byte*>(view) + kStateOffset);
  return 0;
}

bool NamedMutex::Map() noexcept {
  if (mShared != nullptr) return true;
  struct stat status;
  if (fstat(mFile.Descriptor(), &status) != 0 || status.st_size < static_cast<off_t>(kFileBytes)) {
    tlsLastError = ERROR_INVALID_DATA;
    return false;
  }
  const int error = MapFile(mFile.Descriptor());
  if (error != 0) tlsLastError = ErrorFromErrno(error);
  return error == 0;
}

bool NamedMutex::OnHandleOpened() noexcept {
  return NamedMutexTable::Get().Opened(*this);
}

void NamedMutex::OnHandleClosed() noexcept {
  NamedMutexTable::Get().Closed(*this);
}

NamedMutex::~NamedMutex() {
  if (mShared != nullptr) munmap(reinterpret_cast<std::byte*>(mShared) - kStateOffset, kFileBytes);
}

Ref<NamedMutex> NamedMutex::Create(const char* name, const SECURITY_ATTRIBUTES* security,
                                   const ThreadRecord* owner, bool& existed) {
  const std::string plain(PlainObjectName(name));
  const NamedPath path = FindNamedPath(plain);
  existed = true;
  return NamedMutexTable::Get().FindOrMake(plain, [&]() -> Ref<NamedMutex> {
    auto made = Ref<NamedMutex>::Adopt(new NamedMutex(plain));
    Initialiser initialiser(*made, owner);
    const NamedFile::Result result = made->mFile.Create(path, NamedKind::kMutex, security, initialiser);
    existed = result.existed;
    if (result.error == ERROR_SUCCESS && made->Map()) return made;
    if (result.error != ERROR_SUCCESS) tlsLastError = result.error;
    return nullptr;
  });
}

Ref<NamedMutex> NamedMutex::Open(const char* name) {
  const std::string plain(PlainObjectName(name));
  const NamedPath path = FindNamedPath(plain);
  return NamedMutexTable::Get().FindOrMake(plain, [&]() -> Ref<NamedMutex> {
    auto made = Ref<NamedMutex>::Adopt(new NamedMutex(plain));
    const DWORD error = made->mFile.Open(path, NamedKind::kMutex);
    if (error == ERROR_SUCCESS && made->Map()) return made;
    if (error != ERROR_SUCCESS) tlsLastError = error;
    return nullptr;
  });
}

// The futex word of a robust mutex is the C library's and the kernel's common contract (the kernel finds it
// through the robust list): the owner's thread id, with a bit for waiters and one for a dead owner.
std::atomic<uint32_t>& NamedMutex::LockWord() noexcept {
  static_assert(offsetof(pthread_mutex_t, __data.__lock) == 0);
  return *reinterpret_cast<std::atomic<uint32_t>*>(&mShared->mutex.__data.__lock);
}

void NamedMutex::Own(const ThreadRecord& thread) noexcept {
  mOwner.store(&thread, std::memory_order_relaxed);
  mCount = 1;
}

Acquired NamedMutex::TryOwn(ThreadRecord& thread) noexcept {
  if (mOwner.load(std::memory_order_relaxed) == &thread) {
    ++mCount;
    return Acquired::kYes;
  }
  const int code = pthread_mutex_trylock(&mShared->mutex);
  if (code != 0 && code != EOWNERDEAD) return Acquired::kNo;
  if (code == EOWNERDEAD) pthread_mutex_consistent(&mShared->mutex);
  const bool released = mShared->abandoned.load(std::memory_order_relaxed) != 0;
  if (released) mShared->abandoned.store(0, std::memory_order_relaxed);
  Own(thread);
  return code == EOWNERDEAD || released ? Acquired::kAbandoned : Acquired::kOwned;
}

bool NamedMutex::ReleaseOnce() noexcept {
  if (--mCount != 0) return false;
  mOwner.store(nullptr, std::memory_order_relaxed);
  pthread_mutex_unlock(&mShared->mutex);
  return true;
}

// Done here and not left to the kernel: the file may be unmapped before the thread is really gone.
void NamedMutex::Abandon() noexcept {
  mShared->abandoned.store(1, std::memory_order_relaxed);
  mCount = 1;
  ReleaseOnce();
}

// Nobody has been told that the former owner died; the next one is.
void NamedMutex::Undo(const WaitNode& node) noexcept {
  if (node.outcome == Acquired::kAbandoned && mCount == 1) {
    Abandon();
  } else {
    ReleaseOnce();
  }
}

bool NamedMutex::PrepareSharedWait(SharedWait& wait) noexcept {
  auto& word = LockWord();
  uint32_t value = word.load(std::memory_order_relaxed);
  do {
    if ((value & FUTEX_TID_MASK) == 0) return false;
  } while ((value & FUTEX_WAITERS) == 0 &&
           !word.compare_exchange_weak(value, value | FUTEX_WAITERS, std::memory_order_acq_rel));
  wait = {&word, value | FUTEX_WAITERS};
  return true;
}

// An unlock wakes one sleeper and forgets the others, so the mark has to be set again by who took the mutex,
// and a wake that came to one who did not take it has to be passed on.
void NamedMutex::EndSharedWait(bool acquired) noexcept {
  auto& word = LockWord();
  if (acquired) {
    word.fetch_or(FUTEX_WAITERS, std::memory_order_relaxed);
  } else {
    FutexWake(word, 1, FutexScope::kMachine);
  }
}

}  // namespace orm::platform
