// The byte buffer: property values, exported errors and the streams of archives are of this type.
//
//   Binary data("\1\2\3", 3);
//   Binary copy = data;            // shares the block: one interlocked increment
//   copy.Set(0xFF, 1, 1);          // takes a block of its own; `data` still holds 1 2 3
//
// A buffer is one pointer, to its block or null while it has never held bytes:
//
//   | count  4 | allocated  4 | size  4 | bytes ... |
//
// A block with more than one holder is never written. When the last holder lets go, all allocated bytes are
// overwritten with zeros before the block is freed. Shrinking and clearing keep a block that is not shared.
//
// Different buffers may be used by different threads at once, also when they share a block; one buffer is for
// one thread at a time. A buffer that cannot have its memory reports it (a trace line and an assertion) and
// throws std::bad_alloc; nothing else is thrown. Sizes are in bytes.
#pragma once

#include <ormutil/AtomicCounter.h>
#include <ormutil/CopyBytes.h>
#include <ormutil/Export.h>

#include <utility>

namespace orm {

class Binary {
 public:
  Binary() noexcept = default;
  // A copy of the bytes.
  ORMUTIL_API Binary(const void* data, unsigned size);
  Binary(const Binary& other) : mpData(other.mpData) {
    if (mpData) ++mpData->counter;
  }
  Binary(Binary&& other) noexcept : mpData(std::exchange(other.mpData, nullptr)) {}
  ~Binary() { Release(mpData); }

  Binary& operator=(const Binary& other) {
    Binary(other).Swap(*this);
    return *this;
  }
  Binary& operator=(Binary&& other) noexcept {
    Binary(std::move(other)).Swap(*this);
    return *this;
  }
  void Swap(Binary& other) noexcept { std::swap(mpData, other.mpData); }

  unsigned GetSize() const { return mpData ? mpData->mSize : 0; }
  bool IsEmpty() const { return GetSize() == 0; }
  // The bytes in the block, used or not; 0 without a block.
  unsigned GetAllocated() const { return mpData ? mpData->mAllocated : 0; }
  // Valid until the buffer is changed; null without a block.
  const unsigned char* GetData() const { return mpData ? mpData->GetBytes() : nullptr; }

  // Empties the buffer; a block that is not shared keeps its allocation.
  ORMUTIL_API void Clear();
  // Makes room for `size` bytes in all, without changing what the buffer holds.
  void Reserve(unsigned size) { PrepareWriting(size, true, true); }
  // Sets the size; with `keepData` the bytes that both sizes cover stay, new ones are unspecified.
  ORMUTIL_API void SetSize(unsigned size, bool keepData);
  // Sets the size, keeping the bytes that both sizes cover, and yields the bytes for writing: no other buffer
  // sees them. Null when the size is 0 and there is no block. Valid until the buffer is changed or copied.
  ORMUTIL_API unsigned char* GetBuffer(unsigned size);
  // Replaces the content, or adds to its end; `data` may lie in this buffer.
  void Assign(const void* data, unsigned size) {
    if (size == 0 || !AssignInPlace(data, size)) AssignSlowly(data, size);
  }
  ORMUTIL_API void Append(const void* data, unsigned size);
  // Fills `count` bytes from `offset` with `value`, growing the buffer when they lie beyond its end (bytes
  // between the old end and `offset` are unspecified). A count of 0xFFFFFFFF means up to the end.
  ORMUTIL_API void Set(unsigned char value, unsigned offset, unsigned count);

  // Copies at most `maxSize` bytes from `offset` on to `dest`. True when these were all that there are.
  ORMUTIL_API bool CopyTo(void* dest, unsigned maxSize, unsigned offset) const;
  // Compares as unsigned bytes: negative, 0 or positive; a buffer that is the start of the other comes first.
  ORMUTIL_API int RawCompare(const void* pOther, unsigned otherSize) const;
  // The same, at most `maxSize` bytes of each.
  ORMUTIL_API int Compare(const Binary& other, unsigned maxSize) const;

  friend bool operator==(const Binary& a, const Binary& b) {
    return a.mpData == b.mpData || (a.GetSize() == b.GetSize() && a.Compare(b, 0xFFFFFFFF) == 0);
  }

 private:
  friend class WriteArchive;

  struct Block {
    explicit Block(unsigned allocated, unsigned size) : counter(1), mAllocated(allocated), mSize(size) {}
    unsigned char* GetBytes() { return reinterpret_cast<unsigned char*>(this + 1); }

    AtomicCounter counter;
    uint32_t mAllocated;
    uint32_t mSize;
  };
  static_assert(sizeof(Block) == 12);

  bool IsShared() const { return mpData->counter >= 2; }
  static void Release(Block* pBlock) noexcept {
    if (pBlock && --pBlock->counter == 0) Free(pBlock);
  }
  // Wipes and frees.
  [[gnu::cold]] ORMUTIL_API static void Free(Block* pBlock) noexcept;
  static Block* Allocate(unsigned long long size, unsigned used, int line);
  // Whether the address lies in this buffer's block.
  bool Owns(const void* data) const {
    const auto address = reinterpret_cast<uintptr_t>(data);
    const auto begin = reinterpret_cast<uintptr_t>(GetData());
    return mpData && address >= begin && address - begin < mpData->mAllocated;
  }
  ORMUTIL_API void AssignSlowly(const void* data, unsigned size);
  // Assigns bytes when this buffer has a block that takes them without further ado.
  bool AssignInPlace(const void* data, unsigned size) {
    if (!mpData || size > mpData->mAllocated || IsShared() || Owns(data)) return false;
    mpData->mSize = size;
    CopyBytes(mpData->GetBytes(), data, size);
    return true;
  }

  // Makes the block this buffer's own and at least `size` bytes large and yields its bytes: with `keepData`
  // the old ones, with `keepSize` the old size too, else the size becomes `size` if it was smaller.
  ORMUTIL_API unsigned char* PrepareWriting(unsigned size, bool keepData, bool keepSize);
  // For constructors.
  unsigned char* CtorPrepareWriting(unsigned size);

  Block* mpData = nullptr;
};

}  // namespace orm
