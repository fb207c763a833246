// String blocks, the shared empty block, string resources and the string hash; the three string types are
// instantiated here.
#include <ormutil/BaseString.h>

#include <atomic>
#include <new>

#include "Areas.h"
#include "SecureErase.h"

namespace orm {

template class BaseString<SbcsTraits>;
template class BaseString<MbcsTraits>;
template class BaseString<WcsTraits>;

namespace {

constexpr const char* kSource = "src/shared/BaseString";

using string_detail::EmptyText;

// In static storage, there before the first constructor runs and never freed: a string that outlives the
// module's own use of the block needs no care.
constinit EmptyText gsEmptyText{{AtomicCounter::Constant{}, 0, 1}, {0, 0}};
constinit std::atomic<bool> gsEmptyTextReleased{false};

StringBlock* MakePrivateEmptyBlock() {
  void* memory = ::operator new(sizeof(EmptyText), std::nothrow);
  ORM_ASSERT(memory != nullptr, "pResult != 0", string_detail::kSource, 1848);
  if (!memory) throw std::bad_alloc();
  return &(new (memory) EmptyText{{0, 1}, {0, 0}})->block;
}

}  // namespace

void BuildEmptyString() {
  ++gsEmptyText.block.count;
}

void ReleaseEmptyString() {
  gsEmptyTextReleased.store(true, std::memory_order_relaxed);
  --gsEmptyText.block.count;
}

namespace string_detail {

constinit const EmptyText uncountedText{{AtomicCounter::Constant{}, 2, 1}, {0, 0}};

StringBlock* RequestEmptyBlock() {
  if (gsEmptyTextReleased.load(std::memory_order_relaxed)) [[unlikely]]
    return MakePrivateEmptyBlock();
  return &gsEmptyText.block;
}

StringBlock* AllocateBlock(size_t capacity, int line) {
  void* memory =
      capacity <= UINT32_MAX ? ::operator new(sizeof(StringBlock) + capacity, std::nothrow) : nullptr;
  ORM_ASSERT(memory != nullptr, "pNew != 0", kSource, line);
  if (!memory) throw std::bad_alloc();
  return new (memory) StringBlock(1, static_cast<unsigned>(capacity));
}

void FreeBlock(StringBlock* pBlock) noexcept {
  if (pBlock == &gsEmptyText.block) return;
  SecureErase(pBlock + 1, pBlock->capacity);
  ::operator delete(pBlock);
}

}  // namespace string_detail

// A string table resource is 16 entries, each a 16-bit count and that many UTF-16 units.
bool LoadResString(HINSTANCE module, unsigned id, unsigned& length, unsigned short*& text) {
  const HRSRC resource = FindResourceA(module, MAKEINTRESOURCEA(static_cast<WORD>(id / 16 + 1)), RT_STRING);
  if (!resource) {
    const DWORD error = GetLastError();
    TraceWrite(areaString, TRACE_ERROR, false, kSource, 155,
               "unable to load string id %d from HMODULE 0x%08zx, error %d", static_cast<int>(id),
               reinterpret_cast<uintptr_t>(module), static_cast<int>(error));
    ORM_FORCED_ASSERT(kSource, 156);
    return false;
  }
  const HGLOBAL data = LoadResource(module, resource);
  if (!data) {
    ORM_FORCED_ASSERT(kSource, 163);
    return false;
  }
  auto* unit = static_cast<unsigned short*>(LockResource(data));
  size_t left = unit ? SizeofResource(module, resource) / sizeof *unit : 0;
  // An entry that reaches behind the resource is as useless as a resource that cannot be locked.
  for (unsigned skip = id % 16; left > 0 && left > *unit; --skip) {
    if (skip == 0) {
      length = *unit;
      text = unit + 1;
      return true;
    }
    left -= *unit + 1u;
    unit += *unit + 1u;
  }
  ORM_FORCED_ASSERT(kSource, 170);
  return false;
}

DWORD GetSimpleStringHash(const char* text) {
  DWORD sum = 0;
  const char* pos = text;
  for (; *pos != 0; ++pos) sum += static_cast<DWORD>(static_cast<signed char>(*pos));
  return (sum << 16) + static_cast<DWORD>(pos - text);
}

}  // namespace orm
