// Reads the records that travel in archives, field by field.
#include <algorithm>
#include <array>
#include <cstdio>

#include "ArchiveText.h"
#include "Text.h"

#include <win32.h>

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr UINT UTF16_PAGE = 1200;
constexpr std::array typeNames = {"NONE", "NUMBER", "STRING", "BINARY", "TIME"};

std::string Hex8(uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", number);
  return text;
}

// UTF-8 of a text in a code page, in UTF-16 for the page 1200; undecodable bytes as replacement characters.
std::string Decoded(std::string_view bytes, uint32_t codePage) {
  std::u16string wide;
  if (codePage == UTF16_PAGE) {
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
      wide += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                    static_cast<unsigned char>(bytes[i + 1]) << 8);
    }
  } else {
    const UINT page = IsValidCodePage(codePage) ? codePage : CP_ACP;
    wide.resize(bytes.size());
    const int units =
        bytes.empty()
            ? 0
            : MultiByteToWideChar(page, 0, bytes.data(), static_cast<int>(bytes.size()),
                                  reinterpret_cast<WCHAR*>(wide.data()), static_cast<int>(wide.size()));
    wide.resize(static_cast<std::size_t>(std::max(units, 0)));
  }
  try {
    return TextFromWide(wide);
  } catch (const TextError&) {
    return "(no text)";
  }
}

std::string TimeText(uint64_t ticks) {
  const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME elements;
  if (!FileTimeToSystemTime(&time, &elements)) return "(no date)";
  char text[64];
  std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", elements.wYear, elements.wMonth,
                elements.wDay, elements.wHour, elements.wMinute, elements.wSecond, elements.wMilliseconds);
  return text;
}

}  // namespace

ArchiveCursor::ArchiveCursor(std::string_view bytes) : mBytes(bytes) {
  const std::string_view head = Take(4, "header");
  for (std::size_t i = 1; i < 4; ++i) {
    if (head[i] != "\0\x13\x48\x5B"[i])
      throw ArchiveFault(i, "this is not the header of an archive (xx 13 48 5b)");
  }
  if ((head[0] & 0x0F) != 0)
    throw ArchiveFault(0, "format " + std::to_string(head[0] & 0x0F) + " of archives is unknown");
  mBigEndian = (head[0] & 0x10) != 0;
  mFields.back().value = mBigEndian ? "format 0, big-endian" : "format 0, little-endian";
}

std::string_view ArchiveCursor::Take(std::size_t size, const std::string& name) {
  if (mBytes.size() - mAt < size) {
    throw ArchiveFault(mBytes.size(), "the data end " + std::to_string(size - (mBytes.size() - mAt)) +
                                          " bytes before the end of " + name + ", which begins at byte " +
                                          std::to_string(mAt));
  }
  mFields.push_back({mAt, size, name, ""});
  const std::string_view bytes = mBytes.substr(mAt, size);
  mAt += size;
  return bytes;
}

uint32_t ArchiveCursor::TakeNumber(std::string_view bytes, bool bigEndian) const {
  uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    number |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 8 * (bigEndian ? 3 - i : i);
  }
  return number;
}

void ArchiveCursor::Fail(const std::string& why) const {
  throw ArchiveFault(mFields.back().offset, why);
}

uint8_t ArchiveCursor::ReadByte(const std::string& name) {
  const auto byte = static_cast<uint8_t>(Take(1, name)[0]);
  mFields.back().value = std::to_string(byte);
  return byte;
}

uint32_t ArchiveCursor::ReadNumber(const std::string& name) {
  const uint32_t number = TakeNumber(Take(4, name), mBigEndian);
  mFields.back().value = std::to_string(number) + (number > 9 ? " (" + Hex8(number) + ")" : "");
  return number;
}

// Its length and code page are little-endian whatever the header says.
std::string ArchiveCursor::ReadString(const std::string& name) {
  const std::size_t start = mAt;
  const uint32_t size = TakeNumber(Take(4, name + ", size"), false);
  mFields.back().value = std::to_string(size);
  if (size == 0) return "";
  const uint32_t page = TakeNumber(Take(4, name + ", code page"), false);
  mFields.back().value = std::to_string(page);
  const std::string_view text = Take(size, name);
  const std::size_t terminator = page == UTF16_PAGE ? 2 : 1;
  if (size < terminator || text.substr(size - terminator).find_first_not_of('\0') != std::string_view::npos) {
    throw ArchiveFault(start, name + " has no terminator");
  }
  std::string decoded = Decoded(text.substr(0, size - terminator), page);
  mFields.back().value = '"' + decoded + '"';
  return decoded;
}

std::string ArchiveCursor::ReadBinary(const std::string& name) {
  const uint32_t size = ReadNumber(name + ", size");
  if (size == 0) return "";
  const std::string_view bytes = Take(size, name);
  mFields.back().value = HexOf(bytes);
  return std::string(bytes);
}

uint32_t ArchiveCursor::ReadCount(const std::string& name, std::size_t size) {
  const uint32_t count = ReadNumber(name);
  if (count > (mBytes.size() - mAt) / size) Fail(name + " is larger than what the remaining bytes can hold");
  return count;
}

void ArchiveCursor::ExpectEnd() const {
  if (mAt != mBytes.size()) {
    throw ArchiveFault(mAt, std::to_string(mBytes.size() - mAt) + " bytes follow the end of the record");
  }
}

namespace {

Json ReadErrorRecord(ArchiveCursor& cursor) {
  Json json{{"kind", "error"}, {"layers", Json::array()}};
  const uint8_t flag = cursor.ReadByte("has layers");
  if (flag > 1) cursor.Fail("the flag whether there are layers is neither 0 nor 1");
  if (flag == 0) return json;
  const uint32_t version = cursor.ReadNumber("version");
  if (version != 2) cursor.Fail("version " + Hex8(version) + " of errors is unknown");
  json["data"] = HexOf(cursor.ReadBinary("data"));
  json["suggestion"] = cursor.ReadString("suggestion");
  const auto marked = static_cast<int32_t>(cursor.ReadNumber("marked layer"));
  json["marked"] = marked;
  const uint32_t count = cursor.ReadCount("number of layers", 8);
  if (marked < -1 || (marked >= 0 && static_cast<uint32_t>(marked) >= count))
    cursor.Fail("the marked layer is not there");
  for (uint32_t i = 0; i < count; ++i) {
    const std::string name = "layer " + std::to_string(i);
    const uint32_t code = cursor.ReadNumber(name + " code");
    json["layers"].push_back({{"code", Hex8(code)}, {"message", cursor.ReadString(name + " message")}});
  }
  return json;
}

Json ReadValueRecord(ArchiveCursor& cursor) {
  const uint32_t tag = cursor.ReadNumber("tag");
  if (tag >= typeNames.size()) cursor.Fail("a value has no type " + std::to_string(tag));
  Json json{{"kind", "value"}, {"type", typeNames[tag]}};
  if (tag == 1) json["number"] = cursor.ReadNumber("number");
  if (tag == 2) json["text"] = cursor.ReadString("text");
  if (tag == 3) json["hex"] = HexOf(cursor.ReadBinary("bytes"));
  if (tag == 4) {
    const uint64_t low = cursor.ReadNumber("ticks, low word");
    const uint64_t ticks = low | static_cast<uint64_t>(cursor.ReadNumber("ticks, high word")) << 32;
    json["ticks"] = ticks;
    json["time"] = TimeText(ticks);
  }
  return json;
}

Json ReadPropertiesRecord(ArchiveCursor& cursor) {
  const uint32_t version = cursor.ReadNumber("version");
  if (version != 0x80000001) cursor.Fail("version " + Hex8(version) + " of properties is unknown");
  Json json{{"kind", "properties"}, {"properties", Json::array()}};
  const uint32_t count = cursor.ReadCount("number of properties", 12);
  for (uint32_t i = 0; i < count; ++i) {
    const std::string name = cursor.ReadString("name " + std::to_string(i));
    const uint32_t type = cursor.ReadNumber("type");
    if (type < 1 || type > 3) cursor.Fail("a property has no type " + std::to_string(type));
    Json property{{"name", name}, {"type", typeNames[type]}};
    if (type == 1) property["number"] = cursor.ReadNumber("number");
    if (type == 2) property["text"] = cursor.ReadString("text");
    if (type == 3) property["hex"] = HexOf(cursor.ReadBinary("bytes"));
    json["properties"].push_back(std::move(property));
  }
  return json;
}

Json ReadClassesRecord(ArchiveCursor& cursor) {
  Json json{{"kind", "classes"}, {"classes", Json::array()}};
  const uint32_t classes = cursor.ReadCount("number of classes", 16);
  if (classes == 0) cursor.Fail("a list of no classes is stored as no bytes at all");
  for (uint32_t i = 0; i < classes; ++i) {
    Json item{{"class", cursor.ReadString("class id " + std::to_string(i))}};
    item["hash"] = Hex8(cursor.ReadNumber("hash"));
    item["hex"] = HexOf(cursor.ReadBinary("class data"));
    item["faces"] = Json::array();
    const uint32_t faces = cursor.ReadCount("number of faces", 12);
    for (uint32_t j = 0; j < faces; ++j) {
      Json face{{"face", cursor.ReadString("face id " + std::to_string(j))}};
      face["hash"] = Hex8(cursor.ReadNumber("hash"));
      face["hex"] = HexOf(cursor.ReadBinary("face data"));
      item["faces"].push_back(std::move(face));
    }
    json["classes"].push_back(std::move(item));
  }
  return json;
}

struct Kind {
  ArchiveKind kind;
  const char* name;
  Json (*read)(ArchiveCursor& cursor);
};
constexpr std::array kinds = {Kind{ArchiveKind::Properties, "properties", ReadPropertiesRecord},
                              Kind{ArchiveKind::Error, "error", ReadErrorRecord},
                              Kind{ArchiveKind::Value, "value", ReadValueRecord},
                              Kind{ArchiveKind::Classes, "classes", ReadClassesRecord}};

const Kind& Find(ArchiveKind kind) {
  return *std::find_if(kinds.begin(), kinds.end(),
                       [&](const Kind& candidate) { return candidate.kind == kind; });
}

}  // namespace

std::string ArchiveKindName(ArchiveKind kind) {
  return Find(kind).name;
}

std::vector<ArchiveKind> AllArchiveKinds() {
  std::vector<ArchiveKind> all;
  all.reserve(kinds.size());
  for (const Kind& kind : kinds) all.push_back(kind.kind);
  return all;
}

ArchiveReading ReadArchiveAs(std::string_view bytes, ArchiveKind kind) {
  ArchiveReading reading{kind, {}, {}, false, 0, ""};
  try {
    ArchiveCursor cursor(bytes);
    try {
      reading.json = Find(kind).read(cursor);
      cursor.ExpectEnd();
      reading.isSound = true;
    } catch (const ArchiveFault& fault) {
      reading.faultAt = fault.at;
      reading.fault = fault.what();
    }
    reading.fields = cursor.TakeFields();
  } catch (const ArchiveFault& fault) {
    reading.faultAt = fault.at;
    reading.fault = fault.what();
  }
  return reading;
}

ArchiveReading RecogniseArchive(std::string_view bytes) {
  ArchiveReading best = ReadArchiveAs(bytes, kinds[0].kind);
  for (std::size_t i = 1; i < kinds.size() && !best.isSound; ++i) {
    ArchiveReading reading = ReadArchiveAs(bytes, kinds[i].kind);
    // The more bytes made sense, the likelier the kind; the first of equals.
    if (reading.isSound || reading.faultAt > best.faultAt) best = std::move(reading);
  }
  return best;
}

}  // namespace orm::tool
