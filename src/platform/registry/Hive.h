// One store of the registry: an LMDB environment in a folder of its own, and the rules for reading and
// writing it. There are three for each user: the machine's (written by its owner), the open one (written by
// everybody, for keys with a null access list) and the user's.
#pragma once

#include <lmdb.h>
#include <pthread.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "registry/WordLock.h"
#include "win32/errors.h"

namespace orm::platform {

// What a write that outgrew the map returns inside a transaction; never seen outside this folder.
inline constexpr DWORD errorMapFull = 0x20000001;

// The one database of a store; LMDB gives it this number.
inline constexpr MDB_dbi records = 1;

// The platform's number for what an LMDB call returned (its own codes and errno values).
DWORD ErrorFromStore(int code);

class Hive {
 public:
  enum class Kind { Machine, Open, User };

  // Any one of the three, made when first asked for and kept for the life of the process. Users are told
  // apart by the effective user id of the caller. Never null.
  static Hive* Get(Kind kind);

  Hive(const Hive&) = delete;
  Hive& operator=(const Hive&) = delete;

  [[nodiscard]] Kind GetKind() const { return mKind; }

  // 0 when the store is open, else why it cannot be: 2 when it is not there yet and this user cannot make it.
  DWORD Open() { return mIsOpen.load(std::memory_order_acquire) ? ERROR_SUCCESS : OpenSlow(); }

  // Whether this user can write the store; false when it cannot be opened.
  bool IsWritable() { return Open() == ERROR_SUCCESS && mIsWritable; }

  // Calls `body(MDB_txn*)` on the last committed content (inside the calling thread's own transaction when
  // it has one) and returns its result, or the error that kept it from running. The body only reads, calls
  // no other function of this class, and keeps no pointer into the store.
  template <class Body>
  DWORD Read(Body&& body);

  // Calls `body(MDB_txn*)` in a write transaction and commits when it returns 0. The body runs again from
  // its beginning when the map had to grow. `bytes` is about what it stores. Denied: 5.
  template <class Body>
  DWORD Write(std::size_t bytes, Body&& body);

  // A transaction of the calling thread that lasts over several Write calls; see registryx.h.
  DWORD BeginBatch(std::uint64_t bytes);
  DWORD EndBatch(bool commit);
  // Ends all that the calling thread has begun.
  static void AbortBatches();
  [[nodiscard]] bool InBatch() const {
    const void* owner = mBatchOwner.load(std::memory_order_relaxed);
    return owner != nullptr && owner == ThisThread();
  }

  DWORD Flush();

  // The id of the last committed transaction, in memory shared with the writers; null when LMDB's lock file
  // does not have the layout that is known here. Valid for the life of the process once the store is open.
  [[nodiscard]] const volatile std::uint64_t* CommitWord() const {
    return mCommitWord.load(std::memory_order_acquire);
  }

  // Path of the file that holds the records.
  [[nodiscard]] std::string DataFile() const;

 private:
  friend class ForkHandlers;

  // A read transaction that is renewed for each call, so that reading takes no system call. A few are shared
  // by all threads, because each occupies a slot in the table of readers of all processes.
  struct alignas(64) Reader {
    WordLock lock;
    MDB_txn* txn = nullptr;
    MDB_txn* stale = nullptr;  // of the process that this one was forked from; never touched
  };

  // The last committed content, for the life of this object; error tells why there is none.
  class Snapshot {
   public:
    explicit Snapshot(Hive* hive);
    ~Snapshot();
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

    MDB_txn* txn = nullptr;
    DWORD error = ERROR_SUCCESS;

   private:
    Reader* mReader = nullptr;
  };

  Hive(Kind kind, uid_t user);

  static const void* ThisThread() { return reinterpret_cast<const void*>(pthread_self()); }
  void LeaveToParent();

  DWORD OpenSlow();
  DWORD OpenLocked();
  DWORD PrepareFiles();
  [[nodiscard]] DWORD PrepareFolder(bool isOwner) const;
  DWORD PrepareData(bool isOwner);
  DWORD PrepareLockFile(bool isOwner);
  DWORD OpenEnvironment();
  void FindCommitWord();
  void CloseLocked();
  Reader* TakeReader();
  void LockReaders();
  void UnlockReaders();
  int SetMapSize(std::size_t size);
  int BeginReading(MDB_txn** txn);
  int EnsureRoom(std::uint64_t bytes, bool full);
  int BeginLocked(MDB_txn** txn, std::uint64_t bytes);
  DWORD LockForWriting();
  DWORD BeginWrite(MDB_txn** txn, std::uint64_t bytes);
  // Ends a write transaction by the body's result; *again when the body has to run once more.
  DWORD FinishWrite(MDB_txn* txn, DWORD result, std::uint64_t bytes, bool* again);
  int Commit(MDB_txn* txn);

  const Kind mKind;
  const uid_t mUser;
  std::string mFolder;
  std::atomic<bool> mIsOpen{false};
  std::atomic<bool> mIsWritable{false};
  MDB_env* mEnvironment = nullptr;
  const volatile unsigned char* mLockFile = nullptr;
  MDB_env* mStale = nullptr;  // of the parent process; closed when this process opens its own
  MDB_env* mLost = nullptr;   // of the parent process, with a writer in it; never touched
  std::atomic<const volatile std::uint64_t*> mCommitWord{nullptr};
  std::mutex mWriter;            // one writer of this process at a time; also opening and closing
  bool mIsHeldOverFork = false;  // mWriter, by the thread that forks
  std::atomic<const void*> mBatchOwner{nullptr};
  MDB_txn* mBatch = nullptr;
  std::array<Reader, 4> mReaders;

  static inline constinit std::mutex msHivesLock;
  static inline constinit Hive* msHives = nullptr;
  Hive* mNext = nullptr;
};

template <class Body>
DWORD Hive::Read(Body&& body) {
  if (InBatch()) return body(mBatch);
  const Snapshot snapshot(this);
  return snapshot.error != ERROR_SUCCESS ? snapshot.error : body(snapshot.txn);
}

template <class Body>
DWORD Hive::Write(std::size_t bytes, Body&& body) {
  for (bool again = true;;) {
    MDB_txn* txn = nullptr;
    if (const DWORD error = BeginWrite(&txn, bytes); error != ERROR_SUCCESS) return error;
    DWORD result = ERROR_NOT_ENOUGH_MEMORY;
    try {
      result = body(txn);
    } catch (...) {
      FinishWrite(txn, result, bytes, &again);
      throw;
    }
    result = FinishWrite(txn, result, bytes, &again);
    if (!again) return result;
  }
}

}  // namespace orm::platform
