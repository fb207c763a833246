// Opening a store, reading it, and keeping both right over fork.
//
// Files: <machine>/registry/<store>/data.mdb and lock.mdb. Readers of every user enter themselves in
// lock.mdb, so it is writable to whoever may read the store, while data.mdb is writable to whoever may write
// it:
//   machine   folder 0755, data 0644, lock 0666   of the machine's owner
//   open      folder 0755, data 0666, lock 0666   of the machine's owner
//   user-UID  folder 0700, data 0600, lock 0600   of that user
// On a machine that is not shared all of them have the modes of the last line. Users who share a machine
// trust each other not to damage the lock file.
#include "registry/Hive.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "kernel/Errno.h"
#include "kernel/Machine.h"
#include "registry/KeyTable.h"
#include "registry/PageCheck.h"

namespace orm::platform {
namespace {

constexpr unsigned maxReaders = 1022;
constexpr off_t lockFileSize =
    64 * 1024 + 128;  // room for the readers; what there is tells LMDB their number
constexpr std::size_t firstMapSize = std::size_t{16} << 20;
constexpr std::uint32_t lockMagic = 0xBEEFC0DE;
// LMDB's lock file begins with a magic number and a format (4 bytes each) and the readers' mutex.
constexpr std::size_t commitWordOffset = 8 + sizeof(pthread_mutex_t);

constinit std::mutex gHivesLock;
constinit Hive* gHives = nullptr;
constinit std::atomic<Hive*> gShared[2] = {nullptr, nullptr};

// Opens a file of a store, making it with exactly `mode` when it is not there. A link is refused. The result
// is a descriptor, or the negative of an errno value.
int OpenStoreFile(const std::string& path, int access, mode_t mode, uid_t owner, bool create) {
  int file = open(path.c_str(), access | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0 && errno == ENOENT && create) {
    file = open(path.c_str(), access | O_NOFOLLOW | O_CLOEXEC | O_CREAT | O_EXCL, mode);
    if (file >= 0 && fchmod(file, mode) != 0) {
      const int error = errno;
      close(file);
      return -error;
    }
    if (file < 0 && errno == EEXIST) file = open(path.c_str(), access | O_NOFOLLOW | O_CLOEXEC);
  }
  if (file < 0) return -errno;
  struct stat status {};
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
      (status.st_uid != owner && status.st_uid != 0)) {
    close(file);
    return -EACCES;
  }
  return file;
}

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
  const uid_t user = kind == Kind::User ? geteuid() : MachineOwner();
  std::atomic<Hive*>* shared = kind == Kind::User ? nullptr : &gShared[static_cast<int>(kind)];
  if (shared != nullptr) {
    if (Hive* hive = shared->load(std::memory_order_acquire)) return hive;
  }
  const std::lock_guard lock(gHivesLock);
  for (Hive* hive = gHives; hive != nullptr; hive = hive->mNext) {
    if (hive->mKind == kind && hive->mUser == user) return hive;
  }
  if (gHives == nullptr) pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
  Hive* hive = new Hive(kind, user);  // never freed: a thread may read to the end of the process
  hive->mNext = gHives;
  gHives = hive;
  if (shared != nullptr) shared->store(hive, std::memory_order_release);
  return hive;
}

std::string Hive::DataFile() const {
  return mFolder + "/data.mdb";
}

// ---- Opening

DWORD Hive::OpenSlow() {
  const std::lock_guard lock(mWriter);
  return OpenLocked();
}

DWORD Hive::OpenLocked() {
  if (mIsOpen.load(std::memory_order_relaxed)) return ERROR_SUCCESS;
  if (mEnvironment != nullptr) CloseLocked();  // its map was lost
  if (mStale != nullptr) {
    mdb_env_close(mStale);
    mStale = nullptr;
  }
  if (const DWORD error = PrepareFiles(); error != ERROR_SUCCESS) return error;
  if (const DWORD error = OpenEnvironment(); error != ERROR_SUCCESS) {
    CloseLocked();
    return error;
  }
  mIsOpen.store(true, std::memory_order_release);
  return ERROR_SUCCESS;
}

// Makes the files with their modes before LMDB sees them (it would make them by the process's file mode
// mask), finds out whether this user can write, and maps the start of the lock file. None of the descriptors
// stays open: closing one later would take LMDB's own locks away from the whole process.
DWORD Hive::PrepareFiles() {
  if (mFolder.empty()) return ERROR_PATH_NOT_FOUND;
  const bool isUser = mKind == Kind::User;
  const bool isOwner = geteuid() == mUser || geteuid() == 0;
  if (isOwner) {
    if (const int error = EnsureFolder(mFolder, isUser ? 0700 : MachineMode(0755)); error != 0)
      return ErrorFromStore(error);
  }
  struct stat status {};
  if (lstat(mFolder.c_str(), &status) != 0) return ErrorFromErrno(errno);
  if (!S_ISDIR(status.st_mode) || (status.st_uid != mUser && status.st_uid != 0)) return ERROR_ACCESS_DENIED;

  const mode_t dataMode = isUser ? 0600 : MachineMode(mKind == Kind::Open ? 0666 : 0644);
  int data = OpenStoreFile(DataFile(), O_RDWR, dataMode, mUser, isOwner);
  mIsWritable = data >= 0;
  if (data == -EACCES || data == -EROFS) data = OpenStoreFile(DataFile(), O_RDONLY, 0, mUser, false);
  if (data < 0) return ErrorFromStore(-data);
  // A writer may be in the middle of a head: a fault that lasts is one.
  DWORD head = CheckHead(data);
  for (int attempt = 0; head != ERROR_SUCCESS && attempt < 3; ++attempt) head = CheckHead(data);
  close(data);
  if (head != ERROR_SUCCESS) return head;

  const int lock =
      OpenStoreFile(mFolder + "/lock.mdb", O_RDWR, isUser ? 0600 : MachineMode(0666), mUser, isOwner);
  if (lock == -EROFS) return ERROR_SUCCESS;  // nobody writes here, so nobody needs to be told of readers
  if (lock < 0) return ErrorFromStore(-lock);
  // All of it has its place on the disk now: running out of that later would be a signal, not an error.
  const int room = posix_fallocate(lock, 0, lockFileSize);
  // Mapped once: whoever asked for the word in it may look there for the life of the process.
  const bool isMapped = mLockFile != nullptr;
  void* start = room == ENOSPC || isMapped ? MAP_FAILED : mmap(nullptr, 4096, PROT_READ, MAP_SHARED, lock, 0);
  close(lock);
  if (room == ENOSPC) return ERROR_DISK_FULL;
  if (isMapped) return ERROR_SUCCESS;
  if (start == MAP_FAILED) return ERROR_NOT_ENOUGH_MEMORY;
  mLockFile = static_cast<const volatile unsigned char*>(start);
  return ERROR_SUCCESS;
}

DWORD Hive::OpenEnvironment() {
  int result = mdb_env_create(&mEnvironment);
  if (result == 0) result = mdb_env_set_maxreaders(mEnvironment, maxReaders);
  if (result == 0) result = mdb_env_set_mapsize(mEnvironment, firstMapSize);
  // Without a sync in every commit a value that was set survives the death of the process, since the pages
  // are in the kernel's hands; RegFlushKey is for the loss of power.
  const unsigned flags = MDB_NOTLS | MDB_NOSYNC | (mIsWritable ? 0u : MDB_RDONLY);
  if (result == 0) result = mdb_env_open(mEnvironment, mFolder.c_str(), flags, 0600);
  int dead = 0;
  if (result == 0) result = mdb_reader_check(mEnvironment, &dead);
  MDB_txn* txn = nullptr;
  if (result == 0) result = BeginReading(&txn);
  if (result != 0) return ErrorFromStore(result);
  MDB_dbi main = 0;
  result = mdb_dbi_open(txn, nullptr, 0, &main);
  DWORD error = result != 0 ? ErrorFromStore(result) : ERROR_SUCCESS;
  // What LMDB reads from now on it follows without a further check.
  if (error == ERROR_SUCCESS) error = CheckPages(DataFile(), mdb_txn_id(txn), nullptr);
  for (int attempt = 0; error == ERROR_BUSY && attempt < 1000; ++attempt) {
    mdb_txn_reset(txn);
    result = BeginReading(&txn);
    error = result == 0 ? CheckPages(DataFile(), mdb_txn_id(txn), nullptr) : ErrorFromStore(result);
  }
  mdb_txn_abort(txn);
  if (error == ERROR_SUCCESS) FindCommitWord();
  return error;
}

// Begins or renews a transaction while a store is opened. The map was made as large as the store was then: a
// writer that has made the store grow since has to be followed.
int Hive::BeginReading(MDB_txn** txn) {
  int result = 0, resized = 0;
  do {
    result = *txn != nullptr ? mdb_txn_renew(*txn) : mdb_txn_begin(mEnvironment, nullptr, MDB_RDONLY, txn);
    if (result == MDB_MAP_RESIZED) resized = SetMapSize(0);
  } while (result == MDB_MAP_RESIZED && resized == 0);
  return resized != 0 ? resized : result;
}

// The word is LMDB's own: readers begin with the transaction that it names. It is used only when it is found
// where this version of LMDB keeps it, and equal to what LMDB says.
void Hive::FindCommitWord() {
  mCommitWord = nullptr;
  if (mLockFile == nullptr) return;
  const auto* magic = reinterpret_cast<const volatile std::uint32_t*>(mLockFile);
  const auto* word = reinterpret_cast<const volatile std::uint64_t*>(mLockFile + commitWordOffset);
  for (int attempt = 0; attempt < 3 && *magic == lockMagic; ++attempt) {
    MDB_envinfo info{};
    const std::uint64_t before = *word;
    mdb_env_info(mEnvironment, &info);
    if (info.me_last_txnid == before && *word == before) {
      mCommitWord = word;
      return;
    }
  }
}

void Hive::CloseLocked() {
  mIsOpen.store(false, std::memory_order_release);
  LockReaders();
  for (Reader& reader : mReaders) {
    if (reader.txn != nullptr) mdb_txn_abort(reader.txn);
    reader.txn = nullptr;
  }
  if (mEnvironment != nullptr) mdb_env_close(mEnvironment);
  mEnvironment = nullptr;
  UnlockReaders();
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
    const MDB_env* const environment = hive->mEnvironment;
    if (hive->mIsOpen.load(std::memory_order_acquire)) {
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

// ---- Fork: an LMDB environment is not to be used by a child. At the moment of the fork nobody is inside
// one.

void Hive::BeforeFork() {
  gHivesLock.lock();
  for (Hive* hive = gHives; hive != nullptr; hive = hive->mNext) {
    if (!hive->InBatch()) hive->mWriter.lock();
    hive->LockReaders();
  }
  LockKeyTable();
}

void Hive::AfterForkInParent() {
  UnlockKeyTable();
  for (Hive* hive = gHives; hive != nullptr; hive = hive->mNext) {
    hive->UnlockReaders();
    if (!hive->InBatch()) hive->mWriter.unlock();
  }
  gHivesLock.unlock();
}

// The parent's read transactions are forgotten, not ended: ending one would free its slot in the table of
// readers, which is the parent's. The same holds for a transaction of this thread: it stays the parent's.
void Hive::AfterForkInChild() {
  UnlockKeyTable();
  for (Hive* hive = gHives; hive != nullptr; hive = hive->mNext) {
    hive->mIsOpen = false;
    if (hive->mEnvironment != nullptr) hive->mStale = hive->mEnvironment;
    hive->mEnvironment = nullptr;
    for (Reader& reader : hive->mReaders) reader.stale = std::exchange(reader.txn, nullptr);
    hive->UnlockReaders();
    hive->mBatch = nullptr;
    hive->mBatchOwner = nullptr;
    hive->mWriter.unlock();
  }
  gHivesLock.unlock();
}

}  // namespace orm::platform
