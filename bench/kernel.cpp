// Kernel objects beside what the system offers for the same: named mutexes, signalled events, waits for
// several.
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include "harness/Rooms.h"
#include "win32/kernel.h"

namespace {

// A robust process-shared mutex in memory of its own.
class RobustMutex {
 public:
  RobustMutex() {
    void* const memory =
        mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    mMutex = static_cast<pthread_mutex_t*>(memory);
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(mMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~RobustMutex() { munmap(mMutex, sizeof(pthread_mutex_t)); }
  RobustMutex(const RobustMutex&) = delete;
  RobustMutex& operator=(const RobustMutex&) = delete;

  void LockAndUnlock(size_t n) {
    while (n-- != 0) {
      pthread_mutex_lock(mMutex);
      pthread_mutex_unlock(mMutex);
    }
  }

 private:
  pthread_mutex_t* mMutex;
};

// A handle for as long as the operation that holds it is kept.
std::shared_ptr<void> Share(HANDLE handle) {
  return {handle, CloseHandle};
}

bench::Sides PrepareMutexes() {
  return {[mutex = Share(CreateMutexA(nullptr, FALSE, "orm-bench"))](size_t n) {
            while (n-- != 0) {
              WaitForSingleObject(mutex.get(), INFINITE);
              ReleaseMutex(mutex.get());
            }
          },
          [mutex = std::make_shared<RobustMutex>()](size_t n) { mutex->LockAndUnlock(n); }};
}

void SignalledEventRounds(size_t n) {
  const HANDLE event = CreateEventA(nullptr, TRUE, TRUE, nullptr);
  while (n-- != 0) WaitForSingleObject(event, INFINITE);
  CloseHandle(event);
}

void SemaphoreRounds(size_t n) {
  sem_t semaphore;
  sem_init(&semaphore, 0, 1);
  while (n-- != 0) {
    sem_trywait(&semaphore);
    sem_post(&semaphore);
  }
  sem_destroy(&semaphore);
}

// Two threads in turn: one sets the last of `count` objects, the other, which waits for them all, answers.
void WaitForManyRounds(size_t count, size_t n) {
  std::vector<HANDLE> events;
  for (size_t i = 0; i < count; ++i) events.push_back(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  const HANDLE answer = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  std::thread waiter([&] {
    for (size_t i = 0; i < n; ++i) {
      WaitForMultipleObjects(static_cast<DWORD>(count), events.data(), FALSE, INFINITE);
      SetEvent(answer);
    }
  });
  for (size_t i = 0; i < n; ++i) {
    SetEvent(events.back());
    WaitForSingleObject(answer, INFINITE);
  }
  waiter.join();
  for (const HANDLE event : events) CloseHandle(event);
  CloseHandle(answer);
}

void Add(int descriptor) {
  const uint64_t one = 1;
  [[maybe_unused]] const auto written = write(descriptor, &one, sizeof(one));
}

void Take(int descriptor) {
  uint64_t value;
  [[maybe_unused]] const auto got = read(descriptor, &value, sizeof(value));
}

void PollManyRounds(size_t count, size_t n) {
  std::vector<pollfd> descriptors;
  for (size_t i = 0; i < count; ++i) descriptors.push_back({eventfd(0, EFD_CLOEXEC), POLLIN, 0});
  const int answer = eventfd(0, EFD_CLOEXEC);
  std::thread waiter([&] {
    for (size_t i = 0; i < n; ++i) {
      poll(descriptors.data(), descriptors.size(), -1);
      Take(descriptors.back().fd);
      Add(answer);
    }
  });
  for (size_t i = 0; i < n; ++i) {
    Add(descriptors.back().fd);
    Take(answer);
  }
  waiter.join();
  for (const pollfd& descriptor : descriptors) close(descriptor.fd);
  close(answer);
}

}  // namespace

void AddKernelRows(bench::Table& table) {
  table.Add({.name = "named mutex, uncontended lock and unlock",
             .peer = "robust process-shared pthread_mutex",
             .goal = 1.5,
             .prepare = PrepareMutexes,
             .note = "the peer is the limit: the named mutex locks such a mutex, behind a handle"});
  table.Add({.name = "wait on a signalled event, handle only",
             .peer = "sem_trywait + sem_post",
             .goal = 3.0,
             .ours = SignalledEventRounds,
             .theirs = SemaphoreRounds});
  for (const size_t count : {size_t{1}, size_t{8}, size_t{64}}) {
    table.Add({.name = "wait for " + std::to_string(count) + " events, set by another thread",
               .peer = "eventfd and poll over as many",
               .goal = 0.7,
               .ours = [count](size_t n) { WaitForManyRounds(count, n); },
               .theirs = [count](size_t n) { PollManyRounds(count, n); }});
  }
}
