// To be preloaded: makes the n-th call of one function of the C library fail, as the system does when it runs
// out of something. Armed by the program (Interposer.h) or, for what happens before main, by the variables
// ORM_FAIL_CALL and ORM_FAIL_AT.
//
// With ORM_FAIL_SHOW the stack of that call goes to the standard error output, for addr2line.
//
// open, open64, openat and openat64 count as "open", pwrite and writev as "write", and the functions of the
// malloc family as "malloc". Calls within the C library are not seen, and no memory is kept from fontconfig
// and FreeType, which use some of it without a look at whether there was any. Both names of a function that
// takes an offset are replaced here, so neither may stand for the other.
#undef _FILE_OFFSET_BITS
#include "Interposer.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>

// The C library's own allocator, which can be called before anything can be looked up.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace {

enum Call : unsigned { NONE, OPEN, MMAP, WRITE, FTRUNCATE, DLOPEN, PTHREAD_CREATE, MALLOC, READDIR };
constexpr const char* NAMES[] = {"none",   "open",           "mmap",   "write",  "ftruncate",
                                 "dlopen", "pthread_create", "malloc", "readdir"};

constinit std::atomic<unsigned> armed{NONE};
constinit std::atomic<unsigned> failAt{0};
constinit std::atomic<unsigned> count{0};
constinit std::atomic<long> blocks{0};

constinit std::atomic<bool> isRead{false};

// At the first call, since the constructors of the libraries that are tested come before this one's.
void ReadEnvironment() {
  if (environ == nullptr || isRead.exchange(true)) return;
  const char* name = getenv("ORM_FAIL_CALL");
  const char* at = getenv("ORM_FAIL_AT");
  if (name != nullptr && at != nullptr) InterposerArm(name, static_cast<unsigned>(atoi(at)));
}

void ShowStack() {
  void* frames[48];
  backtrace_symbols_fd(frames, backtrace(frames, 48), STDERR_FILENO);
}

// Whether the calling thread looks at its stack, for which the C library may need memory.
constinit thread_local bool isLooking [[gnu::tls_model("initial-exec")]] = false;

bool IsCalledByFontLibrary() {
  isLooking = true;
  void* frames[48];
  const int number = backtrace(frames, 48);
  bool isFound = false;
  for (int i = 0; i < number && !isFound; ++i) {
    Dl_info info;
    isFound = dladdr(frames[i], &info) != 0 && (strstr(info.dli_fname, "/libfontconfig.") != nullptr ||
                                                strstr(info.dli_fname, "/libfreetype.") != nullptr);
  }
  isLooking = false;
  return isFound;
}

// Whether this call is the one that fails.
bool Fails(Call call) {
  if (!isRead.load(std::memory_order_relaxed)) ReadEnvironment();
  if (armed.load(std::memory_order_relaxed) != call || isLooking) return false;
  if (call == MALLOC && IsCalledByFontLibrary()) return false;
  if (++count != failAt) return false;
  if (getenv("ORM_FAIL_SHOW") != nullptr) ShowStack();
  return true;
}

template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

template <class Result>
Result Fail(int error, Result result) {
  errno = error;
  return result;
}

void* Counted(void* memory) {
  if (memory != nullptr) ++blocks;
  return memory;
}

int OpenFlagsMode(int flags, va_list rest) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, int) : 0;
}

}  // namespace

#define EXPORTED extern "C" [[gnu::visibility("default")]]

EXPORTED void InterposerArm(const char* name, unsigned at) {
  armed = NONE;
  IsCalledByFontLibrary();  // the memory that looking takes the first time is taken now
  failAt = at;
  count = 0;
  for (unsigned i = 1; i < sizeof NAMES / sizeof *NAMES; ++i) {
    if (strcmp(name, NAMES[i]) == 0) armed = i;
  }
}
EXPORTED unsigned InterposerCount() {
  return count;
}
EXPORTED long InterposerBlocks() {
  return blocks;
}

EXPORTED int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = OpenFlagsMode(flags, rest);
  va_end(rest);
  if (Fails(OPEN)) return Fail(EMFILE, -1);
  return Next<int(const char*, int, ...)>("open")(path, flags, mode);
}
EXPORTED int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = OpenFlagsMode(flags, rest);
  va_end(rest);
  if (Fails(OPEN)) return Fail(EMFILE, -1);
  return Next<int(const char*, int, ...)>("open64")(path, flags, mode);
}
EXPORTED int openat(int folder, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = OpenFlagsMode(flags, rest);
  va_end(rest);
  if (Fails(OPEN)) return Fail(EMFILE, -1);
  return Next<int(int, const char*, int, ...)>("openat")(folder, path, flags, mode);
}
EXPORTED int openat64(int folder, const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const int mode = OpenFlagsMode(flags, rest);
  va_end(rest);
  if (Fails(OPEN)) return Fail(EMFILE, -1);
  return Next<int(int, const char*, int, ...)>("openat64")(folder, path, flags, mode);
}

EXPORTED void* mmap(void* address, size_t size, int protection, int flags, int file, off_t offset) noexcept {
  if (Fails(MMAP)) return Fail(ENOMEM, MAP_FAILED);
  return Next<decltype(mmap)>("mmap")(address, size, protection, flags, file, offset);
}
EXPORTED void* mmap64(void* address, size_t size, int protection, int flags, int file,
                      off64_t offset) noexcept {
  if (Fails(MMAP)) return Fail(ENOMEM, MAP_FAILED);
  return Next<decltype(mmap64)>("mmap64")(address, size, protection, flags, file, offset);
}

EXPORTED ssize_t write(int file, const void* bytes, size_t size) {
  if (Fails(WRITE)) return Fail(ENOSPC, -1);
  return Next<decltype(write)>("write")(file, bytes, size);
}
EXPORTED ssize_t pwrite(int file, const void* bytes, size_t size, off_t offset) {
  if (Fails(WRITE)) return Fail(ENOSPC, -1);
  return Next<decltype(pwrite)>("pwrite")(file, bytes, size, offset);
}
EXPORTED ssize_t pwrite64(int file, const void* bytes, size_t size, off64_t offset) {
  if (Fails(WRITE)) return Fail(ENOSPC, -1);
  return Next<decltype(pwrite64)>("pwrite64")(file, bytes, size, offset);
}
EXPORTED ssize_t writev(int file, const iovec* parts, int number) {
  if (Fails(WRITE)) return Fail(ENOSPC, -1);
  return Next<decltype(writev)>("writev")(file, parts, number);
}

EXPORTED int ftruncate(int file, off_t size) noexcept {
  if (Fails(FTRUNCATE)) return Fail(EFBIG, -1);
  return Next<decltype(ftruncate)>("ftruncate")(file, size);
}
EXPORTED int ftruncate64(int file, off64_t size) noexcept {
  if (Fails(FTRUNCATE)) return Fail(EFBIG, -1);
  return Next<decltype(ftruncate64)>("ftruncate64")(file, size);
}
// The space behind a mapping is claimed with this one; it returns its error.
EXPORTED int posix_fallocate(int file, off_t from, off_t size) {
  if (Fails(FTRUNCATE)) return ENOSPC;
  return Next<decltype(posix_fallocate)>("posix_fallocate")(file, from, size);
}
EXPORTED int posix_fallocate64(int file, off64_t from, off64_t size) {
  if (Fails(FTRUNCATE)) return ENOSPC;
  return Next<decltype(posix_fallocate64)>("posix_fallocate64")(file, from, size);
}

EXPORTED dirent* readdir(DIR* folder) {
  if (Fails(READDIR)) return Fail<dirent*>(EIO, nullptr);
  return Next<decltype(readdir)>("readdir")(folder);
}
EXPORTED dirent64* readdir64(DIR* folder) {
  if (Fails(READDIR)) return Fail<dirent64*>(EIO, nullptr);
  return Next<decltype(readdir64)>("readdir64")(folder);
}

EXPORTED void* dlopen(const char* path, int flags) noexcept {
  // A path that does not exist leaves a text for dlerror behind.
  if (Fails(DLOPEN)) path = "/nonexistent/library.so";
  return Next<decltype(dlopen)>("dlopen")(path, flags);
}

EXPORTED int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                            void* argument) noexcept {
  if (Fails(PTHREAD_CREATE)) return EAGAIN;
  return Next<decltype(pthread_create)>("pthread_create")(thread, attributes, body, argument);
}

EXPORTED void* malloc(size_t size) noexcept {
  if (Fails(MALLOC)) return Fail<void*>(ENOMEM, nullptr);
  return Counted(__libc_malloc(size));
}
EXPORTED void* calloc(size_t number, size_t size) noexcept {
  if (Fails(MALLOC)) return Fail<void*>(ENOMEM, nullptr);
  return Counted(__libc_calloc(number, size));
}
EXPORTED void* realloc(void* memory, size_t size) noexcept {
  if (Fails(MALLOC)) return Fail<void*>(ENOMEM, nullptr);
  void* const moved = __libc_realloc(memory, size);
  if (memory == nullptr) return Counted(moved);
  if (moved == nullptr && size == 0) --blocks;
  return moved;
}
EXPORTED void* memalign(size_t alignment, size_t size) noexcept {
  if (Fails(MALLOC)) return Fail<void*>(ENOMEM, nullptr);
  return Counted(__libc_memalign(alignment, size));
}
EXPORTED void* aligned_alloc(size_t alignment, size_t size) noexcept {
  return memalign(alignment, size);
}
EXPORTED int posix_memalign(void** memory, size_t alignment, size_t size) noexcept {
  *memory = memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}
EXPORTED void free(void* memory) noexcept {
  if (memory != nullptr) --blocks;
  __libc_free(memory);
}
