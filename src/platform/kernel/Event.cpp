// Events. Setting one that nobody waits for is one interlocked step, and so is taking an automatic one.
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"
#include "kernel/Waitable.h"
#include "win32/kernel.h"

namespace orm::platform {
namespace {

class Event final : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kEvent;

  Event(bool manual, bool signalled) noexcept : Waitable(kKind, signalled), mManual(manual) {}

  void Set() noexcept { Signal(); }
  void Reset() noexcept { Unsignal(); }

  Acquired TryAcquire(const WaitNode& request) noexcept override {
    uint32_t state = mState.load(std::memory_order_acquire);
    if ((state & kSignalled) == 0) return Acquired::kNo;
    if (mManual) return Acquired::kYes;
    while ((state & (kSignalled | kLocked)) == kSignalled) {
      if (mState.compare_exchange_weak(state, state & ~kSignalled, std::memory_order_acquire,
                                       std::memory_order_acquire)) {
        return Acquired::kYes;
      }
    }
    return Waitable::TryAcquire(request);
  }

 protected:
  Acquired Consume(const WaitNode&) noexcept override {
    if (!mManual) mState.fetch_and(~kSignalled, std::memory_order_acquire);
    return Acquired::kYes;
  }

 private:
  const bool mManual;
};

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL manualReset, BOOL initialState, const char* name) noexcept {
  return OrNoMemory<HANDLE>(nullptr, [&]() -> HANDLE {
    if (name != nullptr && *name != '\0') {
      tlsLastError = ERROR_NOT_SUPPORTED;
      return nullptr;
    }
    const HANDLE handle = AllocateHandle(MakeRef<Event>(manualReset != FALSE, initialState != FALSE));
    if (handle != nullptr) tlsLastError = ERROR_SUCCESS;
    return handle;
  });
}

BOOL SetEvent(HANDLE handle) noexcept {
  const HandlePin pin(handle);
  auto* const event = PinnedAs<Event>(pin);
  if (event == nullptr) return FALSE;
  event->Set();
  return TRUE;
}

BOOL ResetEvent(HANDLE handle) noexcept {
  const HandlePin pin(handle);
  auto* const event = PinnedAs<Event>(pin);
  if (event == nullptr) return FALSE;
  event->Reset();
  return TRUE;
}
