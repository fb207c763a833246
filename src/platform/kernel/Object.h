// Kernel objects and the handle table: every HANDLE of the process names one counted object here.
//
// A handle value carries the slot's generation, so a closed handle never names the slot's next tenant and
// closing it twice is noticed. A look-up takes no lock: it pins the slot (one interlocked step), and a handle
// that is closed while pinned goes when the last pin does.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "win32/errors.h"
#include "win32/types.h"

namespace orm::platform {

enum class ObjectKind : uint8_t {
  kEvent,
  kThread,
  kMutex,
  kNamedMutex,
  kSection,
  kMessageQueue,
  kFile,
  kFileSearch,
  kChangeNotification,
};

// Base of all kernel objects: an intrusive count that starts at 1, and a kind that look-ups check.
class KernelObject {
 public:
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;

  void AddRef() const noexcept { mReferences.fetch_add(1, std::memory_order_relaxed); }
  void Release() const noexcept {
    if (mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  ObjectKind Kind() const noexcept { return mKind; }
  bool IsWaitable() const noexcept { return mWaitable; }
  // The descriptor of the file that the object stands for, -1 for other objects; it stays the object's own.
  virtual int FileDescriptor() const noexcept { return -1; }
  // Told of each handle that the object gets and loses, for objects whose name goes with the last handle and
  // not with the last reference. False when that has happened: there are no handles to such an object any
  // more.
  virtual bool OnHandleOpened() noexcept { return true; }
  virtual void OnHandleClosed() noexcept {}

 protected:
  explicit KernelObject(ObjectKind kind, bool waitable = false) noexcept : mKind(kind), mWaitable(waitable) {}
  virtual ~KernelObject() = default;

 private:
  mutable std::atomic<uint32_t> mReferences{1};
  const ObjectKind mKind;
  const bool mWaitable;
};

// Counted reference to a kernel object.
template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}
  explicit Ref(T* object) noexcept : mObject(object) {
    if (object != nullptr) object->AddRef();
  }
  Ref(const Ref& other) noexcept : Ref(other.mObject) {}
  Ref(Ref&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
  template <class U>
  Ref(Ref<U> other) noexcept : mObject(other.Detach()) {}
  ~Ref() {
    if (mObject != nullptr) mObject->Release();
  }
  Ref& operator=(Ref other) noexcept {
    std::swap(mObject, other.mObject);
    return *this;
  }
  // Takes over a reference that the caller holds.
  static Ref Adopt(T* object) noexcept {
    Ref result;
    result.mObject = object;
    return result;
  }
  T* Detach() noexcept { return std::exchange(mObject, nullptr); }
  T* get() const noexcept { return mObject; }
  T* operator->() const noexcept { return mObject; }
  T& operator*() const noexcept { return *mObject; }
  explicit operator bool() const noexcept { return mObject != nullptr; }

 private:
  T* mObject = nullptr;
};

template <class T, class... Arguments>
Ref<T> MakeRef(Arguments&&... arguments) {
  return Ref<T>::Adopt(new T(std::forward<Arguments>(arguments)...));
}

struct HandleSlot;

// Keeps the object behind a handle alive for the length of an operation, without touching its count.
class HandlePin {
 public:
  HandlePin() noexcept = default;
  // Empty when the handle names nothing (ERROR_INVALID_HANDLE), or the calling thread, which there is no
  // memory for (ERROR_NOT_ENOUGH_MEMORY).
  explicit HandlePin(HANDLE handle) noexcept;
  HandlePin(HandlePin&& other) noexcept
      : mSlot(std::exchange(other.mSlot, nullptr)), mObject(std::exchange(other.mObject, nullptr)) {}
  HandlePin& operator=(HandlePin&& other) noexcept {
    std::swap(mSlot, other.mSlot);
    std::swap(mObject, other.mObject);
    return *this;
  }
  ~HandlePin() {
    if (mSlot != nullptr) Unpin();
  }
  KernelObject* get() const noexcept { return mObject; }
  explicit operator bool() const noexcept { return mObject != nullptr; }

 private:
  void Unpin() noexcept;

  HandleSlot* mSlot = nullptr;  // null for pseudo handles, whose object the calling thread keeps
  KernelObject* mObject = nullptr;
};

// Gives the object a handle, which owns one reference. Null with ERROR_NO_SYSTEM_RESOURCES when the table is
// full, with ERROR_NOT_ENOUGH_MEMORY when it cannot grow, with ERROR_INVALID_HANDLE when the object has lost
// its last handle meanwhile.
HANDLE AllocateHandle(Ref<KernelObject> object) noexcept;
// Closes one handle; false with ERROR_INVALID_HANDLE when it names nothing.
bool ReleaseHandle(HANDLE handle) noexcept;
// The object behind the handle for comparison only: it may be gone already. Null when the handle names
// nothing.
const KernelObject* PeekHandle(HANDLE handle) noexcept;
uint32_t OpenHandleCount() noexcept;

void SetLastErrorCode(DWORD code) noexcept;

// A reference to the object behind the handle if it is of T's kind; otherwise null with ERROR_INVALID_HANDLE.
// T declares `static constexpr ObjectKind kKind`.
template <class T>
Ref<T> ReferenceHandle(HANDLE handle) noexcept {
  HandlePin pin(handle);
  if (!pin) return nullptr;
  if (pin.get()->Kind() == T::kKind) return Ref<T>(static_cast<T*>(pin.get()));
  SetLastErrorCode(ERROR_INVALID_HANDLE);
  return nullptr;
}

// The pinned object as a T; null for another kind (ERROR_INVALID_HANDLE) and for an empty pin, whose error
// stays.
template <class T>
T* PinnedAs(const HandlePin& pin) noexcept {
  if (!pin) return nullptr;
  if (pin.get()->Kind() == T::kKind) return static_cast<T*>(pin.get());
  SetLastErrorCode(ERROR_INVALID_HANDLE);
  return nullptr;
}

}  // namespace orm::platform
