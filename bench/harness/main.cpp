// orm-bench: runs the rows, prints the table and writes it.
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Measure.h"
#include "Rooms.h"

namespace {

using nlohmann::json;

constexpr int MISSED = 1, UNKNOWN_ROW = 2;

// Says on a terminal what is being measured, until the result takes the line's place.
class Progress {
 public:
  explicit Progress(size_t count) : mCount(count) {}
  void Show(const std::string& name) {
    ++mNumber;
    if (!mTerminal) return;
    std::fprintf(stderr, "\r\x1b[K[%zu/%zu] %s ...", mNumber, mCount, name.c_str());
  }
  void Clear() const {
    if (mTerminal) std::fputs("\r\x1b[K", stderr);
  }

 private:
  const bool mTerminal = isatty(STDERR_FILENO) != 0;
  const size_t mCount;
  size_t mNumber = 0;
};

// The one of this name, else all that contain it.
template <class Entry>
std::vector<const Entry*> Choose(const std::vector<Entry>& entries, const std::string& wanted) {
  std::vector<const Entry*> chosen;
  for (const Entry& entry : entries) {
    if (entry.name == wanted) return {&entry};
    if (entry.name.find(wanted) != std::string::npos) chosen.push_back(&entry);
  }
  return chosen;
}

void PrintRow(const bench::Row& row, const bench::Result& result, bool holds) {
  const bool colour = isatty(STDOUT_FILENO) != 0;
  std::printf("%-66s %12.1f  %-50s %12.1f %8.3f %6.3g %s%s%s\n", row.name.c_str(), result.ours,
              row.peer.c_str(), result.peer, result.GetRatio(), row.goal,
              colour ? (holds ? "\x1b[32m" : "\x1b[31m") : "", holds ? "holds" : "MISSES",
              colour ? "\x1b[0m" : "");
  if (!row.note.empty()) std::printf("    %s\n", row.note.c_str());
  std::fflush(stdout);
}

json RunRows(const std::vector<const bench::Row*>& rows) {
  auto results = json::array();
  Progress progress(rows.size());
  std::printf("%-66s %12s  %-50s %12s %8s %6s verdict\n", "row", "ours ns", "peer", "peer ns", "ratio",
              "goal");
  for (const bench::Row* row : rows) {
    progress.Show(row->name);
    const bench::Result result = bench::Measure(*row);
    const bool holds = result.GetRatio() <= row->goal;
    progress.Clear();
    PrintRow(*row, result, holds);
    results.push_back({{"row", row->name},
                       {"ours_ns", result.ours},
                       {"peer", row->peer},
                       {"peer_ns", result.peer},
                       {"ratio", result.GetRatio()},
                       {"goal", row->goal},
                       {"holds", holds}});
  }
  return results;
}

json RunGrowths(const std::vector<const bench::Growth*>& growths) {
  auto results = json::array();
  Progress progress(growths.size());
  for (const bench::Growth* growth : growths) {
    auto points = json::array();
    std::printf("%s, ns by %s:", growth->name.c_str(), growth->unit.c_str());
    std::fflush(stdout);
    progress.Show(growth->name);
    progress.Clear();
    for (const size_t size : growth->sizes) {
      const double ns = bench::Measure(growth->prepare(size), growth->wholePasses ? size : 1);
      std::printf("  %zu: %.1f", size, ns);
      std::fflush(stdout);
      points.push_back({{"size", size}, {"ns", ns}});
    }
    std::printf("\n");
    results.push_back({{"growth", growth->name},
                       {"unit", growth->unit},
                       {"operation", growth->operation},
                       {"points", points}});
  }
  return results;
}

// Whoever reads the file meanwhile sees the old table or the new one.
void WriteJson(const std::string& path, const json& content) {
  const std::string temporary = path + ".tmp";
  std::ofstream(temporary) << content.dump(2) << '\n';
  if (std::rename(temporary.c_str(), path.c_str()) != 0) std::perror(path.c_str());
}

int CountMisses(const json& results) {
  int misses = 0;
  for (const json& result : results) misses += !result["holds"];
  std::printf("%zu rows, %zu hold, %d miss\n", results.size(), results.size() - static_cast<size_t>(misses),
              misses);
  return misses;
}

int Run(const bench::Table& table, const std::string& wanted, bool growth, const std::string& output) {
  const auto rows = Choose(table.GetRows(), wanted);
  const auto growths = Choose(table.GetGrowths(), wanted);
  if (growth ? growths.empty() : rows.empty()) {
    std::fprintf(stderr, "orm-bench: no row is named like '%s'; --list shows them\n", wanted.c_str());
    return UNKNOWN_ROW;
  }
  const json results = growth ? RunGrowths(growths) : RunRows(rows);
  if (wanted.empty() && !output.empty()) WriteJson(output, results);
  return !growth && CountMisses(results) > 0 ? MISSED : 0;
}

void AddRows(bench::Table& table) {
  AddBaseRows(table);
  AddTraceRows(table);
  AddClassRows(table);
  AddFaceRows(table);
  AddKernelRows(table);
  AddPropertyRows(table);
  AddDrawingRows(table);
  AddThreadRows(table);
  AddRegistryRows(table);
}

int RunPartner(const std::string& kind) {
  return RunTracePartner(kind) || RunClassPartner(kind) ? 0 : UNKNOWN_ROW;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Measures the rows, each beside its peer in the same run, and prints ours / peer against the goal.\n"
      "The exit code is 0 when all rows hold, 1 when some miss, 2 when there is no such row."};
  std::string row, output, partner;
  bool list = false, growth = false;
  app.add_option("--row", row,
                 "only the row of this name, or all whose name contains it; nothing is written");
  app.add_flag("--growth", growth, "measure costs against sizes instead of the rows");
  app.add_option("--output", output, "write the whole table as JSON to this file");
  app.add_flag("--list", list, "list the rows and exit");
  app.add_option("--partner", partner)->group("");
  CLI11_PARSE(app, argc, argv);
  if (!partner.empty()) return RunPartner(partner);

  bench::Table table;
  AddRows(table);
  if (!list) return Run(table, row, growth, output);
  for (const auto& entry : table.GetRows()) std::printf("%s / %s\n", entry.name.c_str(), entry.peer.c_str());
  for (const auto& entry : table.GetGrowths())
    std::printf("--growth: %s / %s\n", entry.name.c_str(), entry.unit.c_str());
  return 0;
}
