// A program of its own for what would end or spoil the test program; the first argument chooses.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TestRunnable.h"

using namespace orm;
using namespace test;

namespace {

// The errors of bodies and the end of a thread that never ran, as the trace tells them.
int Traces() {
  auto quiet = TestRunnable::Make([] { Thread::Sleep(INFINITE); });
  quiet->CreateThread(true, true);
  quiet->Interrupt();
  quiet->Wait();
  auto failing = TestRunnable::Make([] {
    Error error = MakeError(0xE7FF0001, "inner");
    error.AddLayer(0xE7FF0002, "outer", false);
    throw error;
  });
  failing->CreateThread(true, false);
  failing->Wait();
  auto unstarted = TestRunnable::Make([] {});
  unstarted->CreateThread(false, false);
  std::printf("%u\n", unstarted->GetId());
  return 0;
}

// No room for another stack: the creation fails, with an error, and a later one succeeds.
int Limit() {
  unsigned long pages = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (!file || std::fscanf(file, "%lu", &pages) != 1) return 2;
  std::fclose(file);
  const rlimit tight{pages * static_cast<unsigned long>(getpagesize()) + (1 << 20), RLIM_INFINITY};
  rlimit before{};
  getrlimit(RLIMIT_AS, &before);
  auto runnable = TestRunnable::Make([] {});
  setrlimit(RLIMIT_AS, &tight);
  const Error error = Caught([&] { runnable->CreateThread(true, true); });
  setrlimit(RLIMIT_AS, &before);
  const bool clear = error.GetLayerCount() == 2 && error.GetCode(0) == 0xE72D0001 &&
                     error.GetMessage(0) == "Failed to create new thread." && error.GetCode(1) != 0;
  if (!clear) std::printf("%u layers: %s\n", error.GetLayerCount(), error.Format().GetBegin());
  runnable->CreateThread(true, true);
  runnable->Wait();
  return clear ? 0 : 1;
}

class Deaf final : public FaceObject<Thread::Interrupter> {
  void OnInterrupt(const FacePtr<Thread>&) override {}
};

// Everything that an assertion guards; each is ignored and must do no harm.
int Misuse() {
  Thread::SetData("", nullptr);
  Thread::GetData("");
  const auto interrupter = FacePtr<Thread::Interrupter>(FacePtr<Deaf>::Adopt(new Deaf).Get());
  {
    const FacePtr<BaseFace> first = Thread::RegisterInterrupter(interrupter);
    const FacePtr<BaseFace> second = Thread::RegisterInterrupter(interrupter);
  }
  bool asExpected = true;
  const auto expect = [&](const Error& error, DWORD code, const char* text) {
    asExpected = asExpected && error.GetCode(0) == code && error.GetMessage(0) == text;
  };
  auto idle = TestRunnable::Make([] {});
  idle->ResetInterrupt();
  idle->Interrupt();
  idle->Wait();
  expect(Caught([&] { idle->GetPriority(); }), 0xE72D0001, "Failed to retrieve the thread's priority.");
  expect(Caught([&] { idle->SetPriority(Thread::PRIORITY_NORMAL); }), 0xE72D0001,
         "Failed to set the thread's priority.");
  for (const int priority : {-3, 3}) {
    const auto set = [&] { Thread::GetSelf()->SetPriority(static_cast<Thread::PriorityType>(priority)); };
    expect(Caught(set), 0xE7210001, "");
  }
  return asExpected ? 0 : 1;
}

int Foreign() {
  auto runnable = TestRunnable::Make([] { throw 5; });
  runnable->CreateThread(true, false);
  runnable->Wait();
  return 0;
}

// Leaves by exit while threads sleep, wait, spin, register and interrupt.
int ExitWhileWorkersRun() {
  static Event& never = *new Event(Event::MANUAL);  // the exit must not end it under its waiters
  for (int i = 0; i < 4; ++i) {
    TestRunnable::Make([] { Thread::Sleep(INFINITE); })->CreateThread(true, false);
    TestRunnable::Make([] { never.Wait(INFINITE); })->CreateThread(true, false);
    TestRunnable::Make([] {
      for (;;) Thread::Yield();
    })->CreateThread(true, true);
    const auto registering = TestRunnable::Make([] {
      for (;;) Thread::RegisterInterrupter(FacePtr<Thread::Interrupter>::Adopt(new Deaf));
    });
    registering->CreateThread(true, true);
    TestRunnable::Make([registering] {
      for (;;) registering->Interrupt();
    })->CreateThread(true, true);
  }
  std::exit(7);
}

// An interrupter that is still registered when the process ends. It goes when no thread has a slot any more,
// and uses the library then.
class Late final : public FaceObject<Thread::Interrupter> {
 public:
  explicit Late(FacePtr<Thread> thread) : mThread(std::move(thread)) {}

 private:
  ~Late() override {
    mThread->Interrupt();
    Thread::SetData("late", FacePtr<BaseFace>(Thread::GetSelf()));
    const bool kept = Thread::GetData("late") == FacePtr<BaseFace>(Thread::GetSelf());
    Thread::SetData("late", nullptr);
    Event(Event::MANUAL, true).Wait(0);
    [[maybe_unused]] const auto written = write(STDOUT_FILENO, kept ? "k" : "?", 1);
  }
  void OnInterrupt(const FacePtr<Thread>&) override {}

  FacePtr<Thread> mThread;
};

int ExitWithInterrupters() {
  for (int i = 0; i < 4; ++i) {
    const auto registering = [] {
      const auto interrupter = FacePtr<Thread::Interrupter>::Adopt(new Late(Thread::GetSelf()));
      Thread::SetData("registration", Thread::RegisterInterrupter(interrupter));
    };
    TestRunnable::Make([] { ::Sleep(INFINITE); }, registering)->CreateThread(true, true);
  }
  std::exit(7);
}

}  // namespace

int main(int, char** argv) {
  const char* what = argv[1] ? argv[1] : "";
  if (std::strcmp(what, "traces") == 0) return Traces();
  if (std::strcmp(what, "misuse") == 0) return Misuse();
  if (std::strcmp(what, "limit") == 0) return Limit();
  if (std::strcmp(what, "foreign") == 0) return Foreign();
  if (std::strcmp(what, "exit") == 0) return ExitWhileWorkersRun();
  if (std::strcmp(what, "late") == 0) return ExitWithInterrupters();
  return 2;
}
