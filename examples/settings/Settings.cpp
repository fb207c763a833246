// Settings: two registry bags and what they give together.
#include "Settings.h"

#include <charconv>
#include <stdexcept>
#include <vector>

using orm::Binary;
using orm::MemoryProperties;
using orm::Properties;
using orm::String;

namespace settings {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::string ToHex(const Binary& data) {
  std::string text;
  for (unsigned i = 0; i < data.GetSize(); ++i) {
    text += kHexDigits[data.GetData()[i] >> 4];
    text += kHexDigits[data.GetData()[i] & 15];
  }
  return text;
}

template <class Number>
Number Parse(const char* begin, const char* end, int base, const char* complaint) {
  Number result{};
  const auto [stop, failure] = std::from_chars(begin, end, result, base);
  if (failure != std::errc() || stop != end) throw std::invalid_argument(complaint);
  return result;
}

Binary FromHex(const std::string& text) {
  constexpr const char* kComplaint = "a binary value is an even number of hexadecimal digits";
  if (text.size() % 2 != 0) throw std::invalid_argument(kComplaint);
  std::vector<unsigned char> bytes;
  for (const char* pos = text.data(); pos != text.data() + text.size(); pos += 2) {
    bytes.push_back(Parse<unsigned char>(pos, pos + 2, 16, kComplaint));
  }
  return Binary(bytes.data(), static_cast<unsigned>(bytes.size()));
}

}  // namespace

Settings::Settings(const String& bagName) {
  mUser.Open(bagName, true);
  mMachine.Open(bagName, false);
}

MemoryProperties Settings::GetEffective() const {
  MemoryProperties result;
  result.Merge(mMachine, {}, true);
  result.Merge(mUser, {}, true);
  return result;
}

void Settings::Import(const Binary& data) {
  MemoryProperties read;
  read.Import(data);
  mUser.Merge(read, {}, true);
}

std::string ToText(const Properties& bag, const String& name) {
  switch (bag.GetType(name)) {
    case Properties::TYPE_NUMBER:
      return std::to_string(bag.GetNumber(name));
    case Properties::TYPE_BINARY:
      return ToHex(bag.GetBinary(name));
    default:
      return bag.GetString(name).GetBegin();
  }
}

const char* TypeName(Properties::PropertyType type) {
  switch (type) {
    case Properties::TYPE_NUMBER:
      return "number";
    case Properties::TYPE_STRING:
      return "string";
    case Properties::TYPE_BINARY:
      return "binary";
    default:
      return "none";
  }
}

void SetFromText(Properties& bag, const String& name, const std::string& type, const std::string& text) {
  if (type == "number") {
    bag.SetNumber(name,
                  Parse<DWORD>(text.data(), text.data() + text.size(), 10, "a number is 0 to 4294967295"));
  } else if (type == "binary") {
    bag.SetBinary(name, FromHex(text));
  } else {
    bag.SetString(name, text.c_str());
  }
}

}  // namespace settings
