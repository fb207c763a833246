// orm trace: what is traced, how, where to, and a look at it.
#include <memory>
#include <nlohmann/json.hpp>

#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "RegUndo.h"
#include "Text.h"
#include "TraceLine.h"
#include "TraceView.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* LEVEL_NAMES[] = {"error", "warning", "debug", "trace", "loop", "nothing"};

struct Setting {
  const char* value;  // its name in the registry
  const char* name;
};
constexpr Setting settings[] = {{" option_format", "format"},
                                {" option_target", "target"},
                                {" option_blocktimes", "blocktimes"},
                                {" option_autoassert", "policy"}};

void SetValue(const RegPath& key, const std::string& name, const std::string& text) {
  try {
    ApplyWithUndo({{key, false, {{name, RegData{REG_SZ, text + '\0'}, {}}}, {}}});
  } catch (const RegApplyError& error) {
    throw Failure(error.what());
  }
}

std::string TextOf(const RegEntry& entry) {
  return entry.data->type == REG_SZ ? entry.data->bytes.substr(0, entry.data->bytes.find('\0')) : "";
}

// ---- areas, set

void PrintAreas(bool json) {
  Json list = Json::array();
  Table table({"MODULE", "AREA", "LEVEL", ""});
  for (const std::string& module : TraceModules()) {
    const RegDocument tree = ReadRegTree(TraceKey(module), false);
    if (tree.empty()) continue;
    for (const RegEntry& entry : tree.front().entries) {
      if (entry.name.empty() || entry.name.front() == ' ') continue;
      const std::string letter = TextOf(entry);
      const std::size_t level =
          letter.size() == 1 ? TRACE_LEVELS.find(letter[0] | 0x20) : std::string_view::npos;
      const std::string word = level == std::string_view::npos ? "(no level)" : LEVEL_NAMES[level];
      list.push_back(
          {{"module", ToDisplay(module)}, {"area", ToDisplay(entry.name)}, {"level", ToDisplay(letter)}});
      table.Add({ToDisplayLine(module), ToDisplayLine(entry.name), ToDisplayLine(letter), word});
    }
  }
  if (json) return PrintJson(list);
  if (table.IsEmpty()) return PrintLine("No module has registered its areas on this machine yet.");
  table.Print();
}

struct SetOptions {
  std::string module, area, level;
};

void SetLevel(const SetOptions& options) {
  std::string letter = options.level;
  for (std::size_t i = 0; i < TRACE_LEVELS.size(); ++i) {
    if (options.level == LEVEL_NAMES[i]) letter = TRACE_LEVELS[i];
  }
  if (letter.size() != 1 ||
      TRACE_LEVELS.find(static_cast<char>(letter[0] | 0x20)) == std::string_view::npos) {
    throw Failure("'" + options.level +
                  "' is no level: e error, w warning, d debug, t trace, l loop, n nothing");
  }
  const RegPath key = TraceKey(AnsiFromArgument(options.module));
  const std::string area = AnsiFromArgument(options.area);
  if (area == "*") {
    RegSection section{key, false, {}, {}};
    const RegDocument tree = ReadRegTree(key, false);
    if (tree.empty()) throw Failure("module '" + options.module + "' has not registered its areas yet");
    for (const RegEntry& entry : tree.front().entries) {
      if (!entry.name.empty() && entry.name.front() != ' ') {
        section.entries.push_back({entry.name, RegData{REG_SZ, letter + '\0'}, {}});
      }
    }
    return ApplyWithUndo({section});
  }
  if (area.empty() || area.front() == ' ') throw Failure("an area's name does not begin with a blank");
  SetValue(key, area, letter);
}

// ---- format, target, blocktimes, policy

struct SettingOptions {
  std::string value;
  bool hasValue = false;
  std::string module;
  bool reset = false;
  bool json = false;
};

// For programs: the text as it is stored, null where there is none.
void PrintSettingJson(const Setting& setting, const std::string& module) {
  Json list = Json::array();
  const auto add = [&](const std::string& name, const RegPath& key) {
    const std::optional<std::string> text = ReadRegText(key, setting.value);
    list.push_back(
        {{"module", ToDisplay(name)}, {setting.name, text ? Json(ToDisplay(*text)) : Json(nullptr)}});
  };
  if (module.empty()) add("*", TraceKey(""));
  for (const std::string& name : TraceModules()) {
    if (module.empty() || name == module) add(name, TraceKey(name));
  }
  PrintJson(list);
}

void ShowSetting(const Setting& setting, const std::string& module) {
  const auto shown = [&](const RegPath& key) {
    const std::optional<std::string> text = ReadRegText(key, setting.value);
    if (!text) return std::string("(not set)");
    return text->empty() ? std::string("(as for all modules)") : ToDisplayLine(*text);
  };
  Table table({"MODULE", setting.name});
  if (module.empty()) table.Add({"*", shown(TraceKey(""))});
  for (const std::string& name : TraceModules()) {
    if (module.empty() || name == module) table.Add({ToDisplayLine(name), shown(TraceKey(name))});
  }
  table.Print();
}

void CheckSetting(const std::string& name, const std::string& value) {
  if (name == "format") {
    if (value.size() > TRACE_LONGEST_FORMAT) throw Failure("a format has at most 95 characters");
    const std::optional<std::string> example = ExampleTraceHeader(value);
    if (!example) throw Failure("the format cannot be carried out; inserts are %1 to %10, such as %6!6u!");
    if (IsForPerson(stdout)) PrintLine("A line will look like this:\n" + ToDisplayLine(*example) + "message");
  } else if (name == "target") {
    if (value.empty() || value.size() >= MAX_PATH)
      throw Failure("a target is \"<dbglog>\" or a path of 1 to 259 characters");
  } else if (name == "blocktimes") {
    if (value != "y" && value != "n") throw Failure("block times are y or n");
  } else if (value.size() != 1 || std::string_view("dari").find(value) == std::string_view::npos) {
    throw Failure("a policy is d (dialog), a (abort), r (retry: break into the debugger) or i (ignore)");
  }
}

void ChangeSetting(const Setting& setting, const SettingOptions& options) {
  const std::string module = AnsiFromArgument(options.module);
  if (!options.hasValue && !options.reset)
    return options.json ? PrintSettingJson(setting, module) : ShowSetting(setting, module);
  const std::string value = AnsiFromArgument(options.value);
  if (options.reset) {
    if (module.empty()) throw Failure("--reset needs --module; a setting for all modules must have a value");
    return SetValue(TraceKey(module), setting.value, "");
  }
  CheckSetting(setting.name, value);
  SetValue(TraceKey(module), setting.value, value);
}

void AddSetting(CLI::App& trace, const Setting& setting, const std::string& description,
                const std::string& examples) {
  auto options = std::make_shared<SettingOptions>();
  CLI::App* command = AddSubcommand(trace, setting.name, description,
                                    examples + "A module reads its settings when it starts.\n");
  CLI::Option* value =
      command->add_option("VALUE", options->value, "The new value; without it the present ones are shown");
  command->add_option("-m,--module", options->module, "For this module only");
  command->add_flag("--reset", options->reset, "Let the module follow the setting for all modules again");
  command->add_flag("--json", options->json, "Show the present ones as JSON");
  command->callback([options, value, setting] {
    options->hasValue = value->count() > 0;
    ChangeSetting(setting, *options);
  });
}

// ---- watch, tail

void AddFilterOptions(CLI::App& command, TraceFilter& filter) {
  command.add_option("-m,--module", filter.modules, "Only lines of this module; may be repeated")
      ->allow_extra_args(false);
  command.add_option("-a,--area", filter.areas, "Only lines of this area; may be repeated")
      ->allow_extra_args(false);
  command.add_option("-l,--level", filter.levels,
                     "Only these levels, letters of ewdtl; needs %3 in the format");
  command.add_option("-t,--text", filter.text, "Only lines that hold this text");
}

void AddWatch(CLI::App& trace) {
  auto options = std::make_shared<TraceWatchOptions>();
  CLI::App* command =
      AddSubcommand(trace, "watch", "Show the debugger output of all processes of the machine, live",
                    "  orm trace watch\n"
                    "  orm trace watch -m ormutil -a thread -l ew\n"
                    "  orm trace watch --rates                 lines a second of each area\n"
                    "  orm trace watch --json --count 10\n");
  AddFilterOptions(*command, options->filter);
  command->add_flag("--rates", options->rates, "Lines a second by module and area instead of the lines");
  command->add_option("--count", options->count, "End after so many lines");
  command->add_option("--for", options->seconds, "End after so many seconds");
  command->add_flag("--json", options->json, "Print one JSON object a line");
  command->callback([options] { WatchTrace(*options); });
}

void AddTail(CLI::App& trace) {
  auto options = std::make_shared<TraceTailOptions>();
  CLI::App* command =
      AddSubcommand(trace, "tail", "Show the end of a shared log file, and what is added to it",
                    "  orm trace tail ormutil                the log file of that module\n"
                    "  orm trace tail 'c:\\logs\\all.log' -f -l e\n");
  command->add_option("FILE", options->file, "A module whose target is a file, or a path")->required();
  command->add_option("-n,--lines", options->lines, "So many lines from the end")->capture_default_str();
  command->add_flag("-f,--follow", options->follow, "Go on with what is added");
  command->add_option("--count", options->count, "With --follow: end after so many lines");
  command->add_flag("--json", options->json, "Print one JSON object a line");
  AddFilterOptions(*command, options->filter);
  command->callback([options] { TailTrace(*options); });
}

}  // namespace

void AddTraceCommand(CLI::App& app) {
  CLI::App* trace =
      AddSubcommand(app, "trace", "The trace facility: what is traced, where to, and a look at it",
                    "  orm trace set ormutil ClsMgr d && orm trace watch -a ClsMgr\n");
  trace->require_subcommand(1);
  auto json = std::make_shared<bool>(false);
  CLI::App* areas = AddSubcommand(*trace, "areas", "Show the level of every area of every module",
                                  "  orm trace areas\n  orm trace areas --json\n");
  areas->add_flag("--json", *json, "Print JSON");
  areas->callback([json] { PrintAreas(*json); });

  auto set = std::make_shared<SetOptions>();
  CLI::App* setCommand =
      AddSubcommand(*trace, "set", "Set the level of an area; running programs follow at once",
                    "  orm trace set ormutil thread d      everything up to debug\n"
                    "  orm trace set ormutil '*' n         nothing any more\n");
  setCommand->add_option("MODULE", set->module, "The module's name, such as ormutil")->required();
  setCommand->add_option("AREA", set->area, "The area, or * for all that the module has")->required();
  setCommand->add_option("LEVEL", set->level, "e error, w warning, d debug, t trace, l loop, n nothing")
      ->required();
  setCommand->callback([set] { SetLevel(*set); });

  AddSetting(
      *trace, settings[0], "Show or set the format of the lines' headers",
      "  orm trace format\n"
      "  orm trace format '%1!-8s!|%2!-8s!|%3!c!|%6!6u!.%7!03u!|'\n"
      "Inserts: 1 module, 2 area, 3 level, 4 process, 5 thread, 6 seconds, 7 milliseconds, 8 time of day,\n"
      "9 source file, 10 line.\n");
  AddSetting(*trace, settings[1], "Show or set where lines go: \"<dbglog>\" or a file",
             "  orm trace target 'c:\\logs\\%1.log'     %1 is the module's name\n"
             "  orm trace target '<dbglog>'           back to the debugger output\n");
  AddSetting(*trace, settings[2], "Show or set whether lines that leave a block tell the time spent",
             "  orm trace blocktimes y\n");
  AddSetting(*trace, settings[3], "Show or set what a failed assertion does",
             "  orm trace policy i      d dialog, a abort, r break into the debugger, i ignore\n");
  AddWatch(*trace);
  AddTail(*trace);
}

}  // namespace orm::tool
