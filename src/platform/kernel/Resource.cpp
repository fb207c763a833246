// Finding and reading the resources of a module. The block is data that a linker put there, and it is read
// with the same care as any other bytes: nothing outside the exported object is looked at.
#include "win32/resources.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kernel/CodePage.h"
#include "kernel/NoMemory.h"
#include "kernel/ResourceDirectory.h"
#include "win32/kernel.h"
#include "win32/modules.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

using Byte = unsigned char;

struct Entry {
  std::uint32_t type, name, language, offset, size;
};

// The resource block of one module.
class Directory {
 public:
  // Empty when the module has none, or one that cannot be right.
  static std::optional<Directory> Of(HMODULE module) {
    if (module == nullptr) module = GetModuleHandleA(nullptr);
    const DWORD lastError = GetLastError();
    const FARPROC symbol = GetProcAddress(module, resource::symbolName);
    if (symbol == nullptr && GetLastError() == ERROR_NOT_ENOUGH_MEMORY) throw std::bad_alloc();
    SetLastError(lastError);
    if (symbol == nullptr) return std::nullopt;
    Directory directory(reinterpret_cast<const Byte*>(symbol));
    if (!directory.MeasureBlock()) return std::nullopt;
    return directory;
  }

  [[nodiscard]] std::uint32_t EntryCount() const { return mCount; }
  [[nodiscard]] const Byte* EntryAddress(std::uint32_t index) const {
    return mBlock + resource::headerSize + index * resource::entrySize;
  }

  // The entry, if its data lie inside the block.
  [[nodiscard]] std::optional<Entry> EntryAt(const Byte* address) const {
    const Entry entry{Number(address), Number(address + 4), Number(address + 8), Number(address + 12),
                      Number(address + 16)};
    if (entry.offset > mSize || entry.size > mSize - entry.offset) return std::nullopt;
    return entry;
  }

  // The entry that a handle stands for.
  [[nodiscard]] std::optional<Entry> EntryOf(HRSRC resource) const {
    const auto distance =
        reinterpret_cast<std::uintptr_t>(resource) - reinterpret_cast<std::uintptr_t>(EntryAddress(0));
    if (distance % resource::entrySize != 0 || distance / resource::entrySize >= mCount) return std::nullopt;
    return EntryAt(EntryAddress(static_cast<std::uint32_t>(distance / resource::entrySize)));
  }

  [[nodiscard]] const Byte* Data(const Entry& entry) const { return mBlock + entry.offset; }

  // The text at an offset; empty when it does not lie inside the block.
  [[nodiscard]] std::string_view TextAt(std::uint32_t offset) const {
    if (offset > mSize || mSize - offset < 4) return {};
    const std::uint32_t length = Number(mBlock + offset);
    if (length > mSize - offset - 4) return {};
    return {reinterpret_cast<const char*>(mBlock + offset + 4), length};
  }

 private:
  explicit Directory(const Byte* block) : mBlock(block) {}

  static std::uint32_t Number(const Byte* bytes) {
    return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 | static_cast<std::uint32_t>(bytes[2]) << 16 |
           static_cast<std::uint32_t>(bytes[3]) << 24;
  }

  // Trusts the size that the symbol table has for the block, and the header only within that.
  bool MeasureBlock() {
    Dl_info info;
    void* found = nullptr;
    if (dladdr1(mBlock, &info, &found, RTLD_DL_SYMENT) == 0 || found == nullptr) return false;
    const std::size_t room = static_cast<const ElfW(Sym)*>(found)->st_size;
    if (room < resource::headerSize) return false;
    if (std::string_view(reinterpret_cast<const char*>(mBlock), 4) != resource::magic) return false;
    mSize = Number(mBlock + 8);
    mCount = Number(mBlock + 12);
    return Number(mBlock + 4) == resource::version && mSize >= resource::headerSize && mSize <= room &&
           mCount <= (mSize - resource::headerSize) / resource::entrySize;
  }

  const Byte* mBlock;
  std::uint32_t mSize = 0;
  std::uint32_t mCount = 0;
};

// A type or name that is searched for: a number, or a text in upper case.
class Key {
 public:
  explicit Key(LPCSTR name) {
    if (IS_INTRESOURCE(name)) {
      mNumber = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(name));
    } else if (name[0] == '#') {
      for (const char* digit = name + 1; *digit >= '0' && *digit <= '9' && mNumber < 0x10000; ++digit)
        mNumber = mNumber * 10 + static_cast<std::uint32_t>(*digit - '0');
    } else {
      std::string upper = name;
      _mbsupr(reinterpret_cast<Byte*>(upper.data()));
      mText = Utf8FromAnsi(upper);
      mIsText = true;
    }
  }

  [[nodiscard]] bool Matches(const Directory& directory, std::uint32_t stored) const {
    const bool isText = (stored & resource::textFlag) != 0;
    if (isText != mIsText) return false;
    return isText ? directory.TextAt(stored & ~resource::textFlag) == mText : stored == mNumber;
  }

 private:
  std::uint32_t mNumber = 0;
  std::string mText;
  bool mIsText = false;
};

// How well a language serves a caller who named none: the system's own is best, then one that is no language
// at all.
int Rank(std::uint32_t language) {
  return language == resource::usEnglish ? 3 : language == 0 ? 2 : 1;
}

HRSRC Find(HMODULE module, LPCSTR type, LPCSTR name, WORD language) {
  const std::optional<Directory> directory = Directory::Of(module);
  DWORD error = directory ? ERROR_RESOURCE_TYPE_NOT_FOUND : ERROR_RESOURCE_DATA_NOT_FOUND;
  const Key typeKey(type);
  const Key nameKey(name);
  const Byte* best = nullptr;
  int bestRank = 0;
  for (std::uint32_t i = 0; directory && i < directory->EntryCount(); ++i) {
    const Byte* address = directory->EntryAddress(i);
    const std::optional<Entry> entry = directory->EntryAt(address);
    if (!entry || !typeKey.Matches(*directory, entry->type)) continue;
    if (error == ERROR_RESOURCE_TYPE_NOT_FOUND) error = ERROR_RESOURCE_NAME_NOT_FOUND;
    if (!nameKey.Matches(*directory, entry->name)) continue;
    error = ERROR_RESOURCE_LANG_NOT_FOUND;
    if (language != 0 && entry->language != language) continue;
    if (Rank(entry->language) > bestRank) {
      bestRank = Rank(entry->language);
      best = address;
    }
  }
  if (best == nullptr) SetLastError(error);
  return reinterpret_cast<HRSRC>(const_cast<Byte*>(best));
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

HRSRC WINAPI FindResourceA(HMODULE module, LPCSTR name, LPCSTR type) noexcept {
  return FindResourceExA(module, type, name, 0);
}

HRSRC WINAPI FindResourceExA(HMODULE module, LPCSTR type, LPCSTR name, WORD language) noexcept {
  return OrNoMemory<HRSRC>(nullptr, [=] { return Find(module, type, name, language); });
}

HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource) noexcept {
  return OrNoMemory<HGLOBAL>(nullptr, [&]() -> HGLOBAL {
    const std::optional<Directory> directory = Directory::Of(module);
    const std::optional<Entry> entry = directory ? directory->EntryOf(resource) : std::nullopt;
    if (!entry) {
      SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
      return nullptr;
    }
    return const_cast<Byte*>(directory->Data(*entry));
  });
}

LPVOID WINAPI LockResource(HGLOBAL data) noexcept {
  return data;
}

DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource) noexcept {
  return OrNoMemory<DWORD>(0, [&]() -> DWORD {
    const std::optional<Directory> directory = Directory::Of(module);
    const std::optional<Entry> entry = directory ? directory->EntryOf(resource) : std::nullopt;
    if (!entry) {
      SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
      return 0;
    }
    return entry->size;
  });
}

}  // extern "C"
