// Conversions between any code page and UTF-16: the size that is announced is the size that is written, and
// text that is accepted strictly survives the round trip. The first byte chooses the page.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "win32.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

std::string Back(UINT page, const std::vector<WCHAR>& wide) {
  const int units = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(page, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<size_t>(size), '\0');
  Require(WideCharToMultiByte(page, 0, wide.data(), units, text.data(), size, nullptr, nullptr) == size);
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const UINT pages[] = {1252, 1255, 1258, 874, 932, 936, 949, 950, 65001};
  if (size < 2) return 0;
  const UINT page = pages[data[0] % std::size(pages)];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  const int bytes = static_cast<int>(text.size());
  const int units = MultiByteToWideChar(page, 0, text.data(), bytes, nullptr, 0);
  Require(units > 0 && units <= bytes);
  std::vector<WCHAR> wide(static_cast<size_t>(units));
  Require(MultiByteToWideChar(page, 0, text.data(), bytes, wide.data(), units) == units);
  Require(units == 1 || MultiByteToWideChar(page, 0, text.data(), bytes, wide.data(), units - 1) == 0);
  const std::string back = Back(page, wide);
  std::vector<WCHAR> again(back.size());
  const int second = MultiByteToWideChar(page, 0, back.data(), static_cast<int>(back.size()), again.data(),
                                         static_cast<int>(again.size()));
  again.resize(static_cast<size_t>(second));
  const bool isSound =
      MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, text.data(), bytes, nullptr, 0) == units;
  if (isSound) Require(again == wide);
  if (isSound && page == 65001) Require(back == text);
  // Any 16-bit text whatever can be written.
  std::vector<WCHAR> raw(text.size() / 2);
  if (raw.empty()) return 0;
  std::memcpy(raw.data(), text.data(), raw.size() * 2);
  Require(!Back(page, raw).empty());
  return 0;
}
