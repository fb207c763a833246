// The process's table of drawing objects, the counts that tests look at, and what works on objects of any
// kind.
#include "gdi/Object.h"

#include <mutex>
#include <shared_mutex>
#include <vector>

#include "gdi/Bitmap.h"
#include "gdi/Font.h"
#include "gdi/Fork.h"
#include "gdi/MadeOnce.h"
#include "gdi/Palette.h"
#include "win32/kernel.h"

namespace orm::platform::gdi {
namespace {

constexpr std::uint32_t slotLimit = 0x10000;
constexpr std::uint32_t generationMask = 0x7FF;

struct Slot {
  std::shared_ptr<Object> object;
  std::uint32_t generation = 0;
};

class Table {
 public:
  HGDIOBJ Add(std::shared_ptr<Object> object) {
    std::unique_lock lock(mLock);
    std::uint32_t index;
    if (!mFree.empty()) {
      index = mFree.back();
      mFree.pop_back();
    } else if (mSlots.size() < slotLimit) {
      // Room for all slots, so that an object's end needs no memory.
      if (mFree.capacity() <= mSlots.size()) mFree.reserve(2 * mSlots.size() + 16);
      index = static_cast<std::uint32_t>(mSlots.size());
      mSlots.emplace_back();
    } else {
      return nullptr;
    }
    Slot& slot = mSlots[index];
    slot.object = std::move(object);
    return HandleOf(index);
  }

  std::shared_ptr<Object> Find(HGDIOBJ handle) {
    std::shared_lock lock(mLock);
    const std::uint32_t index = IndexOf(handle);
    return index < slotLimit ? mSlots[index].object : nullptr;
  }

  // The object is handed out so that it is destroyed outside the lock.
  std::shared_ptr<Object> Remove(HGDIOBJ handle) {
    std::unique_lock lock(mLock);
    const std::uint32_t index = IndexOf(handle);
    if (index >= slotLimit) return nullptr;
    Slot& slot = mSlots[index];
    slot.generation = (slot.generation + 1) & generationMask;
    mFree.push_back(index);
    return std::move(slot.object);
  }

  DWORD CountOwned() {
    std::shared_lock lock(mLock);
    DWORD count = 0;
    for (const Slot& slot : mSlots) count += slot.object && !slot.object->stock;
    return count;
  }

  // No look-up waits for an object, nor does who has one wait for another look-up: the order is no matter.
  void LockAll() {
    mLock.lock();
    VisitLocks([](std::mutex& lock) { lock.lock(); });
  }
  void UnlockAll(bool isChild) {
    VisitLocks([](std::mutex& lock) { lock.unlock(); });
    if (isChild)
      std::construct_at(&mLock);  // it knows its writer by the thread's number, which is another one here
    else
      mLock.unlock();
  }

 private:
  template <class Operation>
  void VisitLocks(Operation operation) {
    for (const Slot& slot : mSlots)
      if (std::mutex* const lock = slot.object ? slot.object->Lock() : nullptr) operation(*lock);
  }

  HGDIOBJ HandleOf(std::uint32_t index) const {
    const Slot& slot = mSlots[index];
    const auto kind = static_cast<std::uint32_t>(slot.object->kind);
    return reinterpret_cast<HGDIOBJ>(static_cast<std::uintptr_t>(index | kind << 16 | slot.generation << 20));
  }

  // slotLimit when the handle is none of the living ones.
  std::uint32_t IndexOf(HGDIOBJ handle) const {
    const auto index = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle) & 0xFFFF);
    if (index >= mSlots.size() || !mSlots[index].object || HandleOf(index) != handle) return slotLimit;
    return index;
  }

  std::shared_mutex mLock;
  std::vector<Slot> mSlots;
  std::vector<std::uint32_t> mFree;
};

constinit MadeOnce<Table> gsTable;

Table& TheTable() {
  return gsTable.Get();
}

std::atomic<DWORD> deadDeletes{0};

template <class T>
int CopyDescription(const T& description, int size, void* buffer) {
  if (!buffer) return sizeof(T);
  if (size < static_cast<int>(sizeof(T))) {
    Fail(ERROR_INVALID_PARAMETER);
    return 0;
  }
  *static_cast<T*>(buffer) = description;
  return sizeof(T);
}

int CopyBitmapDescription(Bitmap& bitmap, int size, void* buffer) {
  if (bitmap.IsSection() && size >= static_cast<int>(sizeof(DIBSECTION)))
    return CopyDescription(bitmap.DescribeSection(), size, buffer);
  return CopyDescription(bitmap.Describe(), size, buffer);
}

}  // namespace

HGDIOBJ AddObject(std::shared_ptr<Object> object) {
  HGDIOBJ handle = TheTable().Add(std::move(object));
  if (!handle) Fail(ERROR_NOT_ENOUGH_MEMORY);
  return handle;
}

std::shared_ptr<Object> FindObject(HGDIOBJ handle) {
  return TheTable().Find(handle);
}

bool RemoveObject(HGDIOBJ handle) {
  if (TheTable().Remove(handle)) return true;
  ++deadDeletes;
  return false;
}

void Fail(DWORD error) {
  SetLastError(error);
}

void LockObjects() {
  gsTable.Lock([](Table& table) { table.LockAll(); });
}
void UnlockObjects(bool isChild) {
  gsTable.Unlock([isChild](Table& table) { table.UnlockAll(isChild); });
}

}  // namespace orm::platform::gdi

using namespace orm::platform::gdi;

extern "C" {

BOOL WINAPI DeleteObject(HGDIOBJ handle) noexcept {
  const auto object = FindObject(handle);
  if (object && object->stock) return TRUE;
  if (object && object->kind == Kind::Context) return DeleteDC(static_cast<HDC>(handle));
  if (object && object->selections > 0) {
    Fail(ERROR_BUSY);
    return FALSE;
  }
  if (RemoveObject(handle)) return TRUE;
  Fail(ERROR_INVALID_HANDLE);
  return FALSE;
}

int WINAPI GetObjectA(HGDIOBJ handle, int size, void* buffer) noexcept {
  const auto object = FindObject(handle);
  switch (object ? object->kind : Kind::Context) {
    case Kind::Bitmap:
      return CopyBitmapDescription(static_cast<Bitmap&>(*object), size, buffer);
    case Kind::Palette:
      return CopyDescription(static_cast<const Palette&>(*object).Count(), size, buffer);
    case Kind::Font:
      return CopyDescription(static_cast<const Font&>(*object).Description(), size, buffer);
    case Kind::Brush:
      return CopyDescription(static_cast<const Brush&>(*object).color, size, buffer);
    case Kind::Context:
      break;
  }
  Fail(ERROR_INVALID_HANDLE);
  return 0;
}

HBRUSH WINAPI CreateSolidBrush(COLORREF color) noexcept {
  return OrNoMemory<HBRUSH>(nullptr, [&] { return static_cast<HBRUSH>(Make<Brush>(color, false)); });
}

DWORD WINAPI GetGuiResources(HANDLE, DWORD kind) noexcept {
  if (kind == GR_GDIOBJECTS) return TheTable().CountOwned();
  Fail(ERROR_INVALID_PARAMETER);
  return 0;
}

DWORD WINAPI OrmGetDeadDeletes(void) noexcept {
  return deadDeletes;
}

}  // extern "C"
