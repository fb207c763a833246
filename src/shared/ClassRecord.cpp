// Normalising class descriptions, finding faces, and the serialised class list:
//
//   number of classes, and for each: id, its hash, data, number of faces, and for each: id, its hash, data
#include "ClassRecord.h"

#include <ormutil/Error.h>

#include <algorithm>
#include <map>

namespace orm {

namespace {

std::vector<FaceRecord> NormalizeFaces(const std::vector<FaceDescription>& descriptions) {
  std::map<HashedId, Binary> faces;
  for (const FaceDescription& description : descriptions) {
    const auto [place, isNew] = faces.try_emplace(HashedId(description.faceId), description.faceData);
    if (!isNew && !description.faceData.IsEmpty()) place->second = description.faceData;
  }
  std::vector<FaceRecord> records;
  records.reserve(faces.size());
  for (const auto& [id, data] : faces) records.push_back({id, data});
  return records;
}

// Reads what WriteClassList wrote. A count is believed only after that many bytes were seen to be left, and
// vectors of more than a few elements grow with what was read, so that no count sizes memory by itself.
class ClassListReader : private ReadArchive {
 public:
  explicit ClassListReader(const Binary& stream) : ReadArchive(stream) {}

  std::vector<ClassRecord> Read() {
    std::vector<ClassRecord> records;
    DWORD left = ReadCount();
    records.reserve(std::min(left, FEW));
    for (; left > 0; --left) {
      HashedId id = ReadId();
      Binary data;
      ReadBinary(data);
      records.push_back({std::move(id), std::move(data), ReadFaces()});
      CheckOrder(records);
    }
    return records;
  }

 private:
  static constexpr DWORD FEW = 16;
  static constexpr DWORD MAX_TEXT = 0x10000;  // more than the cache's block holds

  std::vector<FaceRecord> ReadFaces() {
    std::vector<FaceRecord> faces;
    DWORD left = ReadCount();
    faces.reserve(std::min(left, FEW));
    for (; left > 0; --left) {
      HashedId id = ReadId();
      Binary data;
      ReadBinary(data);
      faces.push_back({std::move(id), std::move(data)});
      CheckOrder(faces);
    }
    return faces;
  }

  DWORD ReadCount() {
    DWORD count = 0;
    *this >> count;
    ReadDataTest(count, nullptr);
    return count;
  }

  HashedId ReadId() {
    const String text = ReadText();
    DWORD hash = 0;
    *this >> hash;
    if (hash != GetSimpleStringHash(text.GetBegin())) ThrowInvalid();
    return {hash, text};
  }

  // A string, as ReadString reads it. That one asserts that the announced bytes are there, which is the
  // writer's duty; these bytes are nobody's, so it is seen to first.
  String ReadText() {
    unsigned char form[8 + 120];  // of an id as long as most are; longer ones have memory of their own
    ReadData(form, 4);
    DWORD size = 0;
    for (unsigned i = 4; i-- > 0;) size = size << 8 | form[i];
    if (size == 0) return {};
    if (size > MAX_TEXT) ThrowInvalid();
    if (8 + size <= sizeof form) return ReadRest(form, size);
    Binary longer(form, 4);
    return ReadRest(longer.GetBuffer(8 + size), size);
  }

  // The code page and the text, behind the size in `form`.
  String ReadRest(unsigned char* form, DWORD size) {
    try {
      ReadData(form + 4, 4 + size);
    } catch (const Error&) {
      ThrowInvalid();
    }
    String text;
    if (text.Deserialize(form, 8 + size, 0) == 0) ThrowInvalid();
    return text;
  }

  // Look-ups rely on it.
  template <class Record>
  static void CheckOrder(const std::vector<Record>& records) {
    if (records.size() > 1 && !(records.end()[-2].id < records.back().id)) ThrowInvalid();
  }

  [[noreturn]] static void ThrowInvalid() {
    throw Error(ERROR_ARCHIVE_INVALID, "The data are not valid archive data.");
  }
};

}  // namespace

std::vector<ClassRecord> NormalizeClasses(const std::vector<ClassDescription>& descriptions) {
  std::vector<ClassRecord> records;
  std::map<HashedId, const ClassDescription*> classes;
  for (const ClassDescription& description : descriptions) {
    const bool isNew = classes.try_emplace(HashedId(description.classId), &description).second;
    ORM_ASSERT(isNew, "clsids.find(clsid) == clsids.end()", "src/shared/ClassManager", 1308);
  }
  records.reserve(classes.size());
  for (const auto& [id, description] : classes) {
    records.push_back({id, description->classData, NormalizeFaces(description->faces)});
  }
  return records;
}

const FaceRecord* FindFace(const std::vector<FaceRecord>& faces, const String& faceId) {
  const HashedId id(faceId);
  const auto place =
      std::lower_bound(faces.begin(), faces.end(), id,
                       [](const FaceRecord& face, const HashedId& key) { return face.id < key; });
  return place != faces.end() && !(id < place->id) ? &*place : nullptr;
}

bool HasFaces(const std::vector<FaceRecord>& faces, const std::vector<String>& faceIds) {
  return std::all_of(faceIds.begin(), faceIds.end(),
                     [&faces](const String& faceId) { return FindFace(faces, faceId) != nullptr; });
}

Binary WriteClassList(const std::vector<ClassRecord>& records) {
  Binary stream;
  if (records.empty()) return stream;
  WriteArchive archive(stream);
  archive << static_cast<DWORD>(records.size());
  for (const ClassRecord& record : records) {
    archive << record.id.text << record.id.hash << record.data << static_cast<DWORD>(record.faces.size());
    for (const FaceRecord& face : record.faces) archive << face.id.text << face.id.hash << face.data;
  }
  return stream;
}

std::vector<ClassRecord> ReadClassList(const Binary& data) {
  return data.IsEmpty() ? std::vector<ClassRecord>() : ClassListReader(data).Read();
}

}  // namespace orm
