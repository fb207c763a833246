// The smart pointer through which faces are held.
#pragma once

#include <ormutil/BaseFace.h>
#include <ormutil/BaseString.h>

#include <cstddef>
#include <utility>

namespace orm {

template <class T>
class FacePtr;

// Creates an object of the class and yields its face; with a server name the request may be routed to another
// process. Never null: throws an Error when the class is not registered or its objects lack the face. Any
// thread.
ORMUTIL_API FacePtr<BaseFace> CreateInstance(const BaseString<MbcsTraits>& server,
                                             const BaseString<MbcsTraits>& classId,
                                             const BaseString<MbcsTraits>& faceId);

// Holds one reference to a face of type T, or null. Copies add a reference, moves (and so returns by value)
// hand theirs over. One FacePtr is for one thread at a time; the object behind it may be shared.
template <class T>
class FacePtr {
 public:
  FacePtr() = default;
  // Adds a reference of its own; see Adopt for the creator's. Null and the literal 0 are pointers too.
  FacePtr(T* pFace) : mpFace(pFace) {
    if (mpFace) mpFace->AddRef();
  }
  FacePtr(const FacePtr& other) : FacePtr(other.mpFace) {}
  FacePtr(FacePtr&& other) noexcept : mpFace(other.Detach()) {}

  // Asks the object for T; null when the source is null or the object does not have the face.
  template <class U>
  FacePtr(const FacePtr<U>& other)
      : mpFace(other.Get() ? static_cast<T*>(other.Get()->QueryFace(T::FACE_ID)) : nullptr) {}

  // Creates an object of the class and takes its face T. Throws what CreateInstance throws.
  FacePtr(const BaseString<MbcsTraits>& classId, const BaseString<MbcsTraits>& server)
      : mpFace(static_cast<T*>(CreateInstance(server, classId, T::FACE_ID).Detach())) {
    ORM_ASSERT(mpFace != nullptr, "mpFace != 0", "src/include/FacePtr", 115);
  }

  ~FacePtr() { Release(); }

  FacePtr& operator=(const FacePtr& other) { return *this = other.mpFace; }
  FacePtr& operator=(FacePtr&& other) noexcept {
    FacePtr(std::move(other)).Swap(*this);
    return *this;
  }
  // Takes its reference before it drops the old one, so that assigning the held pointer is safe.
  FacePtr& operator=(T* pFace) {
    FacePtr(pFace).Swap(*this);
    return *this;
  }

  // Takes over a reference that the caller owns, such as that of a new object.
  static FacePtr Adopt(T* pFace) {
    FacePtr result;
    result.mpFace = pFace;
    return result;
  }
  // Hands the held reference to the caller and becomes null.
  T* Detach() { return std::exchange(mpFace, nullptr); }
  // Drops the reference and becomes null.
  void Release() {
    if (T* face = Detach()) face->Release();
  }

  T* Get() const { return mpFace; }
  // Adds a reference for a raw store, such as a thread-local slot, and yields the pointer (null when null).
  T* AddRef() const {
    if (mpFace) mpFace->AddRef();
    return mpFace;
  }

  T* operator->() const {
    AssertNotNull();
    return mpFace;
  }
  T& operator*() const {
    AssertNotNull();
    return *mpFace;
  }

  explicit operator bool() const { return mpFace != nullptr; }
  bool operator==(std::nullptr_t) const { return mpFace == nullptr; }
  // For the literal 0 only.
  bool operator==(int zero) const {
    ORM_ASSERT(zero == 0, "zero == 0", "src/include/FacePtr", 292);
    return mpFace == nullptr;
  }
  bool operator==(const FacePtr& other) const { return mpFace == other.mpFace; }

  void Swap(FacePtr& other) noexcept { std::swap(mpFace, other.mpFace); }

 private:
  void AssertNotNull() const { ORM_ASSERT(mpFace != nullptr, "mpFace != 0", "src/include/FacePtr", 217); }

  T* mpFace = nullptr;
};

}  // namespace orm
