// The class manager's lock as objects of a scope.
//
// Order of locks: the manager's critical section first, then the mutex of the shared cache, never the other
// way round. Component code that makes objects runs without the critical section; component code that lists
// classes or agrees to an unload runs with it.
#pragma once

#include <win32.h>

namespace orm {

class ClassLock {
 public:
  explicit ClassLock(CRITICAL_SECTION& rSection) : mrSection(rSection) { EnterCriticalSection(&mrSection); }
  ~ClassLock() { LeaveCriticalSection(&mrSection); }
  ClassLock(const ClassLock&) = delete;
  ClassLock& operator=(const ClassLock&) = delete;

 private:
  friend class ClassUnlock;
  CRITICAL_SECTION& mrSection;
};

// Gives the lock up for the rest of the scope and takes it again at its end, also when the scope is left by
// an exception.
class ClassUnlock {
 public:
  explicit ClassUnlock(ClassLock& rLock) : mrSection(rLock.mrSection) { LeaveCriticalSection(&mrSection); }
  ~ClassUnlock() { EnterCriticalSection(&mrSection); }
  ClassUnlock(const ClassUnlock&) = delete;
  ClassUnlock& operator=(const ClassUnlock&) = delete;

 private:
  CRITICAL_SECTION& mrSection;
};

}  // namespace orm
