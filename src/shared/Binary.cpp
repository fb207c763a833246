// The byte buffer: its blocks and their growth, and the operations over whole buffers.
#include <ormutil/Binary.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "Areas.h"
#include "SecureErase.h"

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Binary";
constexpr int kLineWriting = 58;
constexpr int kLineConstruction = 94;
constexpr unsigned kAllBytes = 0xFFFFFFFF;

// A power of two from 8 to 256, then a multiple of 256.
constexpr unsigned long long RoundAllocation(unsigned long long size) {
  for (unsigned long long step = 8; step < 256; step *= 2) {
    if (size <= step) return step;
  }
  return (size + 255) / 256 * 256;
}

// memcmp that may be given null for no bytes.
int CompareBytes(const void* a, const void* b, unsigned size) {
  return size == 0 ? 0 : std::memcmp(a, b, size);
}

}  // namespace

Binary::Binary(const void* data, unsigned size) {
  if (size != 0) std::memcpy(CtorPrepareWriting(size), data, size);
}

// `line` is that of the report; the assertion after it stands one line below.
Binary::Block* Binary::Allocate(unsigned long long size, unsigned used, int line) {
  const unsigned long long rounded = RoundAllocation(size);
  void* memory = rounded <= UINT32_MAX ? ::operator new(sizeof(Block) + rounded, std::nothrow) : nullptr;
  if (!memory) {
    TraceWrite(areaBinary, TRACE_ERROR, false, kSource, line,
               "an attempt to allocate %d bytes for binary (requested %d bytes) failed, about to crash now",
               static_cast<int>(rounded), static_cast<int>(size));
    ORM_FORCED_ASSERT(kSource, line + 1);
    throw std::bad_alloc();
  }
  return new (memory) Block(static_cast<unsigned>(rounded), used);
}

void Binary::Free(Block* pBlock) noexcept {
  SecureErase(pBlock->GetBytes(), pBlock->mAllocated);
  ::operator delete(pBlock);
}

unsigned char* Binary::PrepareWriting(unsigned size, bool keepData, bool keepSize) {
  if (!mpData && size == 0) return nullptr;
  const unsigned present = GetSize();
  if (mpData && size <= mpData->mAllocated && !IsShared()) {
    if (!keepSize) mpData->mSize = std::max(present, size);
  } else {
    // A size that is kept has to fit, whatever less was asked for.
    const unsigned needed = keepSize ? std::max(size, present) : size;
    Block* block = Allocate(needed, keepSize ? present : size, kLineWriting);
    if (keepData && mpData) std::memcpy(block->GetBytes(), mpData->GetBytes(), std::min(present, needed));
    Release(std::exchange(mpData, block));
  }
  ORM_ASSERT(mpData->mSize <= mpData->mAllocated, "mpData->mSize <= mpData->mAllocated", kSource, 79);
  return mpData->GetBytes();
}

unsigned char* Binary::CtorPrepareWriting(unsigned size) {
  mpData = Allocate(size, size, kLineConstruction);
  ORM_ASSERT(mpData->mSize <= mpData->mAllocated, "mpData->mSize <= mpData->mAllocated", kSource, 104);
  return mpData->GetBytes();
}

void Binary::Clear() {
  ORM_ASSERT(!mpData || mpData->mAllocated >= mpData->mSize, "!mpData || mpData->mAllocated >= mpData->mSize",
             kSource, 110);
  if (!mpData) return;
  if (IsShared()) {
    Release(std::exchange(mpData, nullptr));
  } else {
    mpData->mSize = 0;
  }
}

void Binary::SetSize(unsigned size, bool keepData) {
  if (!mpData && size == 0) return;
  if (mpData && !IsShared() && size <= mpData->mSize) {
    mpData->mSize = size;
    return;
  }
  PrepareWriting(size, keepData, false);
  mpData->mSize = size;
}

unsigned char* Binary::GetBuffer(unsigned size) {
  SetSize(size, true);
  return mpData ? mpData->GetBytes() : nullptr;
}

// A source inside this buffer's block is kept alive, and the block made unwritable, by one more holder.
void Binary::AssignSlowly(const void* data, unsigned size) {
  if (size == 0) return Clear();
  const Binary keep = Owns(data) ? *this : Binary();
  SetSize(size, false);
  std::memcpy(mpData->GetBytes(), data, size);
}

void Binary::Append(const void* data, unsigned size) {
  if (size == 0) return;
  const Binary keep = Owns(data) ? *this : Binary();
  const unsigned present = GetSize();
  if (size > UINT32_MAX - present) Allocate(0ull + present + size, 0, kLineWriting);
  std::memcpy(PrepareWriting(present + size, true, false) + present, data, size);
}

void Binary::Set(unsigned char value, unsigned offset, unsigned count) {
  const unsigned present = GetSize();
  if (count == kAllBytes) {
    ORM_ASSERT(offset <= present, "offset <= GetSize()", kSource, 176);
    if (offset > present) return;
    count = present - offset;
  }
  if (count > UINT32_MAX - offset) Allocate(0ull + offset + count, 0, kLineWriting);
  unsigned char* bytes = PrepareWriting(std::max(present, offset + count), true, false);
  if (count != 0) std::memset(bytes + offset, value, count);
}

bool Binary::CopyTo(void* dest, unsigned maxSize, unsigned offset) const {
  if (maxSize != 0) {
    ORM_ASSERT(maxSize == 0 || !mpData || mpData->mSize == 0 || dest != nullptr,
               "maxSize == 0 || !mpData || mpData->mSize == 0 || dest != 0", kSource, 125);
  }
  const unsigned size = GetSize();
  if (size <= offset) return true;
  const unsigned copied = std::min(maxSize, size - offset);
  if (copied != 0 && dest) std::memcpy(dest, mpData->GetBytes() + offset, copied);
  return size - offset <= maxSize;
}

int Binary::RawCompare(const void* pOther, unsigned otherSize) const {
  ORM_ASSERT(otherSize == 0 || pOther != nullptr, "otherSize == 0 || pOther != 0", kSource, 148);
  if (!mpData) return otherSize > 0 ? -1 : 0;
  const unsigned common = pOther ? std::min(mpData->mSize, otherSize) : 0;
  const int difference = CompareBytes(mpData->GetBytes(), pOther, common);
  if (difference != 0) return difference < 0 ? -1 : 1;
  return static_cast<int>(mpData->mSize - otherSize);
}

int Binary::Compare(const Binary& other, unsigned maxSize) const {
  const unsigned a = std::min(GetSize(), maxSize);
  const unsigned b = std::min(other.GetSize(), maxSize);
  const int difference = CompareBytes(GetData(), other.GetData(), std::min(a, b));
  return difference != 0 ? difference : static_cast<int>(a - b);
}

}  // namespace orm
