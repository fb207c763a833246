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

  File(Descriptor descriptor, bool canRead, bool canWrite, std::string deleteOnClose) noexcept
      : KernelObject(kKind),
        mDescriptor(std::move(descriptor)),
        mCanRead(canRead),
        mCanWrite(canWrite),
        mDeleteOnClose(std::move(deleteOnClose)),
        mOpener(mDeleteOnClose.empty() ? 0 : getpid()) {}

  int FileDescriptor() const noexcept override { return mDescriptor.Get(); }
  bool CanRead() const noexcept { return mCanRead; }
  bool CanWrite() const noexcept { return mCanWrite; }

 protected:
  ~File() override;

 private:
  const Descriptor mDescriptor;
  // The descriptor may allow more than was asked for; see ShareMode.h.
  const bool mCanRead, mCanWrite;
  const std::string mDeleteOnClose;  // the path, empty for a file that stays
  const pid_t mOpener;               // whose file it is to delete: a child made by fork has a copy only
};

}  // namespace orm::platform
