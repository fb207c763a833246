// Lays out the resources of a module.
#include "Directory.h"

#include <algorithm>

#include "kernel/ResourceDirectory.h"

namespace orm::rc {
namespace {

namespace format = platform::resource;

constexpr std::uint64_t mostBytes = 0x7FFFFFFF;  // offsets leave the top bit to mark texts

void Append16(std::string& bytes, std::uint16_t value) {
  bytes.push_back(static_cast<char>(value));
  bytes.push_back(static_cast<char>(value >> 8));
}

void Append32(std::string& bytes, std::uint32_t value) {
  Append16(bytes, static_cast<std::uint16_t>(value));
  Append16(bytes, static_cast<std::uint16_t>(value >> 16));
}

std::size_t Aligned(std::size_t size) {
  return (size + format::dataAlignment - 1) / format::dataAlignment * format::dataAlignment;
}

// 16 texts, each with its length before it; an absent one has length 0.
std::string StringBlock(const std::u16string* const (&texts)[16]) {
  std::string block;
  for (const std::u16string* text : texts) {
    Append16(block, static_cast<std::uint16_t>(text != nullptr ? text->size() : 0));
    for (std::size_t i = 0; text != nullptr && i < text->size(); ++i) Append16(block, (*text)[i]);
  }
  return block;
}

// Collects the data after the entries, and where each piece came to lie.
class DataArea {
 public:
  explicit DataArea(std::size_t start) : mStart(start) {}

  std::uint32_t Add(std::string_view data) {
    mBytes.resize(Aligned(mStart + mBytes.size()) - mStart);
    const std::size_t offset = mStart + mBytes.size();
    mBytes.append(data);
    return static_cast<std::uint32_t>(offset);
  }

  // A name as an entry has it.
  std::uint32_t AddName(const Name& name) {
    if (name.text.empty()) return name.number;
    std::string text;
    Append32(text, static_cast<std::uint32_t>(name.text.size()));
    return Add(text + name.text) | format::textFlag;
  }

  [[nodiscard]] const std::string& Bytes() const { return mBytes; }

 private:
  std::size_t mStart;
  std::string mBytes;
};

}  // namespace

std::string ToText(const Name& name) {
  return name.text.empty() ? std::to_string(name.number) : name.text;
}

void Directory::Add(const Key& key, const Location& at, std::string data) {
  const auto [place, isNew] = mResources.try_emplace(key, Resource{at, std::move(data)});
  if (!isNew)
    throw SourceError(at, "there is a resource '" + ToText(key.name) + "' of this type already, at " +
                              rc::ToText(place->second.at));
}

void Directory::AddString(std::uint16_t id, std::uint16_t language, const Location& at,
                          const std::u16string& text) {
  if (text.size() > 0xFFFF) throw SourceError(at, "this string is longer than 65535 UTF-16 units");
  const auto [place, isNew] = mStrings.try_emplace({language, id}, String{at, text});
  if (!isNew)
    throw SourceError(
        at, "string " + std::to_string(id) + " has a text already, at " + rc::ToText(place->second.at));
}

std::map<Key, std::string> Directory::WithStringBlocks() const {
  std::map<Key, std::string> all;
  for (const auto& [key, resource] : mResources) all.emplace(key, resource.data);
  for (auto at = mStrings.begin(); at != mStrings.end();) {
    const auto [language, first] = at->first;
    const int block = first / 16;
    const std::u16string* texts[16] = {};
    for (; at != mStrings.end() && at->first.first == language && at->first.second / 16 == block; ++at)
      texts[at->first.second % 16] = &at->second.text;
    const Key key{{"", stringType}, {"", static_cast<std::uint16_t>(block + 1)}, language};
    all.emplace(key, StringBlock(texts));
  }
  return all;
}

std::string Directory::Build() const {
  const std::map<Key, std::string> all = WithStringBlocks();
  std::uint64_t estimate = format::headerSize;
  for (const auto& [key, data] : all)
    estimate += format::entrySize + 3 * format::dataAlignment + key.type.text.size() + key.name.text.size() +
                data.size();
  if (estimate > mostBytes) throw std::runtime_error("error: the resources are larger than 2 GiB");
  DataArea area(format::headerSize + all.size() * format::entrySize);
  std::string entries;
  for (const auto& [key, data] : all) {
    Append32(entries, area.AddName(key.type));
    Append32(entries, area.AddName(key.name));
    Append32(entries, key.language);
    Append32(entries, area.Add(data));
    Append32(entries, static_cast<std::uint32_t>(data.size()));
  }
  std::string block(format::magic);
  Append32(block, format::version);
  Append32(block, static_cast<std::uint32_t>(format::headerSize + entries.size() + area.Bytes().size()));
  Append32(block, static_cast<std::uint32_t>(all.size()));
  return block + entries + area.Bytes();
}

std::string Directory::List() const {
  std::string lines;
  for (const auto& [key, data] : WithStringBlocks()) {
    const bool isStrings = key.type == Name{"", stringType};
    const std::string type = isStrings                          ? "strings"
                             : key.type == Name{"", bitmapType} ? "bitmap"
                                                                : ToText(key.type);
    lines += type + ' ' + ToText(key.name) + ", language " + std::to_string(key.language) + ": " +
             std::to_string(data.size()) + " bytes\n";
  }
  return lines;
}

}  // namespace orm::rc
