// A program of its own that traces: "log COUNT" writes lines, "assert" fails an assertion, "watch" writes a
// line for each line that it reads and says so.
#include <ormutil/Trace.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
constinit orm::TraceArea area{"writer"};
}

int main(int argc, char** argv) {
  if (argc > 2 && std::strcmp(argv[1], "log") == 0) {
    for (int i = 0; i < std::atoi(argv[2]); ++i) {
      orm::TraceWrite(area, orm::TRACE_WARNING, false, "writer.cpp", i, "line %d of %d", i,
                      GetCurrentProcessId());
    }
  } else if (argc > 1 && std::strcmp(argv[1], "assert") == 0) {
    const bool breaks = orm::AssertFailed("x > 0", "src/x", 12);
    return breaks ? 3 : 4;
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
