// A mutex that all processes of the machine share by name: a robust process-shared pthread mutex in the
// object's file. The system hands it on when its owner is killed.
#pragma once

#include <pthread.h>

#include <string>

#include "kernel/Mutex.h"
#include "kernel/NamedFile.h"

namespace orm::platform {

class NamedMutex final : public OwnableMutex {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kNamedMutex;

  // Within a process all handles of one name share one object. Null with the last error. The result counts as
  // one handle, for the caller to give up with OnHandleClosed when it has made one. A mutex that did not
  // exist belongs to `owner`, the calling thread or null, from its beginning.
  static Ref<NamedMutex> Create(const char* name, const SECURITY_ATTRIBUTES* security,
                                const ThreadRecord* owner, bool& existed);
  static Ref<NamedMutex> Open(const char* name);

  bool OnHandleOpened() noexcept override;
  void OnHandleClosed() noexcept override;

  Acquired TryAcquire(const WaitNode& request) noexcept override { return TryOwn(*request.thread); }
  Acquired TryOwn(ThreadRecord& thread) noexcept override;
  bool ReleaseOnce() noexcept override;
  void Abandon() noexcept override;

  bool IsShared() const noexcept override { return true; }
  bool PrepareSharedWait(SharedWait& wait) noexcept override;
  void EndSharedWait(bool acquired) noexcept override;
  void Undo(const WaitNode& node) noexcept override;
  // In a child made by fork, whose only thread owned the mutex in the parent.
  void LeaveToParent() noexcept { mOwner.store(nullptr, std::memory_order_relaxed); }

 private:
  friend class NamedMutexTable;

  // The content of the file after the header.
  struct SharedState {
    pthread_mutex_t mutex;
    std::atomic<uint32_t> abandoned;  // its owner ended, but lived to release it; written by the holder
  };

  class Initialiser;

  explicit NamedMutex(std::string name) : OwnableMutex(kKind), mName(std::move(name)) {}
  ~NamedMutex() override;
  bool Map() noexcept;
  int MapFile(int descriptor) noexcept;
  void Own(const ThreadRecord& thread) noexcept;
  std::atomic<uint32_t>& LockWord() noexcept;

  const std::string mName;
  NamedFile mFile;        // held while there are handles
  uint32_t mHandles = 0;  // guarded by the table's lock
  SharedState* mShared = nullptr;
};

}  // namespace orm::platform
