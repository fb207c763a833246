// File mappings: a section over a file, over memory of its own, or over a named object's file.
#pragma once

#include <sys/types.h>

#include "kernel/NamedFile.h"
#include "kernel/Object.h"

namespace orm::platform {

class Section final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kSection;

  Section() noexcept : KernelObject(kKind) {}
  ~Section() override;

  // What a section is made of.
  struct Request {
    int file = -1;  // the descriptor of the file below, -1 for memory
    uint64_t size = 0;
    bool writable = false;
  };

  // Each returns an error number.
  DWORD MakeUnnamed(const Request& request);
  DWORD MakeNamed(const char* name, const SECURITY_ATTRIBUTES* security, const Request& request,
                  bool& existed);
  DWORD OpenNamed(const char* name);

  void* Map(DWORD access, uint64_t offset, SIZE_T bytes);
  // Whether all of its bytes are still there.
  bool IsWhole() const;

 private:
  class Initialiser;
  DWORD UseFile(const Request& request);
  DWORD ReadNamed();
  DWORD OpenBacking(const struct SectionRecord& record);

  NamedFile mFile;
  int mData = -1;            // the descriptor that is mapped
  uint64_t mDataOffset = 0;  // where the section begins in it
  uint64_t mSize = 0;
  bool mWritable = false;
};

}  // namespace orm::platform
