// A system event whose waits end when the waiting thread is interrupted.
#pragma once

#include <ormutil/Thread.h>

namespace orm {

// Owns one unnamed system event. Any thread may set, reset and wait at any time.
class ORMUTIL_API Event {
 public:
  // MANUAL stays signalled until it is reset and wakes all waiters; AUTOMATIC is reset by the one waiter that
  // it wakes.
  enum Kind { MANUAL, AUTOMATIC };

  // Throws 0xE72D0001 over the system's error when the platform has no event to give.
  explicit Event(Kind kind, bool signalled = false);
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set();
  void Reset();

  // Waits up to `timeout` milliseconds (0xFFFFFFFF: for ever): true when the event was signalled, false on
  // time-out. Throws 0xE72D0002 when the calling thread is interrupted, 0xE72D0001 over the system's error
  // when the wait fails. A signalled event goes before an interruption.
  bool Wait(DWORD timeout);
  // The same, but input of a kind in `wakeMask` (the QS_ constants) in the calling thread's message queue
  // ends it too: the flag is then set and the result true. Reads no messages. Event before interruption
  // before input.
  bool MessageWait(bool& rMessage, DWORD timeout, DWORD wakeMask);

 private:
  HANDLE mhEvent;
};

}  // namespace orm
