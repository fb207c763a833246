// A wait on handles, with the calling thread's message queue as an optional last object.
#pragma once

#include <memory>
#include <span>

#include "kernel/ThreadRecord.h"
#include "kernel/WaitOperation.h"
#include "win32/kernel.h"

namespace orm::platform {

class WaitHandles {
 public:
  // The result as the waiting calls return it. `mask` and `fresh` are what the queue is asked for.
  static DWORD Wait(std::span<const HANDLE> handles, bool all, DWORD milliseconds, Waitable* queue = nullptr,
                    uint32_t mask = 0, bool fresh = true) noexcept;

 private:
  explicit WaitHandles(ThreadRecord& thread) noexcept : mThread(thread) {}
  ~WaitHandles();

  bool Add(HANDLE handle) noexcept;
  void AddQueue(Waitable& queue, uint32_t mask, bool fresh) noexcept;
  WaitResult TryFirst() noexcept;
  DWORD WaitForAll(DWORD milliseconds) noexcept;
  void Keep(uint32_t index, Acquired outcome) noexcept;
  std::span<WaitNode> Nodes() noexcept { return {NodeArray(), mNodeCount}; }
  HandlePin* Pins() noexcept { return reinterpret_cast<HandlePin*>(mPins); }
  WaitNode* NodeArray() noexcept { return reinterpret_cast<WaitNode*>(mNodes); }

  // Room for the most that a wait may name, of which only what is used is built.
  static constexpr size_t kMost = MAXIMUM_WAIT_OBJECTS + 1;
  ThreadRecord& mThread;
  uint32_t mPinCount = 0;
  uint32_t mMutexCount = 0;
  uint32_t mNodeCount = 0;
  alignas(HandlePin) std::byte mPins[kMost * sizeof(HandlePin)];
  alignas(WaitNode) std::byte mNodes[kMost * sizeof(WaitNode)];
};

}  // namespace orm::platform
