// Writing a store: transactions, growth of the map, and recovery from a write that failed.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "registry/Hive.h"

namespace orm::platform {
namespace {

constexpr std::uint64_t largestMap = std::uint64_t{1} << 40;

// A thread that ends has not finished the transactions that it is in, and nobody else can.
struct ThreadEnd {
  bool hasBegun = false;  // a transaction, once
  ~ThreadEnd() {
    if (hasBegun) Hive::AbortBatches();
  }
};
thread_local ThreadEnd tThreadEnd;

}  // namespace

// Changes the size of the map; 0 takes over what another process has made of it. The caller holds mWriter and
// no write transaction. Nobody may be reading meanwhile. When it fails there is no map any more, and the
// store is opened anew by the next call.
int Hive::SetMapSize(std::size_t size) {
  LockReaders();
  const int result = mdb_env_set_mapsize(mEnvironment, size);
  if (result != 0) mIsOpen.store(false, std::memory_order_release);
  UnlockReaders();
  return result;
}

// Grows the map before it is full: a page more than three quarters used, or less free than is to be stored.
// `full` when a write has just found it full, whatever was reckoned.
int Hive::EnsureRoom(std::uint64_t bytes, bool full) {
  MDB_envinfo info{};
  MDB_stat stat{};
  mdb_env_info(mEnvironment, &info);
  mdb_env_stat(mEnvironment, &stat);
  // A value of some pages needs a run of free ones; what it replaces becomes free only later.
  const std::uint64_t needed = (std::uint64_t{info.me_last_pgno} + 1) * stat.ms_psize + bytes + bytes / 4;
  if (!full && needed < info.me_mapsize / 4 * 3) return 0;
  std::uint64_t size = info.me_mapsize;
  do size *= 2;
  while (needed > size / 4 * 3 && size < largestMap);
  // Readers that died keep pages from being used again; they are the cheaper way to room.
  int dead = 0;
  mdb_reader_check(mEnvironment, &dead);
  return size > largestMap ? ENOSPC : SetMapSize(size);
}

int Hive::BeginLocked(MDB_txn** txn, std::uint64_t bytes) {
  for (int attempt = 0;; ++attempt) {
    int result = EnsureRoom(bytes, false);
    if (result == 0) result = mdb_txn_begin(mEnvironment, nullptr, 0, txn);
    if (result == 0 || attempt == 3) return result;
    if (result == MDB_MAP_RESIZED) {
      if (const int resized = SetMapSize(0); resized != 0) return resized;
    } else if (result == MDB_PANIC) {
      // The head of the store could not be written. What was committed before is still there.
      CloseLocked();
      if (OpenLocked() != ERROR_SUCCESS) return result;
    } else {
      return result;
    }
  }
}

DWORD Hive::LockForWriting() {
  std::unique_lock lock(mWriter);
  DWORD error = OpenLocked();
  if (error == ERROR_SUCCESS && !mIsWritable) error = ERROR_ACCESS_DENIED;
  if (error == ERROR_SUCCESS) lock.release();
  return error;
}

DWORD Hive::BeginWrite(MDB_txn** txn, std::uint64_t bytes) {
  if (InBatch()) {
    const int result = mdb_txn_begin(mEnvironment, mBatch, 0, txn);
    return result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
  }
  if (const DWORD error = LockForWriting(); error != ERROR_SUCCESS) return error;
  const int result = BeginLocked(txn, bytes);
  if (result == 0) return ERROR_SUCCESS;
  mWriter.unlock();
  return ErrorFromStore(result);
}

// A commit that comes short of disk space in the middle of a write is told as an input/output error.
int Hive::Commit(MDB_txn* txn) {
  const int result = mdb_txn_commit(txn);
  if (result != EIO) return result;
  int file = -1;
  if (mdb_env_get_fd(mEnvironment, &file) != 0) return result;
  const off_t end = lseek(file, 0, SEEK_END);
  const bool hasRoom = fallocate(file, FALLOC_FL_KEEP_SIZE, end, 1 << 20) == 0;
  return !hasRoom && (errno == ENOSPC || errno == EDQUOT) ? errno : result;
}

DWORD Hive::FinishWrite(MDB_txn* txn, DWORD result, std::uint64_t bytes, bool* again) {
  *again = false;
  const bool inBatch = InBatch();
  if (result == ERROR_SUCCESS) {
    const int committed = inBatch ? mdb_txn_commit(txn) : Commit(txn);
    if (committed != 0) result = ErrorFromStore(committed);
  } else {
    mdb_txn_abort(txn);
  }
  if (inBatch) return result == errorMapFull ? ERROR_NO_SYSTEM_RESOURCES : result;
  if (result == errorMapFull) {
    const int grown = EnsureRoom(bytes, true);
    *again = grown == 0;
    result = grown == 0 ? ERROR_SUCCESS : ErrorFromStore(grown);
  }
  mWriter.unlock();
  return result;
}

DWORD Hive::BeginBatch(std::uint64_t bytes) {
  if (InBatch()) return ERROR_BUSY;
  if (bytes > largestMap / 4) return ERROR_NO_SYSTEM_RESOURCES;
  if (const DWORD error = LockForWriting(); error != ERROR_SUCCESS) return error;
  // Every page on the way to a record is written anew once.
  const int result = BeginLocked(&mBatch, bytes * 2 + (1u << 20));
  if (result != 0) {
    mBatch = nullptr;
    mWriter.unlock();
    return ErrorFromStore(result);
  }
  mBatchOwner = ThisThread();
  tThreadEnd.hasBegun = true;
  return ERROR_SUCCESS;
}

DWORD Hive::EndBatch(bool commit) {
  if (!InBatch()) return ERROR_INVALID_FUNCTION;
  MDB_txn* txn = mBatch;
  mBatch = nullptr;
  mBatchOwner = nullptr;
  int result = 0;
  if (commit) {
    result = Commit(txn);
  } else {
    mdb_txn_abort(txn);
  }
  mWriter.unlock();
  const DWORD error = result == 0 ? ERROR_SUCCESS : ErrorFromStore(result);
  return error == errorMapFull ? ERROR_NO_SYSTEM_RESOURCES : error;
}

void Hive::AbortBatches() {
  std::unique_lock lock(msHivesLock);
  Hive* hive = msHives;
  lock.unlock();  // nothing in the list changes or goes
  for (; hive != nullptr; hive = hive->mNext) {
    if (hive->InBatch()) hive->EndBatch(false);
  }
}

DWORD Hive::Flush() {
  // Through the descriptor, since a store that is only read may be flushed as well.
  if (const DWORD error = Open(); error != ERROR_SUCCESS) return error;
  std::unique_lock lock(mWriter, std::defer_lock);
  if (!InBatch()) lock.lock();
  int file = -1;
  if (!mIsOpen || mdb_env_get_fd(mEnvironment, &file) != 0) return ERROR_CANTWRITE;
  return fdatasync(file) == 0 ? ERROR_SUCCESS : ErrorFromStore(errno);
}

}  // namespace orm::platform
