// The process's queue of what happens in the folders that it watches. The system grants a user only some
// queues, for all of his processes, so all notifications of a process share one: whoever looks reads it for
// all of them.
#pragma once

#include <sys/inotify.h>
#include <sys/types.h>

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>

namespace orm::platform {

class ChangeQueue;
std::mutex& ChangeLock() noexcept;

// Who wants to know. All is called under the queue's lock.
class ChangeListener {
 public:
  // What happened in or to a folder that it watches, by the path that it gave for it. Nothing may be lost for
  // want of memory, hence neither function throws.
  virtual void Hear(ChangeQueue& queue, const inotify_event& event, const std::string& folder) noexcept = 0;
  // Events were lost, or its watches are gone, in a child made by fork: it watches anew, and does not know
  // what it has missed.
  virtual void BeginAnew(ChangeQueue& queue) noexcept = 0;

 protected:
  ~ChangeListener() = default;
};

// The operations are those of a Use, which holds the lock.
class ChangeQueue {
 public:
  class Use;

  // Readable when there may be something to read; -1 while nobody watches.
  static int Descriptor() noexcept;

  // Watches a folder for a listener, for these kinds of events at least; 0 or an errno value, ENOSPC when the
  // user has no more watches or queues. What has not been read yet of a folder that is watched already is
  // told to it as well.
  int Add(ChangeListener& listener, const std::string& folder, uint32_t mask);
  void Remove(ChangeListener& listener) noexcept;
  // Tells all listeners what has happened so far.
  void Read() noexcept;

 private:
  struct Watch {
    std::map<ChangeListener*, std::string> listeners;  // and each one's path
  };

  friend std::mutex& ChangeLock() noexcept;

  static ChangeQueue& Get();
  int Open() noexcept;
  void DropUnheard(int watch) noexcept;
  bool ReadSome() noexcept;
  void Tell(const inotify_event& event) noexcept;
  void BeginAnew() noexcept;
  void BeginAnewAfterFork() noexcept;

  std::mutex mLock;
  std::atomic<int> mDescriptor{-1};
  pid_t mProcess = 0;
  std::set<ChangeListener*> mListeners;
  std::map<int, Watch> mWatches;
};

// The queue, for one operation or several. In a child made by fork it is a new one.
class ChangeQueue::Use {
 public:
  Use();
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  ChangeQueue* operator->() const noexcept { return &mQueue; }
  ChangeQueue& operator*() const noexcept { return mQueue; }

 private:
  ChangeQueue& mQueue;
  const std::lock_guard<std::mutex> mHeld;
};

}  // namespace orm::platform
