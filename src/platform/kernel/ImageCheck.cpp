// Looks at a library file before the loader maps it. The loader trusts the program headers: a segment that
// reaches past the end of the file would be mapped all the same and kill the process at its first touch.
// Layout: System V ABI, "Object Files" and "Program Loading".
#include "kernel/ImageCheck.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "kernel/Errno.h"
#include "win32/errors.h"

namespace orm::platform {

namespace {

class ImageFile {
 public:
  explicit ImageFile(const std::string& path)
      : mDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~ImageFile() {
    if (mDescriptor >= 0) close(mDescriptor);
  }
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;

  bool IsOpen() const { return mDescriptor >= 0; }

  bool Measure() {
    struct stat status;
    if (fstat(mDescriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    mSize = static_cast<uint64_t>(status.st_size);
    return true;
  }

  bool Holds(uint64_t offset, uint64_t bytes) const { return offset <= mSize && bytes <= mSize - offset; }

  template <class T>
  bool Read(uint64_t offset, T& into) const {
    return Holds(offset, sizeof(T)) && pread(mDescriptor, &into, sizeof(T), static_cast<off_t>(offset)) ==
                                           static_cast<ssize_t>(sizeof(T));
  }

 private:
  const int mDescriptor;
  uint64_t mSize = 0;
};

bool IsSharedObject(const Elf64_Ehdr& header) {
  return memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
         header.e_ident[EI_DATA] == ELFDATA2LSB && header.e_type == ET_DYN && header.e_machine == EM_X86_64 &&
         header.e_phentsize == sizeof(Elf64_Phdr) && header.e_phnum != 0;
}

bool AreSegmentsWhole(const ImageFile& file, const Elf64_Ehdr& header) {
  bool loads = false;
  bool dynamic = false;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr segment;
    if (!file.Read(header.e_phoff + uint64_t{i} * sizeof(segment), segment)) return false;
    if (segment.p_type != PT_LOAD && segment.p_type != PT_DYNAMIC) continue;
    if (!file.Holds(segment.p_offset, segment.p_filesz) || segment.p_filesz > segment.p_memsz) return false;
    (segment.p_type == PT_LOAD ? loads : dynamic) = true;
  }
  return loads && dynamic;
}

}  // namespace

DWORD CheckImage(const std::string& path) {
  ImageFile file(path);
  if (!file.IsOpen()) {
    return errno == ENOENT || errno == ENOTDIR ? ERROR_MOD_NOT_FOUND : ErrorFromErrno(errno);
  }
  Elf64_Ehdr header;
  if (!file.Measure()) return ERROR_ACCESS_DENIED;
  if (!file.Read(0, header) || !IsSharedObject(header) || !AreSegmentsWhole(file, header))
    return ERROR_BAD_EXE_FORMAT;
  return ERROR_SUCCESS;
}

}  // namespace orm::platform
