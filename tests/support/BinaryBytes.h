// Buffers of bytes as texts, which compare and print.
#pragma once

#include <ormutil/Binary.h>

#include <string>

namespace test {

inline orm::Binary BinaryOf(const std::string& bytes) {
  return orm::Binary(bytes.data(), static_cast<unsigned>(bytes.size()));
}

inline std::string BytesOf(const orm::Binary& data) {
  return data.IsEmpty() ? std::string()
                        : std::string(reinterpret_cast<const char*>(data.GetData()), data.GetSize());
}

}  // namespace test
