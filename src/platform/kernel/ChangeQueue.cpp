// Reading the system's queue of folder events and telling them to the listeners.
#include "kernel/ChangeQueue.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

namespace orm::platform {

ChangeQueue& ChangeQueue::Get() {
  static ChangeQueue& queue = *new ChangeQueue;
  return queue;
}

std::mutex& ChangeLock() noexcept {
  return ChangeQueue::Get().mLock;
}

ChangeQueue::Use::Use() : mQueue(Get()), mHeld(mQueue.mLock) {
  if (mQueue.mProcess != getpid()) mQueue.BeginAnewAfterFork();
}

int ChangeQueue::Descriptor() noexcept {
  return Get().mDescriptor.load(std::memory_order_relaxed);
}

// The descriptor is shared with the parent: reading it would take the parent's events away.
void ChangeQueue::BeginAnewAfterFork() noexcept {
  mProcess = getpid();
  if (const int descriptor = mDescriptor.exchange(-1, std::memory_order_relaxed); descriptor >= 0)
    close(descriptor);
  mWatches.clear();
  BeginAnew();
}

int ChangeQueue::Open() noexcept {
  if (Descriptor() >= 0) return 0;
  const int descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  // The system does not tell the process's limit of descriptors from the user's of queues.
  if (descriptor < 0) return errno == EMFILE || errno == ENFILE ? ENOSPC : errno;
  mDescriptor.store(descriptor, std::memory_order_relaxed);
  return 0;
}

int ChangeQueue::Add(ChangeListener& listener, const std::string& folder, uint32_t mask) {
  mListeners.insert(&listener);
  if (const int error = Open(); error != 0) return error;
  // Others who watch the same folder keep what they asked for.
  const int watch = inotify_add_watch(Descriptor(), folder.c_str(), mask | IN_ONLYDIR | IN_MASK_ADD);
  if (watch < 0) return errno;
  try {
    mWatches[watch].listeners[&listener] = folder;
  } catch (...) {
    DropUnheard(watch);
    throw;
  }
  return 0;
}

// Ends a watch that has no listener.
void ChangeQueue::DropUnheard(int watch) noexcept {
  const auto entry = mWatches.find(watch);
  if (entry != mWatches.end() && !entry->second.listeners.empty()) return;
  inotify_rm_watch(Descriptor(), watch);
  if (entry != mWatches.end()) mWatches.erase(entry);
}

void ChangeQueue::Remove(ChangeListener& listener) noexcept {
  mListeners.erase(&listener);
  for (auto entry = mWatches.begin(); entry != mWatches.end();) {
    auto& [watch, watched] = *entry;
    if (watched.listeners.erase(&listener) != 0 && watched.listeners.empty()) {
      inotify_rm_watch(Descriptor(), watch);
      entry = mWatches.erase(entry);
    } else {
      ++entry;
    }
  }
}

void ChangeQueue::Read() noexcept {
  while (ReadSome()) continue;
}

// One buffer full of events; false when there are none.
bool ChangeQueue::ReadSome() noexcept {
  alignas(inotify_event) char buffer[4096];
  const ssize_t size = read(Descriptor(), buffer, sizeof buffer);
  if (size <= 0) return size < 0 && errno == EINTR;
  for (ssize_t at = 0; at < size;) {
    const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
    Tell(*event);
    at += static_cast<ssize_t>(sizeof *event + event->len);
  }
  return true;
}

void ChangeQueue::Tell(const inotify_event& event) noexcept try {
  if ((event.mask & IN_Q_OVERFLOW) != 0) return BeginAnew();
  const auto watched = mWatches.find(event.wd);
  if (watched == mWatches.end()) return;
  // A copy: a listener may watch another folder in answer, or the same one by another path.
  const auto listeners = watched->second.listeners;
  if ((event.mask & IN_IGNORED) != 0) mWatches.erase(watched);
  for (const auto& [listener, folder] : listeners) listener->Hear(*this, event, folder);
} catch (const std::bad_alloc&) {
  BeginAnew();
}

void ChangeQueue::BeginAnew() noexcept {
  for (ChangeListener* listener : mListeners) listener->BeginAnew(*this);
}

}  // namespace orm::platform
