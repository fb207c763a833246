// What a source of classes (a component library or a class factory) tells the class manager about a class.
#pragma once

#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>

#include <vector>

namespace orm {

// One face that the objects of a class answer. The member order is a binary contract with component
// libraries, here and below.
struct FaceDescription {
  BaseString<MbcsTraits> faceId;  // "IID_..."
  Binary faceData;                // opaque bytes attached to this face of this class; may be empty
};

// One class. Naming a face twice is allowed: data of a later description replace those of an earlier one
// unless they are empty. Naming a class twice within one source is a programming error; the first
// description is kept.
struct ClassDescription {
  BaseString<MbcsTraits> classId;  // by convention "CID_" and a name
  Binary classData;                // opaque bytes, handed back by ClassInfo::GetClassData; may be empty
  std::vector<FaceDescription> faces;
};

}  // namespace orm
