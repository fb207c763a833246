// The stores over fork: an LMDB environment is not to be used by a child, which opens its own.
//
// At the moment of a fork nobody reads, and the tables that the threads share are whole. Only the thread that
// writes a store goes on: it may be in a transaction of many calls, or wait for a writer in another process,
// and a fork waits for neither. The child takes what that thread was working on for lost.
//
// The handlers are registered when the library is loaded, before there is a store and before any thread can
// fork without them. Handlers run in the reverse order of their registration before a fork and in that order
// after it: those of whoever is linked to this library find the registry usable on both sides.
#include <pthread.h>

#include <memory>
#include <utility>

#include "kernel/Fork.h"
#include "registry/Hive.h"
#include "registry/KeyTable.h"

namespace orm::platform {

class ForkHandlers {
 public:
  static void Before() {
    Hive::msHivesLock.lock();
    for (Hive* hive = Hive::msHives; hive != nullptr; hive = hive->mNext) {
      hive->mIsHeldOverFork = !hive->InBatch() && hive->mWriter.try_lock();
      hive->LockReaders();
    }
    LockKeyTable();
  }

  static void AfterInParent() {
    UnlockKeyTable();
    for (Hive* hive = Hive::msHives; hive != nullptr; hive = hive->mNext) {
      hive->UnlockReaders();
      if (hive->mIsHeldOverFork) hive->mWriter.unlock();
    }
    Hive::msHivesLock.unlock();
  }

  static void AfterInChild() {
    UnlockKeyTable();
    for (Hive* hive = Hive::msHives; hive != nullptr; hive = hive->mNext) hive->LeaveToParent();
    Hive::msHivesLock.unlock();
  }
};

namespace {

[[gnu::constructor]] void OnLoad() {
  RegisterForkHandlers();  // the kernel's first: its locks are taken under the registry's
  pthread_atfork(ForkHandlers::Before, ForkHandlers::AfterInParent, ForkHandlers::AfterInChild);
}

}  // namespace

// The parent's read transactions are forgotten, not ended: ending one would free its slot in the table of
// readers, which is the parent's. The same holds for a transaction of this thread: it stays the parent's.
void Hive::LeaveToParent() {
  mIsOpen = false;
  const bool isWhole = mIsHeldOverFork || InBatch();
  MDB_env* const inherited = std::exchange(mEnvironment, nullptr);
  if (isWhole) {
    if (inherited != nullptr) mStale = inherited;
    mWriter.unlock();
  } else {
    // Another thread of the parent may have been anywhere in LMDB, also in the middle of closing mStale.
    if (inherited != nullptr) mLost = inherited;
    mStale = nullptr;
    std::construct_at(&mWriter);  // its owner does not exist here
  }
  for (Reader& reader : mReaders) reader.stale = std::exchange(reader.txn, nullptr);
  UnlockReaders();
  mBatch = nullptr;
  mBatchOwner = nullptr;
}

}  // namespace orm::platform
