// Classes as the class manager keeps them: with the hashes of their ids, in the order of (hash, id), and
// serialised for the shared cache.
#pragma once

#include <ormutil/ClassDescription.h>

namespace orm {

// A class id or face id with its hash. Ordered by the hash as an unsigned number and then by text, which
// makes most comparisons one of two integers; two ids are the same when both agree.
struct HashedId {
  DWORD hash;
  String text;

  explicit HashedId(const String& id) : hash(GetSimpleStringHash(id.GetBegin())), text(id) {}
  HashedId(DWORD idHash, const String& id) : hash(idHash), text(id) {}

  friend bool operator<(const HashedId& left, const HashedId& right) {
    return left.hash != right.hash ? left.hash < right.hash : left.text.Compare(right.text.GetBegin()) < 0;
  }
};

struct FaceRecord {
  HashedId id;
  Binary data;
};

// Faces are sorted by id, none twice.
struct ClassRecord {
  HashedId id;
  Binary data;
  std::vector<FaceRecord> faces;
};

// What a source described, sorted by id, none twice.
std::vector<ClassRecord> NormalizeClasses(const std::vector<ClassDescription>& descriptions);

// Null when the face is not there.
const FaceRecord* FindFace(const std::vector<FaceRecord>& faces, const String& faceId);
bool HasFaces(const std::vector<FaceRecord>& faces, const std::vector<String>& faceIds);

// The class list as an archive; an empty list is an empty buffer. Reading throws the archive's errors, also
// for a list that is not normalised, and treats its input as untrusted.
Binary WriteClassList(const std::vector<ClassRecord>& records);
std::vector<ClassRecord> ReadClassList(const Binary& data);

}  // namespace orm
