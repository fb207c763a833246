// Makes archives from JSON, with the library's own writers.
#include <ormutil/Error.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/Value.h>

#include "ArchiveText.h"
#include "Failure.h"
#include "Text.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

const Json& Member(const Json& json, const char* name) {
  if (!json.is_object() || !json.contains(name)) throw Failure(std::string("the JSON lacks \"") + name + '"');
  return json[name];
}

String TextMember(const Json& json, const char* name) {
  const Json& member = Member(json, name);
  if (!member.is_string()) throw Failure(std::string("\"") + name + "\" must be a text");
  try {
    return String(AnsiFromText(member.get<std::string>()).c_str());
  } catch (const TextError& error) {
    throw Failure(std::string("\"") + name + "\": " + error.what());
  }
}

// A number, or its text in hexadecimal.
uint64_t NumberMember(const Json& json, const char* name, uint64_t most) {
  const Json& member = Member(json, name);
  uint64_t number = 0;
  if (member.is_number_unsigned()) {
    number = member.get<uint64_t>();
  } else if (member.is_string() && member.get<std::string>().starts_with("0x")) {
    const std::string text = member.get<std::string>();
    std::size_t used = 0;
    try {
      number = std::stoull(text, &used, 16);
    } catch (const std::exception&) {
      used = 0;
    }
    if (used != text.size()) throw Failure("\"" + text + "\" is no number");
  } else {
    throw Failure(std::string("\"") + name + "\" must be a number that is not negative");
  }
  if (number > most) throw Failure(std::string("\"") + name + "\" is too large");
  return number;
}

Binary BytesMember(const Json& json, const char* name) {
  const Json& member = Member(json, name);
  const std::optional<std::string> bytes =
      member.is_string() ? BytesFromHex(member.get<std::string>()) : std::nullopt;
  if (!bytes) throw Failure(std::string("\"") + name + "\" must be hexadecimal bytes");
  return Binary(bytes->data(), static_cast<unsigned>(bytes->size()));
}

template <class Record>
std::string Written(const Record& record) {
  Binary stream;
  WriteArchive writer(stream);
  writer << record;
  return std::string(reinterpret_cast<const char*>(stream.GetData()), stream.GetSize());
}

std::string ErrorFromJson(const Json& json) {
  Error error;
  const Json& layers = Member(json, "layers");
  if (!layers.is_array()) throw Failure("\"layers\" must be an array");
  const int marked = json.value("marked", -1);
  if (marked < -1 || marked >= static_cast<int>(layers.size()))
    throw Failure("\"marked\" is the index of no layer");
  for (const Json& layer : layers) {
    const auto code = static_cast<DWORD>(NumberMember(layer, "code", 0xFFFFFFFF));
    error.AddLayer(code, TextMember(layer, "message"), static_cast<int>(error.GetLayerCount()) == marked);
  }
  if (json.contains("suggestion")) error.SetSuggestion(TextMember(json, "suggestion"));
  if (json.contains("data")) error.SetData(BytesMember(json, "data"));
  return Written(error);
}

std::string ValueFromJson(const Json& json) {
  Value value;
  const std::string type = Member(json, "type").is_string() ? json["type"].get<std::string>() : "";
  if (type == "NUMBER") {
    value.SetNumber(static_cast<DWORD>(NumberMember(json, "number", 0xFFFFFFFF)));
  } else if (type == "STRING") {
    value.SetString(TextMember(json, "text"));
  } else if (type == "BINARY") {
    value.SetBinary(BytesMember(json, "hex"));
  } else if (type == "TIME") {
    value.SetTime(UtcTime::FromTicks(NumberMember(json, "ticks", UINT64_MAX)));
  } else if (type != "NONE") {
    throw Failure("\"type\" of a value is NONE, NUMBER, STRING, BINARY or TIME");
  }
  return Written(value);
}

std::string PropertiesFromJson(const Json& json) {
  MemoryProperties bag;
  const Json& properties = Member(json, "properties");
  if (!properties.is_array()) throw Failure("\"properties\" must be an array");
  for (const Json& property : properties) {
    const String name = TextMember(property, "name");
    const std::string type = Member(property, "type").is_string() ? property["type"].get<std::string>() : "";
    if (type == "NUMBER") {
      bag.SetNumber(name, static_cast<DWORD>(NumberMember(property, "number", 0xFFFFFFFF)));
    } else if (type == "STRING") {
      bag.SetString(name, TextMember(property, "text"));
    } else if (type == "BINARY") {
      bag.SetBinary(name, BytesMember(property, "hex"));
    } else {
      throw Failure("\"type\" of a property is NUMBER, STRING or BINARY");
    }
  }
  return Written<Properties>(bag);
}

}  // namespace

std::string ArchiveFromJson(const Json& json) {
  const Json& kind = Member(json, "kind");
  if (kind == "error") return ErrorFromJson(json);
  if (kind == "value") return ValueFromJson(json);
  if (kind == "properties") return PropertiesFromJson(json);
  throw Failure("\"kind\" is error, value or properties");
}

}  // namespace orm::tool
