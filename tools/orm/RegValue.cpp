// Shows values and reads them from the command line.
#include "RegValue.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "Failure.h"
#include "Text.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

// Size of a number's type, 0 for types that hold none.
std::size_t NumberSize(DWORD type) {
  if (type == REG_DWORD || type == REG_DWORD_BIG_ENDIAN) return 4;
  return type == REG_QWORD ? 8 : 0;
}

uint64_t ReadNumber(const RegData& data) {
  uint64_t number = 0;
  const std::size_t size = data.bytes.size();
  for (std::size_t i = 0; i < size; ++i) {
    const std::size_t from = data.type == REG_DWORD_BIG_ENDIAN ? i : size - 1 - i;
    number = number << 8 | static_cast<unsigned char>(data.bytes[from]);
  }
  return number;
}

std::string NumberBytes(DWORD type, uint64_t number) {
  std::string bytes;
  for (std::size_t i = 0; i < NumberSize(type); ++i) bytes += static_cast<char>(number >> 8 * i & 0xFF);
  if (type == REG_DWORD_BIG_ENDIAN) std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

uint64_t ParseNumber(DWORD type, const std::string& text) {
  std::string_view digits = text;
  const bool hex = digits.starts_with("0x") || digits.starts_with("0X");
  if (hex) digits.remove_prefix(2);
  uint64_t number = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), number, hex ? 16 : 10);
  const uint64_t most =
      NumberSize(type) == 4 ? std::numeric_limits<uint32_t>::max() : std::numeric_limits<uint64_t>::max();
  if (error != std::errc() || end != digits.data() + digits.size() || number > most) {
    throw Failure("'" + text + "' is no number for " + RegTypeName(type));
  }
  return number;
}

// The texts of a list, each ended by a zero byte, up to the empty one.
std::vector<std::string> SplitTexts(const std::string& bytes) {
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < bytes.size() && bytes[at] != '\0';) {
    const std::size_t end = std::min(bytes.find('\0', at), bytes.size());
    texts.push_back(bytes.substr(at, end - at));
    at = end + 1;
  }
  return texts;
}

bool IsTerminatedOnce(const std::string& bytes) {
  return !bytes.empty() && bytes.find('\0') == bytes.size() - 1;
}

std::string_view KindName(RegDifference::Kind kind) {
  static constexpr std::string_view names[] = {"key-added", "key-removed", "value-added", "value-removed",
                                               "value-changed"};
  return names[static_cast<int>(kind)];
}

}  // namespace

RegPath PathFromArgument(const std::string& text) {
  try {
    return ParseRegPath(AnsiFromArgument(text));
  } catch (const RegSyntaxError& error) {
    throw Failure(std::string("key '") + text + "': " + error.what());
  }
}

RegData ParseRegData(DWORD type, const std::vector<std::string>& arguments) {
  RegData data{type, {}};
  if (type == REG_MULTI_SZ) {
    for (const std::string& argument : arguments) {
      if (argument.empty()) throw Failure("an empty text would end the list of a REG_MULTI_SZ");
      data.bytes += AnsiFromArgument(argument) + '\0';
    }
    data.bytes += '\0';
    return data;
  }
  if (arguments.size() > 1) throw Failure("only a REG_MULTI_SZ takes more than one --data");
  const std::string argument = arguments.empty() ? "" : arguments.front();
  if (type == REG_SZ || type == REG_EXPAND_SZ) {
    data.bytes = AnsiFromArgument(argument) + '\0';
  } else if (NumberSize(type) != 0) {
    data.bytes = NumberBytes(type, ParseNumber(type, argument));
  } else {
    const std::optional<std::string> bytes = BytesFromHex(argument);
    if (!bytes) throw Failure("'" + argument + "' are no hexadecimal bytes, such as '01 02 ff'");
    data.bytes = *bytes;
  }
  return data;
}

std::string ShowRegData(const RegData& data) {
  if ((data.type == REG_SZ || data.type == REG_EXPAND_SZ) && IsTerminatedOnce(data.bytes)) {
    return ToDisplayLine({data.bytes.data(), data.bytes.size() - 1});
  }
  if (NumberSize(data.type) != 0 && NumberSize(data.type) == data.bytes.size()) {
    char text[48];
    const auto number = static_cast<unsigned long long>(ReadNumber(data));
    std::snprintf(text, sizeof text, "%llu (0x%llx)", number, number);
    return text;
  }
  if (data.type == REG_MULTI_SZ) {
    std::string list;
    for (const std::string& text : SplitTexts(data.bytes))
      list += (list.empty() ? "\"" : ", \"") + ToDisplayLine(text) + '"';
    return list;
  }
  std::string spaced;
  for (const char& byte : data.bytes) spaced += (spaced.empty() ? "" : " ") + HexOf({&byte, 1});
  return spaced;
}

Json RegDataToJson(const std::string& name, const RegData& data) {
  Json item{{"name", ToDisplay(name)}, {"type", RegTypeName(data.type)}};
  if ((data.type == REG_SZ || data.type == REG_EXPAND_SZ) && IsTerminatedOnce(data.bytes)) {
    item["text"] = ToDisplay({data.bytes.data(), data.bytes.size() - 1});
  } else if (NumberSize(data.type) != 0 && NumberSize(data.type) == data.bytes.size()) {
    item["number"] = ReadNumber(data);
  } else if (data.type == REG_MULTI_SZ) {
    item["texts"] = Json::array();
    for (const std::string& text : SplitTexts(data.bytes)) item["texts"].push_back(ToDisplay(text));
  } else {
    item["hex"] = HexOf(data.bytes);
  }
  return item;
}

std::string ShowRegDifference(const RegDifference& difference) {
  using Kind = RegDifference::Kind;
  const auto shown = [](const RegData& data) { return RegTypeName(data.type) + " " + ShowRegData(data); };
  std::string line = ToDisplayLine(difference.key.GetName());
  if (difference.before || difference.after) {
    line += difference.name.empty() ? " (default)" : " \"" + ToDisplayLine(difference.name) + "\"";
  }
  if (difference.before) line += "  " + shown(*difference.before);
  if (difference.before && difference.after) line += "  ->";
  if (difference.after) line += "  " + shown(*difference.after);
  switch (difference.kind) {
    case Kind::KeyAdded:
    case Kind::ValueAdded:
      return Coloured(Colour::Green, "+ " + line);
    case Kind::KeyRemoved:
    case Kind::ValueRemoved:
      return Coloured(Colour::Red, "- " + line);
    case Kind::ValueChanged:
      break;
  }
  return Coloured(Colour::Yellow, "~ " + line);
}

Json RegDifferenceToJson(const RegDifference& difference) {
  Json item{{"change", KindName(difference.kind)}, {"key", ToDisplay(difference.key.GetName())}};
  if (difference.before) item["before"] = RegDataToJson(difference.name, *difference.before);
  if (difference.after) item["after"] = RegDataToJson(difference.name, *difference.after);
  return item;
}

}  // namespace orm::tool
