// orm reg watch: changes of the registry as they happen.
#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "Command.h"
#include "Console.h"
#include "RegValue.h"
#include "Text.h"

namespace orm::tool {

namespace {

struct WatchOptions {
  std::string key;
  unsigned count = 0;
  double seconds = 0;
  bool json = false;
};

// Asks for the tree only when something was committed.
void Watch(const WatchOptions& options) {
  constexpr DWORD LOOK_EVERY = 20;  // ms
  const RegPath path = PathFromArgument(options.key);
  RegChangeMark mark(path);
  RegDocument before = ReadRegTree(path);
  std::fprintf(stderr, "watching %s\n", ToDisplayLine(path.GetName()).c_str());
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(options.seconds);
  for (unsigned printed = 0; options.count == 0 || printed < options.count; Sleep(LOOK_EVERY)) {
    if (options.seconds > 0 && std::chrono::steady_clock::now() >= end) return;
    if (!mark.HasMoved()) continue;
    RegDocument after = ReadRegTree(path);
    for (const RegDifference& difference : CompareRegTrees(before, after)) {
      if (options.json) {
        PrintJsonLine(RegDifferenceToJson(difference));
      } else {
        PrintLine(ShowRegDifference(difference));
        std::fflush(stdout);
      }
      ++printed;
    }
    before = std::move(after);
  }
}

}  // namespace

void AddRegWatchCommand(CLI::App& regCommand) {
  auto options = std::make_shared<WatchOptions>();
  CLI::App* command =
      AddSubcommand(regCommand, "watch", "Show changes of keys and values as they happen, by any process",
                    "  orm reg watch 'HKCU\\SOFTWARE\\Editor'\n"
                    "  orm reg watch HKLM --json --count 1     wait for the next change\n");
  command->add_option("KEY", options->key, "The key; everything below it is watched")->required();
  command->add_option("--count", options->count, "End after so many changes");
  command->add_option("--for", options->seconds, "End after so many seconds");
  command->add_flag("--json", options->json, "Print one JSON object a line");
  command->callback([options] { Watch(*options); });
}

}  // namespace orm::tool
