// File mappings. A named section over memory keeps its bytes in the named object's file, behind a header
// page; a named section over a file keeps there which file it is.
#include "kernel/Section.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <mutex>

#include "kernel/Errno.h"
#include "kernel/Fork.h"
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"
#include "win32/mappingx.h"

namespace orm::platform {

// What a named section's file holds after the object header.
struct SectionRecord {
  uint64_t size;
  uint64_t device;  // of the file below, with the inode; both 0 for memory
  uint64_t inode;
  uint32_t writable;
  uint32_t pathLength;
  char path[PATH_MAX];
};

namespace {

constexpr off_t kRecordOffset = 64;
constexpr uint64_t kDataOffset = 8192;
constexpr uint64_t kGranularity = 0x10000;
constexpr uint64_t kLargest = uint64_t{1} << 46;
static_assert(kRecordOffset + sizeof(SectionRecord) <= kDataOffset);

// Space is claimed now: a page that cannot be stored later would end the process. In steps, since a signal
// makes the system give back what it has claimed in one.
DWORD Grow(int descriptor, uint64_t size) {
  constexpr uint64_t kStep = uint64_t{1} << 20;
  for (uint64_t offset = 0; offset < size;) {
    const uint64_t step = std::min(size - offset, kStep);
    const int code = posix_fallocate(descriptor, static_cast<off_t>(offset), static_cast<off_t>(step));
    if (code != 0 && code != EINTR) return ErrorFromErrno(code);
    if (code == 0) offset += step;
  }
  return ERROR_SUCCESS;
}

// Where the file lies; empty when that is not known.
std::string PathOf(int descriptor) {
  char path[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), path, sizeof(path) - 1);
  return length < 0 ? std::string() : std::string(path, static_cast<size_t>(length));
}

// Whether nobody but this user can have written the record of a named section.
bool IsOwnRecord(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && status.st_uid == geteuid() &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Whether everybody may write the file, and come to where it lies.
bool IsEverybodys(int descriptor, const struct stat& status) {
  const std::string path = PathOf(descriptor);
  struct stat folder;
  return (status.st_mode & S_IWOTH) != 0 &&
         stat(path.substr(0, std::max<size_t>(path.rfind('/') + 1, 1)).c_str(), &folder) == 0 &&
         (folder.st_mode & S_IWOTH) != 0;
}

// Views by address, so that one can be unmapped without its section's handle.
struct View {
  size_t bytes;
  Ref<Section> section;
};

struct ViewTable {
  std::mutex lock;
  std::map<const void*, View> views;
};

ViewTable& Views() {
  static ViewTable& table = *new ViewTable;
  return table;
}

}  // namespace

class Section::Initialiser final : public NamedInitialiser {
 public:
  explicit Initialiser(const Request& request) : mRequest(request) {}

  DWORD Initialise(int descriptor) override {
    SectionRecord record{};
    record.size = mRequest.size;
    record.writable = mRequest.writable;
    if (mRequest.file >= 0) {
      if (const DWORD error = Identify(record); error != ERROR_SUCCESS) return error;
    } else if (const DWORD error = Grow(descriptor, kDataOffset + mRequest.size); error != ERROR_SUCCESS) {
      return error;
    }
    const ssize_t written = pwrite(descriptor, &record, sizeof(record), kRecordOffset);
    return written == static_cast<ssize_t>(sizeof(record)) ? ERROR_SUCCESS : ErrorFromErrno(errno);
  }

 private:
  DWORD Identify(SectionRecord& record) const {
    struct stat status;
    if (fstat(mRequest.file, &status) != 0) return ErrorFromErrno(errno);
    record.device = status.st_dev;
    record.inode = status.st_ino;
    const std::string path = PathOf(mRequest.file);
    if (path.empty()) return ErrorFromErrno(errno);
    record.pathLength = static_cast<uint32_t>(path.copy(record.path, sizeof(record.path) - 1));
    return ERROR_SUCCESS;
  }

  const Request& mRequest;
};

std::mutex& ViewLock() noexcept {
  return Views().lock;
}

Section::~Section() {
  if (mData >= 0) close(mData);
}

// Maps a file as it is: the section's descriptor is its own, so the file's handle may go.
DWORD Section::UseFile(const Request& request) {
  mData = fcntl(request.file, F_DUPFD_CLOEXEC, 3);
  if (mData < 0) return ErrorFromErrno(errno);
  mSize = request.size;
  mWritable = request.writable;
  return ERROR_SUCCESS;
}

DWORD Section::MakeUnnamed(const Request& request) {
  if (request.file >= 0) return UseFile(request);
  mData = memfd_create("section", MFD_CLOEXEC);
  if (mData < 0) return ErrorFromErrno(errno);
  mSize = request.size;
  mWritable = request.writable;
  return Grow(mData, mSize);
}

DWORD Section::MakeNamed(const char* name, const SECURITY_ATTRIBUTES* security, const Request& request,
                         bool& existed) {
  Initialiser initialiser(request);
  const NamedFile::Result result =
      mFile.Create(FindNamedPath(name), NamedKind::kSection, security, initialiser);
  existed = result.existed;
  if (result.error != ERROR_SUCCESS) return result.error;
  return existed || request.file < 0 ? ReadNamed() : UseFile(request);
}

DWORD Section::OpenNamed(const char* name) {
  const DWORD error = mFile.Open(FindNamedPath(name), NamedKind::kSection);
  return error == ERROR_SUCCESS ? ReadNamed() : error;
}

DWORD Section::OpenBacking(const SectionRecord& record) {
  const std::string path(record.path, record.pathLength);
  mData = open(path.c_str(),
               (record.writable != 0 ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY);
  struct stat status;
  if (mData < 0 || fstat(mData, &status) != 0) return ErrorFromErrno(errno);
  if (!S_ISREG(status.st_mode) || status.st_dev != record.device || status.st_ino != record.inode ||
      static_cast<uint64_t>(status.st_size) < record.size) {
    return ERROR_FILE_NOT_FOUND;
  }
  // Whoever can write the record must not lead this process to a file that is not open to him as well.
  if (!IsOwnRecord(mFile.Descriptor()) && !IsEverybodys(mData, status)) return ERROR_ACCESS_DENIED;
  return ERROR_SUCCESS;
}

DWORD Section::ReadNamed() {
  SectionRecord record;
  if (pread(mFile.Descriptor(), &record, sizeof(record), kRecordOffset) !=
          static_cast<ssize_t>(sizeof(record)) ||
      record.pathLength >= sizeof(record.path) || record.size == 0 || record.size > kLargest) {
    return ERROR_INVALID_DATA;
  }
  mSize = record.size;
  mWritable = record.writable != 0;
  if (record.pathLength != 0) return OpenBacking(record);
  struct stat status;
  if (fstat(mFile.Descriptor(), &status) != 0 ||
      static_cast<uint64_t>(status.st_size) < kDataOffset + mSize) {
    return ERROR_INVALID_DATA;
  }
  mDataOffset = kDataOffset;
  // Not a copy of the locked descriptor, which must go with the named file alone.
  const std::string link = "/proc/self/fd/" + std::to_string(mFile.Descriptor());
  mData = open(link.c_str(), O_RDWR | O_CLOEXEC);
  return mData >= 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
}

bool Section::IsWhole() const {
  struct stat status;
  return fstat(mData, &status) == 0 && static_cast<uint64_t>(status.st_size) >= mDataOffset + mSize;
}

void* Section::Map(DWORD access, uint64_t offset, SIZE_T bytes) {
  const bool copies = access == FILE_MAP_COPY;
  const bool writes = !copies && (access & FILE_MAP_WRITE) != 0;
  if (writes && !mWritable) {
    tlsLastError = ERROR_ACCESS_DENIED;
    return nullptr;
  }
  if (offset % kGranularity != 0 || offset >= mSize || bytes > mSize - offset) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return nullptr;
  }
  if (bytes == 0) bytes = mSize - offset;
  void* const view = mmap(nullptr, bytes, PROT_READ | (writes || copies ? PROT_WRITE : 0),
                          copies ? MAP_PRIVATE : MAP_SHARED, mData, static_cast<off_t>(mDataOffset + offset));
  if (view == MAP_FAILED) {
    tlsLastError = ErrorFromErrno(errno);
    return nullptr;
  }
  ViewTable& table = Views();
  const std::lock_guard lock(table.lock);
  try {
    table.views.insert_or_assign(view, View{bytes, Ref<Section>(this)});
  } catch (const std::bad_alloc&) {
    munmap(view, bytes);
    throw;
  }
  return view;
}

namespace {

// The size and backing that the caller asks for, checked; ERROR_SUCCESS or what is wrong.
DWORD Prepare(int descriptor, DWORD protection, uint64_t size, Section::Request& request) {
  if (protection != PAGE_READONLY && protection != PAGE_READWRITE) return ERROR_INVALID_PARAMETER;
  request = {descriptor, size, protection == PAGE_READWRITE};
  if (size > kLargest) return ERROR_NOT_ENOUGH_MEMORY;
  if (descriptor < 0) return size != 0 ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
  struct stat status;
  if (fstat(descriptor, &status) != 0) return ErrorFromErrno(errno);
  const auto present = static_cast<uint64_t>(status.st_size);
  if (size == 0) request.size = present;
  if (request.size == 0) return ERROR_FILE_INVALID;
  if (request.size <= present) return ERROR_SUCCESS;
  return request.writable ? Grow(descriptor, request.size) : ERROR_NOT_ENOUGH_MEMORY;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE CreateFileMappingA(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection, DWORD sizeHigh,
                          DWORD sizeLow, const char* name) noexcept {
  return OrNoMemory<HANDLE>(nullptr, [&]() -> HANDLE {
    HandlePin pin;
    int descriptor = -1;
    if (file != INVALID_HANDLE_VALUE) {
      pin = HandlePin(file);
      if (!pin) return nullptr;
      descriptor = pin.get()->FileDescriptor();
      if (descriptor < 0) {
        tlsLastError = ERROR_INVALID_HANDLE;
        return nullptr;
      }
    }
    Section::Request request;
    DWORD error = Prepare(descriptor, protection, uint64_t{sizeHigh} << 32 | sizeLow, request);
    const auto section = MakeRef<Section>();
    bool existed = false;
    if (error == ERROR_SUCCESS) {
      const bool named = name != nullptr && *name != '\0';
      error = named ? section->MakeNamed(name, security, request, existed) : section->MakeUnnamed(request);
    }
    if (error != ERROR_SUCCESS) {
      tlsLastError = error;
      return nullptr;
    }
    const HANDLE handle = AllocateHandle(section);
    if (handle != nullptr) tlsLastError = existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS;
    return handle;
  });
}

HANDLE OpenFileMappingA(DWORD, BOOL, const char* name) noexcept {
  return OrNoMemory<HANDLE>(nullptr, [&]() -> HANDLE {
    if (name == nullptr || *name == '\0') {
      tlsLastError = ERROR_INVALID_PARAMETER;
      return nullptr;
    }
    const auto section = MakeRef<Section>();
    if (const DWORD error = section->OpenNamed(name); error != ERROR_SUCCESS) {
      tlsLastError = error;
      return nullptr;
    }
    return AllocateHandle(section);
  });
}

void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T bytes) noexcept {
  return OrNoMemory<void*>(nullptr, [&]() -> void* {
    const HandlePin pin(mapping);
    auto* const section = PinnedAs<Section>(pin);
    return section != nullptr ? section->Map(access, uint64_t{offsetHigh} << 32 | offsetLow, bytes) : nullptr;
  });
}

BOOL OrmIsMappingWhole(HANDLE mapping) noexcept {
  const HandlePin pin(mapping);
  const auto* const section = PinnedAs<Section>(pin);
  return section != nullptr && section->IsWhole() ? TRUE : FALSE;
}

BOOL UnmapViewOfFile(const void* view) noexcept {
  ViewTable& table = Views();
  View found{0, nullptr};
  {
    const std::lock_guard lock(table.lock);
    const auto entry = table.views.find(view);
    if (entry == table.views.end()) {
      tlsLastError = ERROR_INVALID_ADDRESS;
      return FALSE;
    }
    found = std::move(entry->second);
    table.views.erase(entry);
    munmap(const_cast<void*>(view), found.bytes);
  }
  return TRUE;
}
