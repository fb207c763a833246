// Which code page the process has, and the conversions between it, UTF-8 and UTF-16.
#include "kernel/CodePage.h"

#include <iterator>
#include <new>
#include <utility>

#include "kernel/CodePageTables.h"
#include "kernel/Utf8.h"
#include "win32/errors.h"
#include "win32/nls.h"
#include "win32/registry.h"

namespace orm::platform {

constinit std::atomic<const CodePage*> ansiCodePage{nullptr};

namespace {

constexpr UINT supported[] = {1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257,
                              1258, 874,  932,  936,  949,  950,  65001};
constinit std::atomic<const CodePage*> built[std::size(supported)] = {};

// The page's place in `supported`, or its length.
std::size_t PageIndex(UINT number) {
  std::size_t index = 0;
  while (index < std::size(supported) && supported[index] != number) ++index;
  return index;
}

// The page that the machine's registry names; 1252 when it names none. Want of memory passes, and the answer
// is for the process's whole life, so that nothing is taken for granted then.
UINT ConfiguredAnsiCodePage() {
  constexpr UINT defaultPage = 1252;
  HKEY key = nullptr;
  char text[16] = {};
  DWORD type = 0;
  DWORD size = sizeof text - 1;
  LONG result = RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage", 0,
                              KEY_QUERY_VALUE, &key);
  if (result == 0) {
    result = RegQueryValueExA(key, "ACP", nullptr, &type, reinterpret_cast<LPBYTE>(text), &size);
    RegCloseKey(key);
  }
  if (result == ERROR_NOT_ENOUGH_MEMORY) throw std::bad_alloc();
  if (result != 0 || type != REG_SZ) return defaultPage;
  UINT number = 0;
  for (const char* digit = text; *digit != '\0'; ++digit) {
    if (*digit < '0' || *digit > '9' || number > 65535) return defaultPage;
    number = number * 10 + static_cast<UINT>(*digit - '0');
  }
  return PageIndex(number) < std::size(supported) ? number : defaultPage;
}

// A flag that is set while this lives, whichever way it ends.
class Mark {
 public:
  explicit Mark(bool& flag) : mFlag(flag) { mFlag = true; }
  ~Mark() { mFlag = false; }
  Mark(const Mark&) = delete;
  Mark& operator=(const Mark&) = delete;

 private:
  bool& mFlag;
};

}  // namespace

std::size_t CodePage::CharacterSize(const unsigned char* text, const unsigned char* end) const {
  if (kind == Kind::Utf8) {
    const Utf8Character character = ReadUtf8(text, end);
    return character.valid ? character.size : 1;
  }
  return isLead[*text] && end - text > 1 && text[1] != 0 ? 2 : 1;
}

const CodePage* FindCodePage(UINT number) {
  if (number == CP_ACP || number == CP_OEMCP || number == CP_THREAD_ACP) return &AnsiCodePage();
  const std::size_t index = PageIndex(number);
  if (index == std::size(supported)) return nullptr;
  const CodePage* known = built[index].load(std::memory_order_acquire);
  if (known != nullptr) return known;
  // Two threads may build the same page at once; the first to finish wins. No lock is held meanwhile, since
  // the allocator may be anybody's.
  std::unique_ptr<const CodePage> made = BuildCodePage(number);
  if (made != nullptr && built[index].compare_exchange_strong(known, made.get(), std::memory_order_acq_rel))
    return made.release();
  return known;
}

// The registry converts names itself, so asking it leads back here; that question must not be asked twice,
// and no lock may be held while it is.
const CodePage& ResolveAnsiCodePage() {
  static constinit thread_local bool isAsking = false;
  if (isAsking) return *FindCodePage(1252);
  const CodePage* page = nullptr;
  {
    const Mark mark(isAsking);
    page = FindCodePage(ConfiguredAnsiCodePage());
  }
  if (page == nullptr) page = FindCodePage(1252);
  const CodePage* none = nullptr;
  ansiCodePage.compare_exchange_strong(none, page, std::memory_order_acq_rel);
  return *ansiCodePage.load(std::memory_order_acquire);
}

bool SetAnsiCodePage(UINT number) {
  const CodePage* page = PageIndex(number) < std::size(supported) ? FindCodePage(number) : nullptr;
  if (page != nullptr) ansiCodePage.store(page, std::memory_order_release);
  return page != nullptr;
}

std::string Utf8From(const CodePage& page, std::string_view text) {
  std::string result;
  result.reserve(text.size());
  const auto* at = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = at + text.size();
  while (at < end) {
    std::uint32_t character = 0;
    const std::size_t size = page.CharacterSize(at, end);
    if (page.kind == CodePage::Kind::Utf8)
      character = ReadUtf8(at, end).value;
    else
      character =
          size == 2 ? page.pairToWide[static_cast<std::size_t>(at[0] << 8 | at[1])] : page.toWide[*at];
    if (character == CodePage::noCharacter) character = page.defaultWide;
    unsigned char bytes[4];
    result.append(reinterpret_cast<const char*>(bytes), WriteUtf8(character, bytes));
    at += size;
  }
  return result;
}

std::string Utf8FromAnsi(std::string_view text) {
  const CodePage& page = AnsiCodePage();
  return page.kind == CodePage::Kind::Utf8 ? std::string(text) : Utf8From(page, text);
}

std::string AnsiFromUtf8(std::string_view text) {
  const CodePage& page = AnsiCodePage();
  if (page.kind == CodePage::Kind::Utf8) return std::string(text);
  std::string result;
  result.reserve(text.size());
  const auto* at = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = at + text.size();
  while (at < end) {
    const Utf8Character character = ReadUtf8(at, end);
    at += character.size;
    const std::uint16_t code =
        character.valid && character.value <= 0xFFFF ? page.fromWide[character.value] : CodePage::noCharacter;
    if (code == CodePage::noCharacter) {
      result.push_back('?');
      continue;
    }
    if (code > 0xFF) result.push_back(static_cast<char>(code >> 8));
    result.push_back(static_cast<char>(code));
  }
  return result;
}

}  // namespace orm::platform
