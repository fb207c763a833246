// A program of its own that traces: "log COUNT" writes lines, "assert" fails an assertion, "watch" writes a
// line for each line that it reads and says so, "tear FILE" dies in the middle of a line of that log, "exit"
// leaves while threads trace and does so itself at the very end, "fork" has children that trace, made while a
// thread does.
#include <ormutil/Trace.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "support/Child.h"

namespace {

constinit orm::TraceArea area{"writer"};

// What a process has done that is killed between the two pages over which its line goes.
void Tear(const std::string& log) {
  std::string name = log + "ph:tdbg_trace:fileprotect";
  for (char& c : name) c = c == '\\' ? '/' : c;
  WaitForSingleObject(CreateMutexA(nullptr, FALSE, name.c_str()), INFINITE);
  HANDLE file = CreateFileA(log.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_ALWAYS, 0, nullptr);
  SetFilePointer(file, 0, nullptr, FILE_END);
  DWORD written = 0;
  WriteFile(file, "half a li", 9, &written, nullptr);
  std::raise(SIGKILL);
}

// What an exit handler that was there before the facility does, and a destructor of that age.
void TraceAfterTheEnd() {
  orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", 1, "last breath");
  if (orm::TraceBegin(area, orm::TRACE_WARNING, "writer.cpp", 1)) std::abort();
  orm::TraceScope scope(area, orm::TRACE_WARNING, "writer.cpp", 1, "last %s", "scope");
}

// Each child has its parent's facility as it was in the middle of whatever the thread does.
int ForkWhileAThreadTraces() {
  static constinit std::atomic<bool> ends{false};
  std::thread other([] {
    while (!ends) {
      orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", 1, "thread");
      if (orm::TraceBegin(area, orm::TRACE_WARNING, "writer.cpp", 2)) orm::TraceEnd("thread");
    }
  });
  const bool succeeded = test::ForkSome(20, [] {
    orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", 3, "child of %d", getppid());
  });
  ends = true;
  other.join();
  return succeeded ? 0 : 1;
}

int LeaveWhileThreadsTrace() {
  std::atexit(TraceAfterTheEnd);
  static constinit std::atomic<int> begun{0};
  constexpr int THREADS = 4;
  for (int i = 0; i < THREADS; ++i) {
    std::thread([] {
      for (bool isFirst = true;; isFirst = false) {
        orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", 1, "%s", "worker");
        if (orm::TraceBegin(area, orm::TRACE_WARNING, "writer.cpp", 1)) orm::TraceEnd("%s", "worker");
        { const orm::TraceScope scope(area, orm::TRACE_WARNING, "writer.cpp", 1, "worker"); }
        if (isFirst) begun.fetch_add(1);
      }
    }).detach();
  }
  while (begun.load() < THREADS) std::this_thread::yield();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 && std::strcmp(argv[1], "log") == 0) {
    for (int i = 0; i < std::atoi(argv[2]); ++i) {
      orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", i, "line %d of %d", i,
                      GetCurrentProcessId());
    }
  } else if (argc > 1 && std::strcmp(argv[1], "assert") == 0) {
    const bool breaks = orm::AssertFailed("x > 0", "src/x", 12);
    return breaks ? 3 : 4;
  } else if (argc > 2 && std::strcmp(argv[1], "tear") == 0) {
    Tear(argv[2]);
  } else if (argc > 1 && std::strcmp(argv[1], "exit") == 0) {
    return LeaveWhileThreadsTrace();
  } else if (argc > 1 && std::strcmp(argv[1], "fork") == 0) {
    return ForkWhileAThreadTraces();
  } else if (argc > 1 && std::strcmp(argv[1], "watch") == 0) {
    char line[64];
    while (std::fgets(line, sizeof line, stdin)) {
      orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", 1, "%s", line);
      std::puts("done");
      std::fflush(stdout);
    }
  }
  return 0;
}
