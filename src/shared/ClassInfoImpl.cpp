// Answering questions about one class.
#include "ClassInfoImpl.h"

#include "ClassLibrary.h"

namespace orm {

ClassInfoImpl::ClassInfoImpl(ClassManagerImpl& rManager, ClassEntry& rEntry)
    : mpManager(&rManager), mpEntry(&rEntry) {
  rManager.GetRegistry().AddExternalReference(rEntry);
}

ClassInfoImpl::~ClassInfoImpl() {
  ClassManagerImpl* pManager = ClassManagerImpl::GetCurrent();
  if (!pManager) return;
  const ClassLock lock(pManager->GetLock());
  pManager->GetRegistry().DropExternalReference(*mpEntry);
}

template <class Ask>
auto ClassInfoImpl::Query(Ask ask) const {
  using Answer = decltype(ask(std::declval<const Registration&>()));
  ClassManagerImpl* pManager = ClassManagerImpl::GetCurrent();
  if (!pManager) return Answer{};
  const ClassLock lock(pManager->GetLock());
  pManager->Synchronize();
  const Registration* pCurrent = mpEntry->GetCurrent();
  return pCurrent ? ask(*pCurrent) : Answer{};
}

String ClassInfoImpl::GetClassId() {
  return Query([this](const Registration&) { return mpEntry->GetId().text; });
}

void ClassInfoImpl::EnumFaces(std::vector<String>& faceIds) {
  faceIds = Query([](const Registration& registration) {
    std::vector<String> result;
    for (const FaceRecord& face : registration.mFaces) result.push_back(face.id.text);
    return result;
  });
}

bool ClassInfoImpl::IsFaceSupported(const String& faceId) {
  return Query(
      [&](const Registration& registration) { return FindFace(registration.mFaces, faceId) != nullptr; });
}

bool ClassInfoImpl::AreFacesSupported(const std::vector<String>& faceIds) {
  return Query([&](const Registration& registration) { return HasFaces(registration.mFaces, faceIds); });
}

Binary ClassInfoImpl::GetClassData() {
  return Query([](const Registration& registration) { return registration.mClassData; });
}

Binary ClassInfoImpl::GetFaceData(const String& faceId) {
  return Query([&](const Registration& registration) {
    const FaceRecord* pFace = FindFace(registration.mFaces, faceId);
    return pFace ? pFace->data : Binary();
  });
}

String ClassInfoImpl::GetLibraryPath() {
  return Query([](const Registration& registration) {
    return registration.mpLibrary ? registration.mpLibrary->GetPath() : String();
  });
}

}  // namespace orm
