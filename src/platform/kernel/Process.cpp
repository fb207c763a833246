// The rest of the process's own calls: ids, tick count, debugger, exit, address queries, security
// descriptors.
#include <dlfcn.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kernel/ThreadRecord.h"
#include "win32/kernel.h"

namespace orm::platform {
namespace {

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, CloseFile>;

DWORD ProtectionOf(const char* permissions) {
  if (permissions[0] != 'r') return 1;  // PAGE_NOACCESS
  if (permissions[2] == 'x') return PAGE_EXECUTE_READ;
  return permissions[1] == 'w' ? PAGE_READWRITE : PAGE_READONLY;
}

struct MapLine {
  uintptr_t begin = 0, end = 0;
  char permissions[5] = {};
  unsigned long inode = 0;

  bool Parse(const char* line) {
    // NOLINTNEXTLINE(cert-err34-c): the kernel writes these lines, and no number of them overflows.
    return sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %4s %*x %*s %lu", &begin, &end, permissions, &inode) == 4;
  }
};

constexpr DWORD kNoAccess = 1;

// The loader knows which image an address belongs to; the system's map knows the rest.
bool Describe(uintptr_t address, MEMORY_BASIC_INFORMATION& information) {
  char buffer[4096];  // what one read of this file yields at most; outlives the stream
  const FilePtr maps(fopen("/proc/self/maps", "re"));
  if (!maps) return false;
  setvbuf(maps.get(), buffer, _IOFBF, sizeof buffer);
  void* const page = reinterpret_cast<void*>(address & ~uintptr_t{4095});
  const uintptr_t pageStart = reinterpret_cast<uintptr_t>(page);
  char text[1024];
  MapLine line;
  while (fgets(text, sizeof(text), maps.get()) != nullptr) {
    if (!line.Parse(text) || address >= line.end) continue;
    if (address < line.begin) {
      information = {page, nullptr, 0, line.begin - pageStart, MEM_FREE, kNoAccess, 0};
      return true;
    }
    const DWORD protection = ProtectionOf(line.permissions);
    Dl_info image;
    const bool isImage = dladdr(reinterpret_cast<const void*>(address), &image) != 0;
    void* const base = isImage ? image.dli_fbase : reinterpret_cast<void*>(line.begin);
    const DWORD type = isImage ? MEM_IMAGE : line.inode != 0 ? MEM_MAPPED : MEM_PRIVATE;
    information = {page, base, protection, line.end - pageStart, MEM_COMMIT, protection, type};
    return true;
  }
  return false;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

DWORD GetCurrentProcessId() noexcept {
  return static_cast<DWORD>(getpid());
}

DWORD GetTickCount() noexcept {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<DWORD>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
}

BOOL IsDebuggerPresent() noexcept {
  const FilePtr status(fopen("/proc/self/status", "re"));
  char line[256];
  while (status && fgets(line, sizeof(line), status.get()) != nullptr) {
    if (strncmp(line, "TracerPid:", 10) == 0) return strtol(line + 10, nullptr, 10) != 0;
  }
  return FALSE;
}

void DebugBreak() noexcept {
  raise(SIGTRAP);
}

void ExitProcess(UINT exitCode) noexcept {
  exit(static_cast<int>(exitCode));
}

SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T length) noexcept {
  if (information == nullptr || length < sizeof(*information)) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return 0;
  }
  if (!Describe(reinterpret_cast<uintptr_t>(address), *information)) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return 0;
  }
  return sizeof(*information);
}

BOOL InitializeSecurityDescriptor(void* descriptor, DWORD revision) noexcept {
  if (descriptor == nullptr || revision != SECURITY_DESCRIPTOR_REVISION) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return FALSE;
  }
  *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = {};
  static_cast<SECURITY_DESCRIPTOR*>(descriptor)->Revision = SECURITY_DESCRIPTOR_REVISION;
  return TRUE;
}

BOOL SetSecurityDescriptorDacl(void* descriptor, BOOL present, void* accessList, BOOL) noexcept {
  if (descriptor == nullptr) {
    tlsLastError = ERROR_INVALID_PARAMETER;
    return FALSE;
  }
  auto& target = *static_cast<SECURITY_DESCRIPTOR*>(descriptor);
  target.Control =
      static_cast<WORD>(present ? target.Control | SE_DACL_PRESENT : target.Control & ~SE_DACL_PRESENT);
  target.Dacl = present ? accessList : nullptr;
  return TRUE;
}
