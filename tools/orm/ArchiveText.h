// Archives as fields with their places in the bytes: what is recognised, shown, and turned into JSON and
// back.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace orm::tool {

// Where and why bytes are not what they should be.
class ArchiveFault : public std::runtime_error {
 public:
  ArchiveFault(std::size_t where, const std::string& why) : std::runtime_error(why), at(where) {}
  std::size_t at;
};

struct ArchiveField {
  std::size_t offset;
  std::size_t size;
  std::string name;
  std::string value;
};

// Reads the primitives of an archive from untrusted bytes and notes each as a field. Throws ArchiveFault.
class ArchiveCursor {
 public:
  // Checks the four bytes of the header.
  explicit ArchiveCursor(std::string_view bytes);

  uint8_t ReadByte(const std::string& name);
  uint32_t ReadNumber(const std::string& name);
  std::string ReadString(const std::string& name);  // UTF-8
  std::string ReadBinary(const std::string& name);
  // A count of things that take at least `size` bytes each.
  uint32_t ReadCount(const std::string& name, std::size_t size);
  [[noreturn]] void Fail(const std::string& why) const;  // at the field read last

  std::size_t GetPosition() const { return mAt; }
  void ExpectEnd() const;
  std::vector<ArchiveField> TakeFields() { return std::move(mFields); }

 private:
  std::string_view Take(std::size_t size, const std::string& name);
  uint32_t TakeNumber(std::string_view bytes, bool swap) const;

  std::string_view mBytes;
  std::size_t mAt = 0;
  bool mBigEndian = false;
  std::vector<ArchiveField> mFields;
};

// The records that are recognised.
enum class ArchiveKind { Properties, Error, Value, Classes };
std::string ArchiveKindName(ArchiveKind kind);
std::vector<ArchiveKind> AllArchiveKinds();

struct ArchiveReading {
  ArchiveKind kind;
  nlohmann::ordered_json json;  // complete when there is no fault
  std::vector<ArchiveField> fields;
  bool isSound = false;
  std::size_t faultAt = 0;
  std::string fault;
};

ArchiveReading ReadArchiveAs(std::string_view bytes, ArchiveKind kind);
// Tries each kind: the first that reads the bytes to their end, else the one that came furthest.
ArchiveReading RecogniseArchive(std::string_view bytes);

// The archive that JSON of the same form describes. Throws Failure.
std::string ArchiveFromJson(const nlohmann::ordered_json& json);

}  // namespace orm::tool
