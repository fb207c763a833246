// Thread objects: what the library knows of each thread, its named data, and its interruption.
#pragma once

#include <ormutil/FacePtr.h>

#include <map>

namespace orm {

// Stands for one thread. A thread obtains its own object with GetSelf; the object outlives the thread while
// somebody holds it. Interruption is cooperative: Interrupt signals an event on which every wait of the
// library waits as well, and which makes it throw an Error of code 0xE72D0002, "The thread was interrupted.".
// It stays signalled: every later wait of that thread throws too, unless the thread is a Runnable that resets
// it.
//
// The static operations act on the calling thread and touch only its own object. The instance operations may
// be called by any thread that holds the object.
class ORMUTIL_API Thread : public BaseFace {
 public:
  static constexpr const char* FACE_ID = "IID_Thread";

  // The system's relative priorities.
  enum PriorityType : int {
    PRIORITY_LOWEST = -2,
    PRIORITY_BELOW_NORMAL = -1,
    PRIORITY_NORMAL = 0,
    PRIORITY_ABOVE_NORMAL = 1,
    PRIORITY_HIGHEST = 2,
  };

  // Told, on the interrupting thread, that the thread on which it is registered is being interrupted, before
  // the thread's waits see it; for a thread that waits in a way that the library does not know.
  struct Interrupter : BaseFace {
    static constexpr const char* FACE_ID = "IID_Thread::Interrupter";
    virtual void OnInterrupt(const FacePtr<Thread>& rThread) = 0;

   protected:
    ~Interrupter() = default;
  };

  // A datum of a thread that wants to know when the thread's body begins (runnables only) and when the thread
  // ends; both are called on that thread.
  struct Notification : BaseFace {
    static constexpr const char* FACE_ID = "IID_Thread::Notification";
    virtual void OnThreadAttach() = 0;
    virtual void OnThreadDetach() = 0;

   protected:
    ~Notification() = default;
  };

  // The calling thread's object; never null. Made on first use for a thread that no Runnable started.
  static FacePtr<Thread> GetSelf();

  // Keeps `value` under `key` (not empty, case-sensitive) for the life of the thread, in place of what was
  // there; a null value removes the key. Throws std::bad_alloc, or an Error of code 0xE7210001 when the
  // system gives no means to keep the thread's object.
  static void SetData(const BaseString<MbcsTraits>& key, FacePtr<BaseFace> value);
  // Null when the key is absent.
  static FacePtr<BaseFace> GetData(const BaseString<MbcsTraits>& key);

  // Throws when the calling thread is interrupted.
  static void CheckInterrupted();

  // Registers the calling thread's interrupter, one at a time, until the returned cookie's last reference is
  // dropped, which must happen on this thread.
  static FacePtr<BaseFace> RegisterInterrupter(const FacePtr<Interrupter>& rInterrupter);

  // Sleeps `milliseconds` (0xFFFFFFFF: for ever). Throws when interrupted.
  static void Sleep(DWORD milliseconds);
  // The same, but returns early, with the flag set, when input of a kind in `wakeMask` (the QS_ constants)
  // has come into the thread's message queue. Reads no messages.
  static void MessageSleep(bool& rMessage, DWORD milliseconds, DWORD wakeMask);
  // Gives up the rest of the time slice. Throws when interrupted.
  static void Yield();

  bool IsInterrupted() const;
  void Interrupt();
  // Returns when the thread has ended. Not interruptible.
  void Wait();

  // Both throw an Error of code 0xE72D0001 over the system's when the platform refuses.
  PriorityType GetPriority() const;
  void SetPriority(PriorityType priority);

  DWORD GetId() const { return mId; }

 protected:
  struct KeyLess {
    bool operator()(const BaseString<MbcsTraits>& a, const BaseString<MbcsTraits>& b) const {
      return a.Compare(b.GetBegin()) < 0;
    }
  };
  using Data = std::map<BaseString<MbcsTraits>, FacePtr<BaseFace>, KeyLess>;

  Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  ~Thread();

  // Calls each datum that wants to know, in the order of the keys. They may change the thread's data; one
  // that is removed by another one before its turn is not called.
  void NotifyData(void (Notification::*call)());

  HANDLE mhThread = nullptr;
  DWORD mId = 0;
  HANDLE mhInterrupt = nullptr;
  Data mData;

 private:
  // A datum that was found by this very text, for the next look-up with it: keys are mostly strings that the
  // caller keeps, and the map's own key shares the block of the one it was made from.
  struct Recent {
    const char* text;
    FacePtr<BaseFace>* value;
  };
  static constexpr unsigned RECENT = 32;
  // A datum is in one of this many places, beginning with the one that its key's address names.
  static constexpr unsigned RECENT_PROBES = 4;

  // Null when the key is absent.
  FacePtr<BaseFace>* FindDatum(const BaseString<MbcsTraits>& key);
  // The same by the map alone; what it finds takes the place.
  FacePtr<BaseFace>* FindInMap(const BaseString<MbcsTraits>& key, Recent& rRecent);
  // The calling thread's object without a reference; null when it cannot be kept, for want of memory.
  static Thread* GetOwn();
  // The place of a key's text when it has one, else the one that it may take: a free one if possible.
  Recent& FindRecent(const char* text);

  Recent mRecent[RECENT] = {};

  friend class Event;
  friend class ThreadImpl;
  friend class InterrupterRegistration;
  friend bool ThreadAttachDetach(DWORD reason);
};

// The system's tick count in milliseconds; never 0 and never 0xFFFFFFFF, so that callers may use these as
// marks.
ORMUTIL_API DWORD GetNow();

}  // namespace orm
