// FormatMessage with any text, any inserts, any width and any size of buffer: the first byte is the width,
// the second the buffer's size, the third says how, and a zero byte ends the text and begins the insert.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "win32.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const DWORD width = data[0];
  const DWORD room = data[1];
  const bool isWide = (data[2] & 1) != 0;
  const DWORD ignore = (data[2] & 2) != 0 ? FORMAT_MESSAGE_IGNORE_INSERTS : 0;
  const std::string text(reinterpret_cast<const char*>(data + 3),
                         static_cast<size_t>(std::find(data + 3, data + size, uint8_t{0}) - (data + 3)));
  // The insert may be asked for as 8-bit or as 16-bit text, so it ends in both.
  std::vector<WCHAR> insert(size + 2);
  const size_t insertSize = size - 3 - text.size();
  if (insertSize > 1)
    std::copy(data + size - insertSize + 1, data + size, reinterpret_cast<uint8_t*>(insert.data()));
  const std::vector<DWORD_PTR> arguments(102, reinterpret_cast<DWORD_PTR>(insert.data()));
  auto* list = reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments.data()));
  const DWORD flags = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | ignore | width;
  DWORD length = 0;
  if (isWide) {
    std::vector<WCHAR> wide(text.begin(), text.end());
    wide.push_back(0);
    const std::unique_ptr<WCHAR[]> buffer(new WCHAR[room]);
    length = FormatMessageW(flags, wide.data(), 0, 0, buffer.get(), room, list);
    if (length != 0 && (length >= room || buffer[length] != 0)) std::abort();
  } else {
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    const std::unique_ptr<char[]> buffer(new char[room]);
    length = FormatMessageA(flags, exact.data(), 0, 0, buffer.get(), room, list);
    if (length != 0 && (length >= room || buffer[length] != 0)) std::abort();
  }
  return 0;
}
