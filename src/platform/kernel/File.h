// An open file behind a handle.
#pragma once

#include <sys/stat.h>

#include <string>

#include "kernel/Object.h"

namespace orm::platform {

class FileObject final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kFile;

  // Takes over the descriptor; `deleteOnClose` is the path to remove at the end, or empty.
  FileObject(int descriptor, bool canRead, bool canWrite, std::string deleteOnClose) noexcept
      : KernelObject(kKind),
        mDescriptor(descriptor),
        mCanRead(canRead),
        mCanWrite(canWrite),
        mDeleteOnClose(std::move(deleteOnClose)) {}

  int FileDescriptor() const noexcept override { return mDescriptor; }
  bool CanRead() const noexcept { return mCanRead; }
  bool CanWrite() const noexcept { return mCanWrite; }

 private:
  ~FileObject() override;

  const int mDescriptor;
  const bool mCanRead, mCanWrite;
  const std::string mDeleteOnClose;
};

// The platform's number for a failed operation on this path: a missing folder is another error than a missing
// file.
DWORD PathError(int error, const std::string& unixPath);

// A disk's time and the platform's: 100 ns units since 1601-01-01 UTC.
FILETIME FileTimeFromDisk(const timespec& time) noexcept;
timespec DiskTimeFromFileTime(const FILETIME& time) noexcept;

DWORD AttributesFromMode(mode_t mode) noexcept;

}  // namespace orm::platform
