// MultiByteToWideChar, WideCharToMultiByte and the questions about code pages.
#include <cstring>

#include "kernel/CodePage.h"
#include "kernel/NoMemory.h"
#include "kernel/Utf8.h"
#include "win32/kernel.h"
#include "win32/nls.h"

namespace orm::platform {
namespace {

// A destination that counts what it would need and stores what fits; with room 0 it only counts.
template <typename Unit>
class Output {
 public:
  Output(Unit* units, int room) : mUnits(units), mRoom(static_cast<std::size_t>(room)) {}

  void Put(Unit unit) {
    if (mCount < mRoom) mUnits[mCount] = unit;
    ++mCount;
  }

  // The result of a conversion: the count, or 0 and the error.
  [[nodiscard]] int Finish() const {
    const bool counting = mRoom == 0;
    if (mCount > 0x7FFFFFFF || (!counting && mCount > mRoom)) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return 0;
    }
    return static_cast<int>(mCount);
  }

 private:
  Unit* mUnits;
  std::size_t mRoom;
  std::size_t mCount = 0;
};

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

// The tables of a page that the caller named; null, the last error saying why, when they cannot be had.
const CodePage* PageOf(UINT number) {
  return OrNoMemory<const CodePage*>(nullptr, [=] {
    const CodePage* page = FindCodePage(number);
    if (page == nullptr) SetLastError(ERROR_INVALID_PARAMETER);
    return page;
  });
}

// Both return false at bytes (units) that mean nothing when `strict`.

bool DecodeUtf8(const unsigned char* at, const unsigned char* end, bool strict, Output<WCHAR>& out) {
  while (at < end) {
    const Utf8Character character = ReadUtf8(at, end);
    if (strict && !character.valid) return false;
    at += character.size;
    if (character.value >= 0x10000) {
      out.Put(static_cast<WCHAR>(0xD7C0 + (character.value >> 10)));
      out.Put(static_cast<WCHAR>(0xDC00 + (character.value & 0x3FF)));
    } else {
      out.Put(static_cast<WCHAR>(character.value));
    }
  }
  return true;
}

bool Decode(const CodePage& page, const unsigned char* at, const unsigned char* end, bool strict,
            Output<WCHAR>& out) {
  while (at < end) {
    const std::size_t size = page.CharacterSize(at, end);
    WCHAR unit = size == 2 ? page.pairToWide[static_cast<std::size_t>(at[0] << 8 | at[1])] : page.toWide[*at];
    if (unit == CodePage::noCharacter) {
      if (strict) return false;
      unit = page.defaultWide;
    }
    out.Put(unit);
    at += size;
  }
  return true;
}

bool EncodeUtf8(const WCHAR* at, const WCHAR* end, bool strict, Output<char>& out) {
  while (at < end) {
    std::uint32_t value = *at++;
    if (value >= 0xD800 && value <= 0xDFFF) {
      if (value <= 0xDBFF && at < end && *at >= 0xDC00 && *at <= 0xDFFF)
        value = 0x10000 + ((value & 0x3FF) << 10) + (*at++ & 0x3FFu);
      else if (strict)
        return false;
      else
        value = replacementCharacter;
    }
    unsigned char bytes[4];
    const std::size_t size = WriteUtf8(value, bytes);
    for (std::size_t i = 0; i < size; ++i) out.Put(static_cast<char>(bytes[i]));
  }
  return true;
}

bool Encode(const CodePage& page, const WCHAR* at, const WCHAR* end, const char* defaultChar,
            Output<char>& out) {
  bool usedDefault = false;
  for (; at < end; ++at) {
    const std::uint16_t code = page.fromWide[*at];
    if (code == CodePage::noCharacter) {
      usedDefault = true;
      out.Put(defaultChar[0]);
      if (page.isLead[static_cast<unsigned char>(defaultChar[0])] && defaultChar[1] != '\0')
        out.Put(defaultChar[1]);
      continue;
    }
    if (code > 0xFF) out.Put(static_cast<char>(code >> 8));
    out.Put(static_cast<char>(code));
  }
  return usedDefault;
}

std::size_t WideLength(const WCHAR* text) {
  std::size_t length = 0;
  while (text[length] != 0) ++length;
  return length;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

UINT WINAPI GetACP() {
  return AnsiCodePage().number;
}

BOOL WINAPI IsValidCodePage(UINT codePage) {
  if (codePage == CP_ACP || codePage == CP_OEMCP || codePage == CP_THREAD_ACP) return FALSE;
  try {
    return FindCodePage(codePage) != nullptr;
  } catch (const std::bad_alloc&) {  // a page is none the less one for want of memory for its tables
    return TRUE;
  }
}

BOOL WINAPI IsDBCSLeadByte(BYTE byte) {
  return AnsiCodePage().isLead[byte];
}

BOOL WINAPI IsDBCSLeadByteEx(UINT codePage, BYTE byte) {
  const CodePage* page = PageOf(codePage);
  return page != nullptr && page->isLead[byte];
}

BOOL WINAPI GetCPInfo(UINT codePage, CPINFO* info) {
  if (info == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const CodePage* page = PageOf(codePage);
  if (page == nullptr) return FALSE;
  *info = CPINFO{};
  info->MaxCharSize = page->kind == CodePage::Kind::Utf8         ? 4
                      : page->kind == CodePage::Kind::DoubleByte ? 2
                                                                 : 1;
  info->DefaultChar[0] = '?';
  BYTE* range = info->LeadByte;
  for (unsigned byte = 1; byte < 256; ++byte) {
    if (page->isLead[byte] && !page->isLead[byte - 1]) *range++ = static_cast<BYTE>(byte);
    if (page->isLead[byte] && (byte == 255 || !page->isLead[byte + 1])) *range++ = static_cast<BYTE>(byte);
  }
  return TRUE;
}

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int size, LPWSTR wide, int wideSize) {
  const CodePage* page = PageOf(codePage);
  if (page == nullptr) return 0;
  if (text == nullptr || size == 0 || size < -1 || wideSize < 0 || (wide == nullptr && wideSize != 0) ||
      static_cast<const void*>(text) == wide)
    return Fail(ERROR_INVALID_PARAMETER);
  const DWORD known = MB_ERR_INVALID_CHARS | (page->kind == CodePage::Kind::Utf8 ? 0 : MB_PRECOMPOSED);
  if ((flags & ~known) != 0) return Fail(ERROR_INVALID_FLAGS);
  const auto* const begin = reinterpret_cast<const unsigned char*>(text);
  const auto* const end = begin + (size < 0 ? std::strlen(text) + 1 : static_cast<std::size_t>(size));
  const bool strict = (flags & MB_ERR_INVALID_CHARS) != 0;
  Output<WCHAR> out(wide, wideSize);
  const bool sound = page->kind == CodePage::Kind::Utf8 ? DecodeUtf8(begin, end, strict, out)
                                                        : Decode(*page, begin, end, strict, out);
  return sound ? out.Finish() : Fail(ERROR_NO_UNICODE_TRANSLATION);
}

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideSize, LPSTR text, int size,
                               LPCSTR defaultChar, BOOL* usedDefaultChar) {
  const CodePage* page = PageOf(codePage);
  if (page == nullptr) return 0;
  if (wide == nullptr || wideSize == 0 || wideSize < -1 || size < 0 || (text == nullptr && size != 0) ||
      static_cast<const void*>(wide) == text)
    return Fail(ERROR_INVALID_PARAMETER);
  const bool utf8 = page->kind == CodePage::Kind::Utf8;
  if (utf8 && (defaultChar != nullptr || usedDefaultChar != nullptr)) return Fail(ERROR_INVALID_PARAMETER);
  if ((flags & ~(utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS)) != 0) return Fail(ERROR_INVALID_FLAGS);
  const WCHAR* const end = wide + (wideSize < 0 ? WideLength(wide) + 1 : static_cast<std::size_t>(wideSize));
  Output<char> out(text, size);
  if (utf8) {
    if (!EncodeUtf8(wide, end, (flags & WC_ERR_INVALID_CHARS) != 0, out))
      return Fail(ERROR_NO_UNICODE_TRANSLATION);
    return out.Finish();
  }
  const bool usedDefault = Encode(*page, wide, end, defaultChar != nullptr ? defaultChar : "?", out);
  if (usedDefaultChar != nullptr) *usedDefaultChar = usedDefault;
  return out.Finish();
}

}  // extern "C"
