// Opening and creating files.
#include <fcntl.h>

#include "kernel/Descriptor.h"
#include "kernel/File.h"
#include "kernel/FileDisk.h"
#include "kernel/Machine.h"
#include "kernel/NamedFile.h"
#include "kernel/NoMemory.h"
#include "kernel/ShareMode.h"
#include "win32/files.h"

namespace orm::platform {
namespace {

constexpr int maxRaces = 16;

struct Request {
  bool reads = false, writes = false, appends = false;
  DWORD disposition = 0;
  int flags = 0;  // of open, without the access mode
  mode_t mode = 0666;
  bool isOpenToAll = false;
  bool mayBeFolder = false;
};

void Advise(int file, DWORD flags) {
  if ((flags & FILE_FLAG_SEQUENTIAL_SCAN) != 0) posix_fadvise(file, 0, 0, POSIX_FADV_SEQUENTIAL);
  if ((flags & FILE_FLAG_RANDOM_ACCESS) != 0) posix_fadvise(file, 0, 0, POSIX_FADV_RANDOM);
}

bool ReadRequest(DWORD access, DWORD disposition, DWORD flags, const SECURITY_ATTRIBUTES* attributes,
                 Request* request) {
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return false;
  request->reads = (access & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA)) != 0;
  request->writes = (access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA)) != 0;
  request->appends = !request->writes && (access & FILE_APPEND_DATA) != 0;
  if (disposition == TRUNCATE_EXISTING && !request->writes) return false;
  request->disposition = disposition;
  // Without O_NONBLOCK opening a pipe would wait for its other end; files are not touched by it.
  request->flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  if (request->appends) request->flags |= O_APPEND;
  if ((flags & FILE_FLAG_WRITE_THROUGH) != 0) request->flags |= O_DSYNC;
  request->isOpenToAll = IsOpenToAll(attributes);
  if ((flags & FILE_ATTRIBUTE_READONLY) != 0) request->mode = 0444;
  request->mayBeFolder = (flags & FILE_FLAG_BACKUP_SEMANTICS) != 0;
  return true;
}

// A link that somebody else left in a folder where everybody may create is not followed.
bool IsPlanted(const std::string& path) {
  struct stat link {};
  struct stat folder {};
  const std::string parent = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
  if (lstat(path.c_str(), &link) != 0 || stat(parent.c_str(), &folder) != 0) return true;
  const mode_t shared = S_ISVTX | S_IWOTH;
  return (folder.st_mode & shared) == shared && link.st_uid != geteuid() && link.st_uid != folder.st_uid;
}

// On a shared machine the name of a file that is opened to all may come from anybody (the trace configuration
// is everybody's). It must not lead to a file of this user's own, which others could then have written to:
// everybody may create where it lies and, when it is there already, write it.
bool IsOpenPlace(const Request& request, const std::string& path, int file) {
  if (!request.isOpenToAll || !MachineIsShared()) return true;
  struct stat status {};
  if (file >= 0 && (fstat(file, &status) != 0 || (status.st_mode & S_IWOTH) == 0)) return false;
  const std::string parent = path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
  return stat(parent.c_str(), &status) != 0 || (status.st_mode & S_IWOTH) != 0;
}

int Deny() {
  errno = EACCES;
  return -1;
}

int OpenPath(const std::string& path, int flags, mode_t mode) {
  int file = open(path.c_str(), flags | O_NOFOLLOW, mode);
  if (file >= 0 || errno != ELOOP) return file;
  if (IsPlanted(path)) return Deny();
  return open(path.c_str(), flags, mode);
}

int OpenForAccess(const std::string& path, const Request& request, int more) {
  const int flags = request.flags | more;
  if (!request.writes && !request.appends) return OpenPath(path, flags | O_RDONLY, request.mode);
  // Share flags need a descriptor that can be read, and so do views of a file that is only written.
  const int file = OpenPath(path, flags | O_RDWR, request.mode);
  if (file >= 0 || request.reads || errno != EACCES) return file;
  return OpenPath(path, flags | O_WRONLY, request.mode);
}

// None, with errno set, on failure. *existed tells whether the file was there.
Descriptor OpenOrCreate(std::string* path, const Request& request, bool* existed) {
  const bool mayOpen = request.disposition != CREATE_NEW;
  const bool mayCreate = request.disposition != OPEN_EXISTING && request.disposition != TRUNCATE_EXISTING;
  for (int race = 0; race < maxRaces; ++race) {
    *existed = true;
    if (mayOpen) {
      Descriptor file(
          WithCase(path, [&](const std::string& name) { return OpenForAccess(name, request, 0); }));
      if (file.IsOpen() && !IsOpenPlace(request, *path, file.Get())) return Descriptor(Deny());
      if (file.IsOpen() || errno != ENOENT || !mayCreate) return file;
    } else {
      struct stat status {};
      *path = ResolveCase(*path);
      if (path->empty()) return Descriptor();
      if (lstat(path->c_str(), &status) == 0) {
        errno = EEXIST;
        return Descriptor();
      }
    }
    *existed = false;
    if (!IsOpenPlace(request, *path, -1)) return Descriptor(Deny());
    Descriptor file(OpenForAccess(*path, request, O_CREAT | O_EXCL));
    if (file.IsOpen() && request.isOpenToAll) fchmod(file.Get(), 0666);
    if (file.IsOpen() || errno != EEXIST) return file;
  }
  return Descriptor();
}

// What is left to do once the file is open. 0 or an error.
DWORD Settle(int file, const Request& request, DWORD share, bool existed) {
  struct stat status {};
  if (fstat(file, &status) != 0 || (S_ISDIR(status.st_mode) && !request.mayBeFolder))
    return ERROR_ACCESS_DENIED;
  if (!S_ISREG(status.st_mode)) return ERROR_SUCCESS;
  const bool writes = request.writes || request.appends;
  // Who asks for no access stands in nobody's way.
  if ((request.reads || writes) && !ClaimShareMode(file, request.reads, writes, share)) {
    return ERROR_SHARING_VIOLATION;
  }
  const bool empties = request.disposition == CREATE_ALWAYS || request.disposition == TRUNCATE_EXISTING;
  if (empties && existed && status.st_size != 0) {
    const std::string name = "/proc/self/fd/" + std::to_string(file);
    if ((writes ? ftruncate(file, 0) : truncate(name.c_str(), 0)) != 0) return ErrorFromErrno(errno);
  }
  return ERROR_SUCCESS;
}

}  // namespace

// Another file may have come to stand at the path meanwhile, which is nobody's to delete.
File::~File() {
  struct stat named {};
  struct stat opened {};
  if (mDeleter != 0 && mDeleter == getpid() && stat(mPath.c_str(), &named) == 0 &&
      fstat(mDescriptor.Get(), &opened) == 0 && named.st_dev == opened.st_dev &&
      named.st_ino == opened.st_ino)
    unlink(mPath.c_str());
}

}  // namespace orm::platform

using namespace orm::platform;

HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flagsAndAttributes, HANDLE) noexcept {
  return OrNoMemory<HANDLE>(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
    Request request;
    if (!ReadRequest(access, disposition, flagsAndAttributes, attributes, &request)) {
      SetLastErrorCode(ERROR_INVALID_PARAMETER);
      return INVALID_HANDLE_VALUE;
    }
    std::string path = TranslateOrFail(name);
    if (path.empty()) return INVALID_HANDLE_VALUE;
    const auto object = MakeRef<File>(request.reads, request.writes || request.appends);
    bool existed = false;
    Descriptor file = OpenOrCreate(&path, request, &existed);
    if (!file.IsOpen()) {
      const int error = errno;
      FailWith(error, path);
      if (error == EEXIST) SetLastErrorCode(ERROR_FILE_EXISTS);
      return INVALID_HANDLE_VALUE;
    }
    if (const DWORD error = Settle(file.Get(), request, share, existed); error != ERROR_SUCCESS) {
      SetLastErrorCode(error);
      return INVALID_HANDLE_VALUE;
    }
    Advise(file.Get(), flagsAndAttributes);
    object->Take(std::move(file), std::move(path));
    const HANDLE handle = AllocateHandle(object);
    if ((flagsAndAttributes & FILE_FLAG_DELETE_ON_CLOSE) != 0 || (handle == nullptr && !existed))
      object->DeleteOnClose();
    if (handle == nullptr) return INVALID_HANDLE_VALUE;
    const bool tells = existed && (disposition == OPEN_ALWAYS || disposition == CREATE_ALWAYS);
    SetLastErrorCode(tells ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
  });
}
