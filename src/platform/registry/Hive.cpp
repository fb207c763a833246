// The stores of this process, and reading them.
#include "registry/Hive.h"

#include <unistd.h>

#include <cerrno>

#include "kernel/Errno.h"
#include "kernel/Machine.h"

namespace orm::platform {
namespace {

constinit std::atomic<Hive*> gShared[2] = {nullptr, nullptr};

}  // namespace

DWORD ErrorFromStore(int code) {
  switch (code) {
    case MDB_NOTFOUND:
      return ERROR_FILE_NOT_FOUND;
    case MDB_KEYEXIST:
      return ERROR_ALREADY_EXISTS;
    case MDB_PAGE_NOTFOUND:
    case MDB_CORRUPTED:
    case MDB_VERSION_MISMATCH:
    case MDB_INVALID:
    case MDB_INCOMPATIBLE:
    case MDB_BAD_TXN:
      return ERROR_BADDB;
    case MDB_MAP_FULL:
      return errorMapFull;
    case MDB_READERS_FULL:
    case MDB_TXN_FULL:
    case MDB_CURSOR_FULL:
    case MDB_BAD_RSLOT:
      return ERROR_NO_SYSTEM_RESOURCES;
    case MDB_BAD_VALSIZE:
      return ERROR_INVALID_PARAMETER;
    case MDB_PANIC:
    case EIO:
      return ERROR_CANTWRITE;
    case EROFS:
      return ERROR_ACCESS_DENIED;
    default:
      return ErrorFromErrno(code);
  }
}

Hive::Hive(Kind kind, uid_t user) : mKind(kind), mUser(user) {
  const char* name = kind == Kind::Machine ? "registry/machine" : "registry/open";
  mFolder = MachinePath(kind == Kind::User ? "registry/user-" + std::to_string(user) : name);
}

Hive* Hive::Get(Kind kind) {
  std::atomic<Hive*>* shared = kind == Kind::User ? nullptr : &gShared[static_cast<int>(kind)];
  if (shared != nullptr) {
    if (Hive* hive = shared->load(std::memory_order_acquire)) return hive;
  }
  const uid_t user = kind == Kind::User ? geteuid() : MachineOwner();
  const std::lock_guard lock(msHivesLock);
  for (Hive* hive = msHives; hive != nullptr; hive = hive->mNext) {
    if (hive->mKind == kind && hive->mUser == user) return hive;
  }
  Hive* hive = new Hive(kind, user);  // never freed: a thread may read to the end of the process
  hive->mNext = msHives;
  msHives = hive;
  if (shared != nullptr) shared->store(hive, std::memory_order_release);
  return hive;
}

std::string Hive::DataFile() const {
  return mFolder + "/data.mdb";
}

// ---- Reading

void Hive::LockReaders() {
  for (Reader& reader : mReaders) reader.lock.lock();
}

void Hive::UnlockReaders() {
  for (Reader& reader : mReaders) reader.lock.unlock();
}

Hive::Reader* Hive::TakeReader() {
  // The bits that tell threads apart lie high; a multiplication spreads them.
  const std::size_t first = (static_cast<std::uint64_t>(pthread_self()) * 0x9E3779B97F4A7C15u) >> 62;
  for (std::size_t i = 0; i < mReaders.size(); ++i) {
    Reader& reader = mReaders[(first + i) % mReaders.size()];
    if (reader.lock.try_lock()) return &reader;
  }
  mReaders[first].lock.lock();
  return &mReaders[first];
}

Hive::Snapshot::Snapshot(Hive* hive) {
  for (int attempt = 0; attempt < 4; ++attempt) {
    if ((error = hive->Open()) != ERROR_SUCCESS) return;
    mReader = hive->TakeReader();
    int result = MDB_BAD_TXN;
    const MDB_env* environment = nullptr;
    if (hive->mIsOpen.load(std::memory_order_acquire)) {
      environment = hive->mEnvironment;
      if (mReader->txn != nullptr) {
        result = mdb_txn_renew(mReader->txn);
      } else {
        result = mdb_txn_begin(hive->mEnvironment, nullptr, MDB_RDONLY, &mReader->txn);
        if (result == MDB_READERS_FULL) {
          int dead = 0;
          mdb_reader_check(hive->mEnvironment, &dead);
        }
        if (result != 0) mReader->txn = nullptr;
      }
    }
    if (result == 0) {
      txn = mReader->txn;
      return;
    }
    mReader->lock.unlock();
    mReader = nullptr;
    error = result == MDB_BAD_TXN ? ERROR_BADDB : ErrorFromStore(result);
    if (result == MDB_MAP_RESIZED) {
      const std::lock_guard lock(hive->mWriter);
      if (hive->mIsOpen && hive->mEnvironment == environment) hive->SetMapSize(0);
    } else if (result == MDB_PANIC) {
      // A head could not be written. What was committed before is still there; the next attempt opens it
      // anew.
      const std::lock_guard lock(hive->mWriter);
      if (hive->mEnvironment == environment) hive->CloseLocked();
    } else if (result != MDB_READERS_FULL && result != MDB_BAD_TXN) {
      return;
    }
  }
}

Hive::Snapshot::~Snapshot() {
  if (mReader == nullptr) return;
  mdb_txn_reset(txn);
  mReader->lock.unlock();
}

}  // namespace orm::platform
