// The multibyte string functions on any bytes in each kind of page: walking forward and backward agree, spans
// and searches stay inside the text, case mapping keeps the length. The first byte chooses the page.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/CodePage.h"
#include "win32.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const UINT pages[] = {1252, 932, 949, 65001};
  if (size < 1) return 0;
  orm::platform::SetAnsiCodePage(pages[data[0] % std::size(pages)]);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  // Exactly as long as the text up to its first zero, so that a step beyond it is seen.
  std::vector<uint8_t> exact(text.c_str(), text.c_str() + std::strlen(text.c_str()) + 1);
  const uint8_t* const start = exact.data();
  const uint8_t* const end = start + exact.size() - 1;
  size_t count = 0;
  const uint8_t* at = start;
  for (; *at != 0; ++count) {
    const uint8_t* const next = _mbsinc(at);
    Require(next > at && next <= end && _mbsdec(start, next) == at);
    const unsigned code = _mbsnextc(at);
    Require(_mbschr(start, code) <= at && _mbsrchr(start, code) >= at && _mbsstr(start, at) <= at);
    Require(_mbctolower(_mbctolower(code)) == _mbctolower(code));
    at = next;
  }
  Require(at == end && _mbslen(start) == count && _mbsninc(start, count) == end);
  Require(_mbsspn(start, start) == static_cast<size_t>(end - start) &&
          (count == 0 || _mbscspn(start, start) == 0));
  std::vector<uint8_t> lower = exact;
  _mbslwr(lower.data());
  Require(std::strlen(reinterpret_cast<char*>(lower.data())) == exact.size() - 1 &&
          _mbslen(lower.data()) == count);
  Require(_mbsicmp(start, lower.data()) == 0 && _mbscmp(start, start) == 0);
  Require(_mbscmp(start, lower.data()) == -_mbscmp(lower.data(), start));
  return 0;
}
