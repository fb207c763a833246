// Opening a store.
//
// Files: <machine>/registry/<store>/data.mdb and lock.mdb. Readers of every user enter themselves in
// lock.mdb, so it is writable to whoever may read the store, while data.mdb is writable to whoever may write
// it:
//   machine   folder 0755, data 0644, lock 0666   of the machine's owner
//   open      folder 0755, data 0666, lock 0666   of the machine's owner
//   user-UID  folder 0700, data 0600, lock 0600   of that user
// On a machine that is not shared all of them have the modes of the last line. Users who share a machine
// trust each other not to damage the lock file.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "kernel/Errno.h"
#include "kernel/Machine.h"
#include "registry/Hive.h"
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

// Opens a file of a store, making it with exactly `mode` when it is not there. A link is refused. The result
// is a descriptor, or the negative of an errno value.
int OpenStoreFile(const std::string& path, int access, mode_t mode, uid_t owner, bool create) {
  const int flags = access | O_NOFOLLOW | O_CLOEXEC;
  int file = open(path.c_str(), flags);
  if (file < 0 && errno == ENOENT && create) {
    file = open(path.c_str(), flags | O_CREAT | O_EXCL, mode);
    if (file < 0 && errno == EEXIST) file = open(path.c_str(), flags);
  }
  if (file < 0) return -errno;
  struct stat status {};
  int error = 0;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
      (status.st_uid != owner && status.st_uid != 0)) {
    error = EACCES;
  } else if (create && status.st_size == 0 && status.st_uid == geteuid()) {
    // The file mode mask may have taken bits away, and who made the file may have died before this.
    error = fchmod(file, mode) == 0 ? 0 : errno;
  }
  if (error == 0) return file;
  close(file);
  return -error;
}

// The folder of all stores may not have been made when the machine was, for want of room.
int MakeStoreFolder(const std::string& folder, mode_t mode) {
  int error = EnsureFolder(folder, mode);
  if (error != ENOENT) return error;
  error = EnsureFolder(MachinePath("registry"), MachineMode(01777));
  return error == 0 ? EnsureFolder(folder, mode) : error;
}

bool IsEmpty(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 && status.st_size == 0;
}

// A store begins with two heads, which are written in one step: a disk that has room for one of them only
// would leave what is no store. Not every file system can be asked for the room.
bool HasRoomForHeads(int file) {
  return fallocate(file, FALLOC_FL_KEEP_SIZE, 0, off_t{2} * 4096) == 0 ||
         (errno != ENOSPC && errno != EDQUOT);
}

// Gives all of the lock file its place on the disk: running out of that later would be a signal, not an
// error.
int ReserveLockFile(int file) {
  int error = 0;
  do error = posix_fallocate(file, 0, lockFileSize);
  while (error == EINTR);
  return error == ENOSPC || error == EDQUOT ? error : 0;
}

}  // namespace

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
  DWORD error = ERROR_SUCCESS;
  try {
    error = PrepareFiles();
    if (error == ERROR_SUCCESS) error = OpenEnvironment();
  } catch (const std::bad_alloc&) {
    error = ERROR_NOT_ENOUGH_MEMORY;
  }
  if (error == ERROR_SUCCESS) {
    mIsOpen.store(true, std::memory_order_release);
  } else if (mEnvironment != nullptr) {
    CloseLocked();
  }
  return error;
}

// Makes the files with their modes before LMDB sees them (it would make them by the process's file mode
// mask), finds out whether this user can write, and maps the start of the lock file. None of the descriptors
// stays open: closing one later would take LMDB's own locks away from the whole process.
DWORD Hive::PrepareFiles() {
  if (mFolder.empty()) return ERROR_PATH_NOT_FOUND;
  const bool isOwner = geteuid() == mUser || geteuid() == 0;
  DWORD error = PrepareFolder(isOwner);
  if (error == ERROR_SUCCESS) error = PrepareData(isOwner);
  return error == ERROR_SUCCESS ? PrepareLockFile(isOwner) : error;
}

DWORD Hive::PrepareFolder(bool isOwner) const {
  int error = isOwner ? MakeStoreFolder(mFolder, mKind == Kind::User ? 0700 : MachineMode(0755)) : 0;
  struct stat status {};
  // What may not be made is absent, to who only wants to read it.
  const bool mayBeAbsent = error == 0 || error == EACCES || error == EROFS;
  if (lstat(mFolder.c_str(), &status) != 0 && mayBeAbsent) error = errno;
  if (error != 0) return ErrorFromStore(error);
  const bool isOurs = S_ISDIR(status.st_mode) && (status.st_uid == mUser || status.st_uid == 0);
  return isOurs ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

DWORD Hive::PrepareData(bool isOwner) {
  const mode_t mode = mKind == Kind::User ? 0600 : MachineMode(mKind == Kind::Open ? 0666 : 0644);
  int file = OpenStoreFile(DataFile(), O_RDWR, mode, mUser, isOwner);
  mIsWritable = file >= 0;
  if (file == -EACCES || file == -EROFS) file = OpenStoreFile(DataFile(), O_RDONLY, 0, mUser, false);
  if (file < 0) return ErrorFromStore(-file);
  DWORD error = ERROR_SUCCESS;
  if (IsEmpty(file)) {
    // Whoever made it has not come to make it a store.
    if (!mIsWritable)
      error = ERROR_FILE_NOT_FOUND;
    else if (!HasRoomForHeads(file))
      error = ERROR_DISK_FULL;
  } else {
    // A writer may be in the middle of a head: a fault that lasts is one.
    error = CheckHead(file);
    for (int attempt = 0; error != ERROR_SUCCESS && attempt < 3; ++attempt) error = CheckHead(file);
  }
  close(file);
  return error;
}

DWORD Hive::PrepareLockFile(bool isOwner) {
  const mode_t mode = mKind == Kind::User ? 0600 : MachineMode(0666);
  const int file = OpenStoreFile(mFolder + "/lock.mdb", O_RDWR, mode, mUser, isOwner);
  if (file == -EROFS) return ERROR_SUCCESS;  // nobody writes here, so nobody needs to be told of readers
  // What was a store once is not absent: whoever may make the file lets the others in again.
  struct stat data {};
  if (file == -ENOENT && stat(DataFile().c_str(), &data) == 0 && data.st_size != 0)
    return ERROR_ACCESS_DENIED;
  if (file < 0) return ErrorFromStore(-file);
  const int room = ReserveLockFile(file);
  // Mapped once: whoever asked for the word in it may look there for the life of the process.
  const bool isMapped = mLockFile != nullptr;
  void* start = room != 0 || isMapped ? MAP_FAILED : mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
  close(file);
  if (room != 0) return ErrorFromStore(room);
  if (isMapped) return ERROR_SUCCESS;
  if (start == MAP_FAILED) return ERROR_NOT_ENOUGH_MEMORY;
  mLockFile = static_cast<const volatile unsigned char*>(start);
  return ERROR_SUCCESS;
}

DWORD Hive::OpenEnvironment() {
  const std::string path = DataFile();  // nothing is thrown while there is a transaction
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
  if (error == ERROR_SUCCESS) error = CheckPages(path, mdb_txn_id(txn), nullptr);
  for (int attempt = 0; error == ERROR_BUSY && attempt < 1000; ++attempt) {
    mdb_txn_reset(txn);
    result = BeginReading(&txn);
    error = result == 0 ? CheckPages(path, mdb_txn_id(txn), nullptr) : ErrorFromStore(result);
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

}  // namespace orm::platform
