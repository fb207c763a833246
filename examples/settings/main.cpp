// orm-settings: keeps a program's settings, one bag for each user with the machine's defaults merged in, and
// carries them from one program to another.
#include <ormutil/Error.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

#include "Settings.h"

using namespace settings;
using orm::Binary;
using orm::String;

namespace {

constexpr const char* kExamples = R"(
Examples:
  orm-settings set --machine Font Courier        a default for everyone (needs the right to write it)
  orm-settings set --type number Width 80        a setting of this user
  orm-settings list                              what applies, and where it comes from
  orm-settings get WIDTH                         names do not regard letter case
  orm-settings export - | ssh other orm-settings import -
                                             carry the settings to another machine

Exit codes: 0 done, 1 failed (the error is on the standard error output), 2 the command line is wrong.)";

// Settings are small; whoever sends more sends something else.
constexpr size_t kMaxImport = 64u << 20;

void List(Settings& settings) {
  const orm::MemoryProperties effective = settings.GetEffective();
  for (const String& name : effective.EnumProperties()) {
    const bool own = settings.GetUser().GetType(name) != orm::Properties::TYPE_NONE;
    std::cout << name.GetBegin() << " = " << ToText(effective, name) << "  ("
              << TypeName(effective.GetType(name)) << ", " << (own ? "user" : "machine") << ")\n";
  }
}

void Write(const std::string& path, const Binary& data) {
  std::ofstream file;
  if (path != "-") file.open(path, std::ios::binary);
  std::ostream& out = path == "-" ? std::cout : file;
  out.write(reinterpret_cast<const char*>(data.GetData()), data.GetSize());
  if (!out.flush()) throw std::runtime_error("cannot write '" + path + "'");
}

Binary Read(const std::string& path) {
  std::ifstream file;
  if (path != "-") file.open(path, std::ios::binary);
  std::istream& in = path == "-" ? std::cin : file;
  if (!in) throw std::runtime_error("cannot read '" + path + "'");
  Binary data;
  char chunk[4096];
  while (in.read(chunk, sizeof chunk), in.gcount() > 0) {
    data.Append(chunk, static_cast<unsigned>(in.gcount()));
    if (data.GetSize() > kMaxImport) throw std::runtime_error("'" + path + "' is too large for settings");
  }
  return data;
}

void Report(const orm::Error& error, bool details) {
  std::cerr << "orm-settings: " << error.Format().GetBegin() << '\n';
  if (!details) return;
  std::cerr << std::hex;
  for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
    std::cerr << "  " << error.GetCode(i) << "  " << error.GetMessage(i).GetBegin() << '\n';
  }
}

struct Arguments {
  std::string bag = "Settings Example";
  std::string name;
  std::string value;
  std::string type = "string";
  std::string file;
  bool machine = false;
  bool details = false;
};

// Adds the sub-commands; `run` receives what the chosen one does.
void AddCommands(CLI::App& app, Arguments& arguments, std::function<void(Settings&)>& run) {
  const auto bag = [&arguments](Settings& settings) -> orm::Properties& {
    return arguments.machine ? settings.GetMachine() : settings.GetUser();
  };
  const auto add = [&](const char* name, const char* help, const std::function<void(Settings&)>& action) {
    CLI::App* command = app.add_subcommand(name, help);
    command->callback([&run, action] { run = action; });
    return command;
  };
  add("list", "Show what applies to this user, and whether it is the user's own or the machine's default",
      List);

  auto* get = add("get", "Print one setting", [&arguments](Settings& settings) {
    std::cout << ToText(settings.GetEffective(), arguments.name.c_str()) << '\n';
  });
  auto* set = add("set", "Change one setting", [&arguments, bag](Settings& settings) {
    SetFromText(bag(settings), arguments.name.c_str(), arguments.type, arguments.value);
  });
  auto* unset = add("unset", "Remove one setting, so that the machine's default applies again",
                    [&arguments, bag](Settings& settings) { bag(settings).Delete(arguments.name.c_str()); });
  auto* reset = add("reset", "Remove all settings", [bag](Settings& settings) { bag(settings).Clear(); });
  auto* exporting =
      add("export", "Write all that applies as one block of bytes",
          [&arguments](Settings& settings) { Write(arguments.file, settings.GetEffective().Export()); });
  auto* importing = add("import", "Take such a block into this user's settings; damaged data change nothing",
                        [&arguments](Settings& settings) { settings.Import(Read(arguments.file)); });

  for (auto* command : {get, set, unset}) {
    command->add_option("name", arguments.name, "The setting; letter case does not matter")->required();
  }
  set->add_option("value", arguments.value, "The value; for binary, hexadecimal digits")->required();
  set->add_option("--type", arguments.type, "number, string or binary")
      ->check(CLI::IsMember({"number", "string", "binary"}))
      ->capture_default_str();
  for (auto* command : {set, unset, reset}) {
    command->add_flag("--machine", arguments.machine, "Work on the defaults for all users");
  }
  for (auto* command : {exporting, importing}) {
    command->add_option("file", arguments.file, "A file, or - for the standard input or output")->required();
  }
}

}  // namespace

int main(int count, char** words) {
  CLI::App app("Keeps settings for each user, with the machine's defaults merged in.", "orm-settings");
  app.footer(kExamples);
  app.require_subcommand(1);
  Arguments arguments;
  app.add_option("--bag", arguments.bag, "Whose settings: the name of the bag")->capture_default_str();
  app.add_flag("--details", arguments.details, "Tell the whole story of an error, from the outside in");
  std::function<void(Settings&)> run;
  AddCommands(app, arguments, run);
  try {
    app.parse(count, words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

  try {
    Settings settings(arguments.bag.c_str());
    run(settings);
    return 0;
  } catch (const orm::Error& error) {
    Report(error, arguments.details);
  } catch (const std::exception& error) {
    std::cerr << "orm-settings: " << error.what() << '\n';
  }
  return 1;
}
