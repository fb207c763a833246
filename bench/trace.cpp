// The cost of a trace line that is not written, and of one that is.
#include <fcntl.h>
#include <ormutil/Trace.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "harness/Rooms.h"
#include "support/Child.h"
#include "support/TraceConfig.h"

namespace {

constinit orm::TraceArea disabled{"bench_off"};

std::atomic<int> level{5};

void WriteDisabledLines(size_t n) {
  while (n--) orm::TraceWrite(disabled, orm::TRACE_DEBUG, false, "bench", 1, "%d bytes", 5);
}

constinit orm::TraceArea enabled{"bench_on"};

void WriteLogLines(size_t n) {
  while (n--) orm::TraceWrite(enabled, orm::TRACE_WARNING, false, "bench", 1, "line %d", 123456);
}

// The same bytes as a line of the log, by the plainest means.
void WritePlainLines(size_t n) {
  static constexpr char LINE[] = "orm-benc|bench_on|     1.234|line 123456\r\n";
  const char* machine = getenv("ORM_MACHINE");
  static const int file = open((std::string(machine ? machine : "/tmp") + "/plain.log").c_str(),
                               O_WRONLY | O_CREAT | O_APPEND | O_DSYNC, 0600);
  while (n--) bench::Keep(write(file, LINE, sizeof LINE - 1));
}

// A second process that writes as many lines at the same time.
class Partner {
 public:
  explicit Partner(const char* kind) : mChild({"/proc/self/exe", "--partner", kind}) {}
  void Run(size_t n, void (*work)(size_t n)) {
    mChild.WriteLine(std::to_string(n));
    work(n);
    mChild.ReadLine();
  }

 private:
  test::Child mChild;
};

}  // namespace

void AddTraceRows(bench::Table& table) {
  const std::string module = test::TRACE_KEY + "\\orm-bench";
  test::SetRegistryText(module, " option_target", "C:\\Windows\\Temp\\bench.log");
  test::SetRegistryText(module, "bench_on", "w");
  orm::TraceAreaRegister(disabled);
  const auto quiet =
      std::make_shared<spdlog::logger>("quiet", std::make_shared<spdlog::sinks::null_sink_mt>());
  quiet->set_level(spdlog::level::off);
  table.Add(bench::Row{.name = "trace line on a disabled area",
                       .peer = "spdlog, level off",
                       .goal = 1.0,
                       .ours = WriteDisabledLines,
                       .theirs =
                           [quiet](size_t n) {
                             while (n--) quiet->debug("{} bytes", 5);
                           },
                       .note = "ours also sees a change made by another process before the next line"});
  table.Add(bench::Row{.name = "trace line on a disabled area, against the limit",
                       .peer = "one relaxed atomic load and a compare",
                       .goal = 4.0,
                       .ours = WriteDisabledLines,
                       .theirs = [](size_t n) {
                         while (n--) {
                           if (level.load(std::memory_order_relaxed) < 2) std::puts("never");
                           asm volatile("" ::: "memory");
                         }
                       }});
  const auto log = std::make_shared<Partner>("trace");
  const auto plain = std::make_shared<Partner>("plain");
  table.Add(bench::Row{.name = "trace line into the shared log file, two processes",
                       .peer = "write on an O_APPEND, O_DSYNC descriptor",
                       .goal = 1.3,
                       .ours = [log](size_t n) { log->Run(n, WriteLogLines); },
                       .theirs = [plain](size_t n) { plain->Run(n, WritePlainLines); },
                       .note = "both wait for the disk at every line"});
}

void RunTracePartner(const std::string& kind) {
  size_t n = 0;
  while (std::scanf("%zu", &n) == 1) {
    kind == "trace" ? WriteLogLines(n) : WritePlainLines(n);
    std::puts("done");
    std::fflush(stdout);
  }
}
