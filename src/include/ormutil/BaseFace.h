// Faces: the interfaces through which objects are shared between modules, threads and component libraries.
//
// A face is an abstract class whose first three virtual operations are those of BaseFace. It is named by a
// face id, a string such as "IID_Thread". A face type declares its id as a static member and derives from
// BaseFace; an object is a class that derives from FaceObject over the faces that it implements:
//
//   struct Shape : BaseFace {
//     static constexpr const char* FACE_ID = "IID_Shape";
//     virtual double GetArea() = 0;
//   };
//   class Circle : public FaceObject<Shape> {
//     double GetArea() override { ... }
//   };
//
// A face that extends another face names it, so that objects answer both ids:
//
//   struct ColoredShape : Shape {
//     static constexpr const char* FACE_ID = "IID_ColoredShape";
//     using ParentFace = Shape;
//     virtual unsigned GetColor() = 0;
//   };
#pragma once

#include <ormutil/AtomicCounter.h>
#include <ormutil/Export.h>

namespace orm {

// The root face. The slot order is a binary contract.
struct BaseFace {
  static constexpr const char* FACE_ID = "IID_BaseFace";

  // Adds a reference; returns the new count.
  virtual DWORD AddRef() = 0;
  // Drops a reference; true when this call destroyed the object, which must not be touched afterwards in any
  // case.
  virtual bool Release() = 0;
  // The face of this object that `faceId` names, with one reference added for the caller, or null when the
  // object does not have it.
  virtual BaseFace* QueryFace(const char* faceId) = 0;

 protected:
  // Faces are destroyed by Release alone.
  ~BaseFace() = default;
};

// A requested face id with its hash: equal ids have equal hashes, so most comparisons are one of two
// integers.
class FaceId {
 public:
  ORMUTIL_API explicit FaceId(const char* text);

  // Whether this is the id that the face type T declares. The declared id's hash is computed on first use and
  // kept for the process; 0 means not yet, and two threads at once would store the same value.
  template <class T>
  bool Names() const {
    static DWORD declared = 0;
    DWORD hash = __atomic_load_n(&declared, __ATOMIC_RELAXED);
    if (hash == 0) {
      hash = Hash(T::FACE_ID);
      __atomic_store_n(&declared, hash, __ATOMIC_RELAXED);
    }
    return hash == mHash && HasText(T::FACE_ID);
  }

 private:
  ORMUTIL_API static DWORD Hash(const char* text);
  ORMUTIL_API bool HasText(const char* text) const;

  const char* mpText;
  DWORD mHash;
};

// Throws an Error with one layer: 0xE7230002, "The interface '<faceId>' is not supported.".
[[noreturn]] ORMUTIL_API void ThrowFaceNotSupportedError(const char* faceId);

// The standard implementation of an object with the given faces, the most derived one first; every face
// derives from BaseFace or from one other face alone, so that a face pointer and its BaseFace pointer are one
// address. Objects are made with `new` and one reference, which the creator's first FacePtr adopts. Any
// thread may count references and ask for faces.
template <class First, class... Others>
class FaceObject : public First, public Others... {
 public:
  FaceObject() = default;
  FaceObject(const FaceObject&) = delete;
  FaceObject& operator=(const FaceObject&) = delete;

  DWORD AddRef() override { return static_cast<DWORD>(++mReferences); }
  bool Release() override {
    if (--mReferences != 0) return false;
    delete this;
    return true;
  }
  BaseFace* QueryFace(const char* faceId) override {
    const FaceId id(faceId);
    BaseFace* face = nullptr;
    if (id.Names<BaseFace>()) {
      face = static_cast<First*>(this);
    } else {
      (void)(Match<First>(id, face) || (Match<Others>(id, face) || ...));
    }
    if (face) AddRef();  // whatever the object makes of it
    return face;
  }

 protected:
  virtual ~FaceObject() = default;

 private:
  template <class Face>
  bool Match(const FaceId& id, BaseFace*& rFace) {
    if (!NamesFaceOrParent<Face>(id)) return false;
    rFace = static_cast<Face*>(this);
    return true;
  }
  template <class Face>
  static bool NamesFaceOrParent(const FaceId& id) {
    if (id.Names<Face>()) return true;
    if constexpr (requires { typename Face::ParentFace; }) {
      return NamesFaceOrParent<typename Face::ParentFace>(id);
    } else {
      return false;
    }
  }

  AtomicCounter mReferences{1};
};

}  // namespace orm
