// An open file as a kernel object.
#pragma once

#include <unistd.h>

#include <string>
#include <utility>

#include "kernel/Descriptor.h"
#include "kernel/Object.h"

namespace orm::platform {

class File final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kFile;

  // Made before there is a file, so that want of memory leaves none behind.
  File(bool canRead, bool canWrite) noexcept : KernelObject(kKind), mCanRead(canRead), mCanWrite(canWrite) {}

  void Take(Descriptor descriptor, std::string path) noexcept {
    mDescriptor = std::move(descriptor);
    mPath = std::move(path);
  }
  // A child made by fork, which has a copy only, does not delete it.
  void DeleteOnClose() noexcept { mDeleter = getpid(); }

  int FileDescriptor() const noexcept override { return mDescriptor.Get(); }
  bool CanRead() const noexcept { return mCanRead; }
  bool CanWrite() const noexcept { return mCanWrite; }

 protected:
  ~File() override;

 private:
  Descriptor mDescriptor;
  // The descriptor may allow more than was asked for; see ShareMode.h.
  const bool mCanRead, mCanWrite;
  std::string mPath;
  pid_t mDeleter = 0;  // the process that deletes the file with the object; 0 for a file that stays
};

}  // namespace orm::platform
