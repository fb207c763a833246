// The cost of a trace line that is not written, and of one that is.
#include <fcntl.h>
#include <ormutil/Trace.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "harness/Partner.h"
#include "harness/Rooms.h"
#include "support/TraceConfig.h"

namespace {

constinit orm::TraceArea disabled{"bench_off"};

std::atomic<int> level{orm::TRACE_NONE};

void WriteDisabledLines(size_t n) {
  while (n--) orm::TraceWrite(disabled, orm::TRACE_DEBUG, false, "bench", 1, "%d bytes", 5);
}

void CompareLevels(size_t n) {
  while (n--) {
    if (level.load(std::memory_order_relaxed) < orm::TRACE_DEBUG) std::puts("never");
    asm volatile("" ::: "memory");
  }
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

void Configure() {
  const std::string module = test::TRACE_KEY + "\\orm-bench";
  test::SetRegistryText(module, " option_target", "C:\\Windows\\Temp\\bench.log");
  test::SetRegistryText(module, "bench_on", "w");
}

}  // namespace

void AddTraceRows(bench::Table& table) {
  table.Add(bench::Row{.name = "trace line on a disabled area",
                       .peer = "spdlog, level off",
                       .goal = 1.0,
                       .prepare =
                           [] {
                             orm::TraceAreaRegister(disabled);
                             const auto quiet = std::make_shared<spdlog::logger>(
                                 "quiet", std::make_shared<spdlog::sinks::null_sink_mt>());
                             quiet->set_level(spdlog::level::off);
                             return bench::Sides{WriteDisabledLines, [quiet](size_t n) {
                                                   while (n--) quiet->debug("{} bytes", 5);
                                                 }};
                           },
                       .note = "ours also sees a change made by another process before the next line"});
  table.Add(bench::Row{.name = "trace line on a disabled area, against the limit",
                       .peer = "one relaxed atomic load and a compare",
                       .goal = 4.0,
                       .prepare =
                           [] {
                             orm::TraceAreaRegister(disabled);
                             return bench::Sides{WriteDisabledLines, CompareLevels};
                           },
                       .note = "the peer is the limit: the least that any switch costs"});
  table.Add(bench::Row{.name = "trace line into the shared log file, two processes",
                       .peer = "write on an O_APPEND, O_DSYNC descriptor",
                       .goal = 1.3,
                       .prepare =
                           [] {
                             Configure();
                             const auto log = std::make_shared<bench::Partners>("trace", 1);
                             const auto plain = std::make_shared<bench::Partners>("plain", 1);
                             return bench::Sides{[log](size_t n) { log->Run(n, WriteLogLines); },
                                                 [plain](size_t n) { plain->Run(n, WritePlainLines); }};
                           },
                       .note = "the peer is the limit: both wait for the disk at every line"});
  table.Add(bench::Growth{.name = "write a line into the shared log file",
                          .unit = "processes",
                          .sizes = {1, 2, 4, 8},
                          .prepare =
                              [](size_t size) {
                                Configure();
                                const auto log = std::make_shared<bench::Partners>("trace", size - 1);
                                return [log](size_t n) { log->Share(n, WriteLogLines); };
                              },
                          .operation = "line, of whichever process"});
}

bool RunTracePartner(const std::string& kind) {
  if (kind == "trace") bench::Serve(WriteLogLines);
  if (kind == "plain") bench::Serve(WritePlainLines);
  return kind == "trace" || kind == "plain";
}
