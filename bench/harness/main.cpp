// orm-bench: runs the rows and writes the table.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Rooms.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int SAMPLES = 9;
constexpr double SAMPLE_NS = 8e6;

double Time(const std::function<void(size_t)>& operation, size_t n) {
  const auto start = Clock::now();
  operation(n);
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

size_t Calibrate(const std::function<void(size_t)>& operation) {
  size_t n = 1;
  for (;;) {
    const double time = Time(operation, n);
    if (time >= SAMPLE_NS / 4 || n > (size_t{1} << 40)) {
      return std::max<size_t>(1,
                              static_cast<size_t>(static_cast<double>(n) * SAMPLE_NS / std::max(time, 1.0)));
    }
    n *= time < SAMPLE_NS / 64 ? 8 : 2;
  }
}

double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

struct Result {
  double ours;
  double peer;
  double ratio;
};

// The ratio is the median of the pairs' ratios, which a drift of the machine's speed does not move.
Result Measure(const bench::Row& row) {
  const size_t nOurs = row.heavy ? 1 : Calibrate(row.ours);
  const size_t nPeer = row.heavy ? 1 : Calibrate(row.theirs);
  std::vector<double> ours, peer, ratios;
  for (int i = 0; i < SAMPLES; ++i) {
    ours.push_back(Time(row.ours, nOurs) / static_cast<double>(nOurs));
    peer.push_back(Time(row.theirs, nPeer) / static_cast<double>(nPeer));
    ratios.push_back(ours.back() / peer.back());
  }
  return {Median(ours), Median(peer), Median(ratios)};
}

bool Matches(const std::string& name, const std::string& wanted) {
  return wanted.empty() || name.find(wanted) != std::string::npos;
}

nlohmann::json RunRows(const bench::Table& table, const std::string& wanted, bool& rAllHold) {
  auto results = nlohmann::json::array();
  const bool colour = isatty(STDOUT_FILENO) != 0;
  std::printf("%-62s %12s  %-46s %12s %8s %6s\n", "row", "ours ns", "peer", "peer ns", "ratio", "goal");
  for (const bench::Row& row : table.GetRows()) {
    if (!Matches(row.name, wanted)) continue;
    const Result result = Measure(row);
    const bool holds = result.ratio <= row.goal;
    rAllHold = rAllHold && holds;
    std::printf("%-62s %12.1f  %-46s %12.1f %8.3f %6.3g %s%s%s\n", row.name.c_str(), result.ours,
                row.peer.c_str(), result.peer, result.ratio, row.goal,
                colour ? (holds ? "\x1b[32m" : "\x1b[31m") : "", holds ? "holds" : "MISSES",
                colour ? "\x1b[0m" : "");
    if (!row.note.empty()) std::printf("    %s\n", row.note.c_str());
    std::fflush(stdout);
    results.push_back({{"row", row.name},
                       {"ours_ns", result.ours},
                       {"peer", row.peer},
                       {"peer_ns", result.peer},
                       {"ratio", result.ratio},
                       {"goal", row.goal},
                       {"holds", holds}});
  }
  return results;
}

nlohmann::json RunGrowths(const bench::Table& table, const std::string& wanted) {
  auto results = nlohmann::json::array();
  for (const bench::Growth& growth : table.GetGrowths()) {
    if (!Matches(growth.name, wanted)) continue;
    std::printf("%s:", growth.name.c_str());
    auto points = nlohmann::json::array();
    for (const size_t size : growth.sizes) {
      const auto operation = growth.prepare(size);
      const size_t n = Calibrate(operation);
      std::vector<double> times;
      for (int i = 0; i < 5; ++i) times.push_back(Time(operation, n) / static_cast<double>(n));
      std::printf("  %zu: %.1f ns", size, Median(times));
      std::fflush(stdout);
      points.push_back({{"size", size}, {"ns", Median(times)}});
    }
    std::printf("\n");
    results.push_back({{"growth", growth.name}, {"points", points}});
  }
  return results;
}

void WriteJson(const std::string& path, const nlohmann::json& content) {
  const std::string temporary = path + ".tmp";
  std::ofstream(temporary) << content.dump(2) << '\n';
  if (std::rename(temporary.c_str(), path.c_str()) != 0) std::perror(path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Runs the benchmark rows, each beside its peer, and prints ours / peer against the goal."};
  std::string row, output, partner;
  bool list = false;
  app.add_option("--row", row, "only the rows whose name contains this text");
  app.add_option("--output", output, "write the rows as JSON to this file (and the growths beside it)");
  app.add_flag("--list", list, "list the rows and exit");
  app.add_option("--partner", partner)->group("");
  CLI11_PARSE(app, argc, argv);
  if (!partner.empty()) {
    RunTracePartner(partner);
    return 0;
  }

  bench::Table table;
  AddBaseRows(table);
  AddTraceRows(table);
  AddClassRows(table);
  AddFaceRows(table);
  AddKernelRows(table);
  AddThreadRows(table);
  AddRegistryRows(table);
  if (list) {
    for (const auto& entry : table.GetRows())
      std::printf("%s / %s\n", entry.name.c_str(), entry.peer.c_str());
    return 0;
  }
  bool allHold = true;
  const auto rows = RunRows(table, row, allHold);
  const auto growths = RunGrowths(table, row);
  if (!output.empty() && row.empty()) {
    WriteJson(output, rows);
    WriteJson(output.substr(0, output.rfind('.')) + "-growth.json", growths);
  }
  return allHold ? 0 : 1;
}
