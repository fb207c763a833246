// An input that is a list of things to do: bytes, numbers and texts are taken from its front; behind its end
// all are zero and empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzz {

class Script {
 public:
  Script(const uint8_t* data, size_t size) : mAt(data), mLeft(size) {}

  [[nodiscard]] bool IsAtEnd() const { return mLeft == 0; }

  uint8_t Byte() {
    if (mLeft == 0) return 0;
    --mLeft;
    return *mAt++;
  }
  // Little-endian.
  uint16_t Word() {
    const unsigned low = Byte();
    return static_cast<uint16_t>(low | static_cast<unsigned>(Byte()) << 8);
  }
  uint32_t Number() {
    const uint32_t low = Word();
    return low | static_cast<uint32_t>(Word()) << 16;
  }
  // A length in one byte and that many bytes, or what there is of them; 255 announces two bytes of length.
  std::string Text() {
    size_t length = Byte();
    if (length == 255) length = Word();
    length = std::min(length, mLeft);
    std::string text(reinterpret_cast<const char*>(mAt), length);
    mAt += length;
    mLeft -= length;
    return text;
  }

 private:
  const uint8_t* mAt;
  size_t mLeft;
};

}  // namespace fuzz
