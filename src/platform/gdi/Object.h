// Drawing objects and their handles. A handle is a 32-bit number (slot, kind, generation), so that it can be
// printed with %08x and a handle that outlives its object is noticed instead of meeting the slot's next user.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "kernel/NoMemory.h"
#include "win32/errors.h"
#include "win32/gdi.h"

namespace orm::platform::gdi {

using platform::OrNoMemory;  // around every entry point that needs memory

enum class Kind : std::uint8_t { Context = 1, Bitmap, Palette, Font, Brush };

class Object {
 public:
  explicit Object(Kind objectKind) : kind(objectKind) {}
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  // The lock of what is behind the object, which is held over a fork; null when there is none.
  virtual std::mutex* Lock() noexcept { return nullptr; }

  const Kind kind;
  std::atomic<int> selections{0};  // contexts that have it selected
  bool stock = false;              // set before the handle is given out
};

// Puts the object into the process's table. Null (ERROR_NOT_ENOUGH_MEMORY) when the table is full.
HGDIOBJ AddObject(std::shared_ptr<Object> object);

// The living object of a handle, or null.
std::shared_ptr<Object> FindObject(HGDIOBJ handle);

template <class T>
std::shared_ptr<T> Find(const void* handle) {
  auto object = FindObject(const_cast<void*>(handle));
  if (!object || object->kind != T::objectKind) return nullptr;
  return std::static_pointer_cast<T>(object);
}

// Find for the entry points: sets ERROR_INVALID_HANDLE when there is no such object.
template <class T>
std::shared_ptr<T> Require(const void* handle);

// Takes the handle out of the table; false when it was dead already, which is counted.
bool RemoveObject(HGDIOBJ handle);

// Reports a failure in the manner of the entry points.
void Fail(DWORD error);

template <class T>
std::shared_ptr<T> Require(const void* handle) {
  auto object = Find<T>(handle);
  if (!object) Fail(ERROR_INVALID_HANDLE);
  return object;
}

// Makes an object and its handle; the handle is null when the table is full.
template <class T, class... Args>
HGDIOBJ Make(Args&&... args) {
  return AddObject(std::make_shared<T>(std::forward<Args>(args)...));
}

class Brush final : public Object {
 public:
  static constexpr Kind objectKind = Kind::Brush;
  Brush(COLORREF brushColor, bool isNull) : Object(objectKind), color(brushColor), null(isNull) {}
  const COLORREF color;
  const bool null;
};

}  // namespace orm::platform::gdi
