// Thread objects, events and interruption beside the standard library's threads.
#include <ormutil/Event.h>
#include <ormutil/Runnable.h>

#include <atomic>
#include <condition_variable>
#include <latch>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "harness/Rooms.h"

namespace {

using namespace orm;

class Job : public FaceObject<Runnable> {
 public:
  explicit Job(std::function<void()> run) : mRun(std::move(run)) {}

 private:
  void Run() override { mRun(); }
  std::function<void()> mRun;
};

FacePtr<Job> Start(std::function<void()> run) {
  auto job = FacePtr<Job>::Adopt(new Job(std::move(run)));
  job->CreateThread(true, true);
  return job;
}

// Two threads hand a token to and fro; each hand-over is one set and one wake.
void EventPingPong(size_t n) {
  Event ping(Event::AUTOMATIC), pong(Event::AUTOMATIC);
  auto partner = Start([&, n] {
    for (size_t i = 0; i < n; ++i) {
      ping.Wait(INFINITE);
      pong.Set();
    }
  });
  for (size_t i = 0; i < n; ++i) {
    ping.Set();
    pong.Wait(INFINITE);
  }
  partner->Wait();
}

class Signal {
 public:
  void Set() {
    const std::lock_guard lock(mMutex);
    mSet = true;
    mCondition.notify_one();
  }
  void Wait() {
    std::unique_lock lock(mMutex);
    mCondition.wait(lock, [this] { return mSet; });
    mSet = false;
  }

 private:
  std::mutex mMutex;
  std::condition_variable mCondition;
  bool mSet = false;
};

void ConditionPingPong(size_t n) {
  Signal ping, pong;
  std::thread partner([&, n] {
    for (size_t i = 0; i < n; ++i) {
      ping.Wait();
      pong.Set();
    }
  });
  for (size_t i = 0; i < n; ++i) {
    ping.Set();
    pong.Wait();
  }
  partner.join();
}

// From the interruption to the sleeper's catch block, which says that it was reached.
void InterruptSleeper(size_t n) {
  while (n--) {
    std::atomic<bool> caught = false;
    auto sleeper = Start([&] {
      try {
        Thread::Sleep(INFINITE);
      } catch (const Error&) {
        caught = true;
        caught.notify_one();
      }
    });
    sleeper->Interrupt();
    caught.wait(false);
    sleeper->Wait();
  }
}

void StopSleeper(size_t n) {
  while (n--) {
    std::atomic<bool> caught = false;
    std::latch started(1);
    std::jthread sleeper([&](const std::stop_token& token) {
      started.count_down();
      std::mutex mutex;
      std::condition_variable_any condition;
      std::unique_lock lock(mutex);
      try {
        if (!condition.wait(lock, token, [] { return false; })) throw std::runtime_error("stopped");
      } catch (const std::exception&) {
        caught = true;
        caught.notify_one();
      }
    });
    started.wait();
    sleeper.request_stop();
    caught.wait(false);
  }
}

void CreateAndWait(size_t n) {
  while (n--) Start([] {})->Wait();
}

void CreateAndJoin(size_t n) {
  while (n--) {
    std::latch started(1);
    std::jthread thread([&] { started.count_down(); });
    started.wait();
  }
}

thread_local std::atomic<int>* current = nullptr;
std::atomic<int> count{1};

class Plain : public FaceObject<BaseFace> {};

void AddDataRow(bench::Table& table) {
  static std::vector<String> keys;
  static std::vector<std::string> names;
  for (int i = 0; i < 10; ++i) {
    names.push_back("TID_Item" + std::to_string(i));
    keys.emplace_back(names.back().c_str());
  }
  static const auto datum = FacePtr<BaseFace>::Adopt(new Plain);
  table.Add(bench::Row{.name = "SetData and GetData, 10 keys",
                       .peer = "thread_local std::map of std::shared_ptr",
                       .goal = 1.0,
                       .ours =
                           [](size_t n) {
                             for (size_t i = 0; i < n; ++i) {
                               Thread::SetData(keys[i % 10], datum);
                               bench::Keep(Thread::GetData(keys[(i + 3) % 10]));
                             }
                           },
                       .theirs =
                           [](size_t n) {
                             static thread_local std::map<std::string, std::shared_ptr<void>> data;
                             static const std::shared_ptr<void> item = std::make_shared<int>(1);
                             for (size_t i = 0; i < n; ++i) {
                               data[names[i % 10]] = item;
                               const auto found = data.find(names[(i + 3) % 10]);
                               bench::Keep(found == data.end() ? nullptr : found->second);
                             }
                           }});
}

}  // namespace

void AddThreadRows(bench::Table& table) {
  table.Add(bench::Row{.name = "event set to waiter running, interruptible wait",
                       .peer = "std::condition_variable notify to wake",
                       .goal = 1.1,
                       .ours = EventPingPong,
                       .theirs = ConditionPingPong});
  table.Add(bench::Row{.name = "interrupt to the sleeper's catch block",
                       .peer = "std::jthread request_stop, condition_variable_any",
                       .goal = 1.0,
                       .ours = InterruptSleeper,
                       .theirs = StopSleeper,
                       .note = "both include making and ending the thread"});
  table.Add(bench::Row{.name = "create, start with hand-shake, run nothing, wait",
                       .peer = "std::jthread create and join with a latch",
                       .goal = 1.5,
                       .ours = CreateAndWait,
                       .theirs = CreateAndJoin});
  current = &count;
  table.Add(bench::Row{.name = "GetSelf",
                       .peer = "thread_local read, one increment and decrement",
                       .goal = 2.0,
                       .ours =
                           [](size_t n) {
                             while (n--) bench::Keep(Thread::GetSelf().Get());
                           },
                       .theirs =
                           [](size_t n) {
                             while (n--) {
                               auto* mine = current;
                               ++*mine;
                               bench::Keep(mine);
                               --*mine;
                             }
                           }});
  AddDataRow(table);
}
