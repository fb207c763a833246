// orm reg: the registry of the machine, looked at, changed, and carried in settings files.
#include <memory>
#include <nlohmann/json.hpp>

#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "RegUndo.h"
#include "RegValue.h"
#include "Text.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

RegDocument ReadExisting(const std::string& key, bool recursive) {
  const RegPath path = PathFromArgument(key);
  RegDocument tree = ReadRegTree(path, recursive);
  if (tree.empty()) throw Failure("there is no key " + ToDisplayLine(path.GetName()));
  return tree;
}

// A file that is wrong is named with the place of the fault, as compilers do it.
RegDocument ReadFileArgument(const std::string& file) {
  try {
    return ReadRegFile(ReadWholeFile(file));
  } catch (const RegSyntaxError& error) {
    throw Failure(file + ":" + std::to_string(error.at.line) + ":" + std::to_string(error.at.column) + ": " +
                  error.what());
  }
}

void Change(const RegDocument& document, const std::string& file = "") {
  try {
    ApplyWithUndo(document);
  } catch (const RegApplyError& error) {
    const std::string place =
        error.at.line == 0 || file.empty()
            ? ""
            : file + ":" + std::to_string(error.at.line) + ":" + std::to_string(error.at.column) + ": ";
    throw Failure(place + error.what() + "; nothing was changed");
  }
}

std::size_t CountValues(const RegDocument& document) {
  std::size_t count = 0;
  for (const RegSection& section : document) count += section.entries.size();
  return count;
}

std::string Counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string ShownName(const std::string& name) {
  return name.empty() ? "(default)" : ToDisplayLine(name);
}

// ---- query

struct QueryOptions {
  std::string key;
  std::string value;
  bool hasValue = false;
  bool recursive = false;
  bool json = false;
};

void PrintSection(const RegSection& section) {
  PrintLine(Coloured(Colour::Bold, ToDisplayLine(section.key.GetName())));
  Table table({"", "", "", ""});
  for (const RegEntry& entry : section.entries) {
    table.Add({" ", ShownName(entry.name), RegTypeName(entry.data->type), ShowRegData(*entry.data)});
  }
  table.Print(false);
}

void QueryValue(const QueryOptions& options) {
  const RegPath path = PathFromArgument(options.key);
  const RegKey key = RegKey::Open(path, KEY_QUERY_VALUE);
  if (!key) throw Failure("there is no key " + ToDisplayLine(path.GetName()));
  const std::string name = AnsiFromArgument(options.value);
  const std::optional<RegData> data = key.GetValue(name);
  if (!data) throw Failure("there is no value " + ShownName(name) + " in " + ToDisplayLine(path.GetName()));
  if (options.json) return PrintJson(RegDataToJson(name, *data));
  PrintLine(ShowRegData(*data));
}

void Query(const QueryOptions& options) {
  if (options.hasValue) return QueryValue(options);
  const RegDocument tree = ReadExisting(options.key, options.recursive);
  Json list = Json::array();
  for (const RegSection& section : tree) {
    std::vector<std::string> subKeys;
    if (const RegKey key = RegKey::Open(section.key, KEY_READ)) subKeys = key.GetSubKeys();
    if (!options.json) {
      PrintSection(section);
      if (options.recursive) continue;
      for (const std::string& name : subKeys)
        PrintLine("  " + Coloured(Colour::Blue, ToDisplayLine(name) + "\\"));
      continue;
    }
    Json item{
        {"key", ToDisplay(section.key.GetName())}, {"values", Json::array()}, {"subkeys", Json::array()}};
    for (const RegEntry& entry : section.entries)
      item["values"].push_back(RegDataToJson(entry.name, *entry.data));
    for (const std::string& name : subKeys) item["subkeys"].push_back(ToDisplay(name));
    list.push_back(std::move(item));
  }
  if (options.json) PrintJson(options.recursive ? list : list[0]);
}

void AddQuery(CLI::App& reg) {
  auto options = std::make_shared<QueryOptions>();
  CLI::App* command =
      AddSubcommand(reg, "query", "Show a key, its values and subkeys",
                    "  orm reg query 'HKLM\\SOFTWARE\\tdbg_trace\\1.0'\n"
                    "  orm reg query 'HKCU\\SOFTWARE\\Editor' -v Width      only the data\n"
                    "  orm reg query HKCU -r --json                       everything below\n");
  command->add_option("KEY", options->key, "The key, beginning with HKLM or HKCU")->required();
  CLI::Option* value =
      command->add_option("-v,--value", options->value, "Only this value; '' is the default value");
  command->add_flag("-r,--recursive", options->recursive, "All keys below as well");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options, value] {
    options->hasValue = value->count() > 0;
    Query(*options);
  });
}

// ---- add, delete, copy

struct AddOptions {
  std::string key;
  std::string value;
  std::string type = "REG_SZ";
  std::vector<std::string> data;
  bool hasValue = false;
};

void Add(const AddOptions& options) {
  RegSection section{PathFromArgument(options.key), false, {}, {}};
  if (options.hasValue || !options.data.empty()) {
    const std::optional<DWORD> type = RegTypeFromName(options.type);
    if (!type)
      throw Failure("'" + options.type + "' is no type of value; one is REG_SZ, REG_DWORD, REG_BINARY ...");
    section.entries.push_back({AnsiFromArgument(options.value), ParseRegData(*type, options.data), {}});
  }
  Change({section});
}

void AddAdd(CLI::App& reg) {
  auto options = std::make_shared<AddOptions>();
  CLI::App* command =
      AddSubcommand(reg, "add", "Create a key, or set a value (creating its key)",
                    "  orm reg add 'HKCU\\SOFTWARE\\Editor'\n"
                    "  orm reg add 'HKCU\\SOFTWARE\\Editor' -v Language -d en\n"
                    "  orm reg add 'HKCU\\SOFTWARE\\Editor' -v Width -t REG_DWORD -d 80\n"
                    "  orm reg add 'HKCU\\SOFTWARE\\Editor' -v Paths -t REG_MULTI_SZ -d 'c:\\a' -d 'c:\\b'\n"
                    "  orm reg add 'HKCU\\SOFTWARE\\Editor' -v Key -t REG_BINARY -d '01 02 ff'\n");
  command->add_option("KEY", options->key, "The key, beginning with HKLM or HKCU")->required();
  CLI::Option* value =
      command->add_option("-v,--value", options->value, "The value's name; without it the default value");
  command
      ->add_option("-t,--type", options->type,
                   "REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_DWORD, REG_QWORD, "
                   "REG_BINARY, REG_NONE or a number")
      ->capture_default_str();
  command
      ->add_option("-d,--data", options->data,
                   "Text, number (decimal or 0x...) or hexadecimal bytes; repeated "
                   "for the texts of a REG_MULTI_SZ")
      ->allow_extra_args(false);
  command->callback([options, value] {
    options->hasValue = value->count() > 0;
    Add(*options);
  });
}

struct DeleteOptions {
  std::string key;
  std::vector<std::string> values;
  bool allValues = false;
};

void Delete(const DeleteOptions& options) {
  const RegDocument existing = ReadExisting(options.key, false);
  RegSection section{existing.front().key, false, {}, {}};
  if (options.allValues) {
    for (const RegEntry& entry : existing.front().entries)
      section.entries.push_back({entry.name, std::nullopt, {}});
    if (section.entries.empty()) return;
  }
  const RegKey key = RegKey::Open(section.key, KEY_QUERY_VALUE);
  for (const std::string& value : options.values) {
    const std::string name = AnsiFromArgument(value);
    if (!key || !key.GetValue(name)) throw Failure("there is no value " + ShownName(name));
    section.entries.push_back({name, std::nullopt, {}});
  }
  section.isDeleted = section.entries.empty();
  if (section.isDeleted && section.key.path.empty()) throw Failure("a root cannot be deleted");
  Change({section});
}

void AddDelete(CLI::App& reg) {
  auto options = std::make_shared<DeleteOptions>();
  CLI::App* command = AddSubcommand(reg, "delete", "Delete a key with everything below it, or values of it",
                                    "  orm reg delete 'HKCU\\SOFTWARE\\Editor'\n"
                                    "  orm reg delete 'HKCU\\SOFTWARE\\Editor' -v Width\n"
                                    "  orm reg undo                                  takes it back\n");
  command->add_option("KEY", options->key, "The key")->required();
  command->add_option("-v,--value", options->values, "Only this value; may be repeated")
      ->allow_extra_args(false);
  command->add_flag("--all-values", options->allValues, "All values of the key, but not the key");
  command->callback([options] { Delete(*options); });
}

void Copy(const std::string& from, const std::string& to) {
  RegDocument tree = ReadExisting(from, true);
  const RegPath target = PathFromArgument(to);
  const std::size_t prefix = tree.front().key.path.size();
  for (RegSection& section : tree) {
    std::string rest = section.key.path.substr(prefix);
    if (!rest.empty() && rest.front() == '\\') rest.erase(0, 1);
    section.key = rest.empty() ? target : target.GetChild(rest);
  }
  Change(tree);
}

void AddCopy(CLI::App& reg) {
  auto names = std::make_shared<std::pair<std::string, std::string>>();
  CLI::App* command = AddSubcommand(reg, "copy", "Copy a key with everything below it into another key",
                                    "  orm reg copy 'HKCU\\SOFTWARE\\Editor' 'HKCU\\SOFTWARE\\Editor.old'\n");
  command->add_option("FROM", names->first, "The key to copy")->required();
  command->add_option("TO", names->second, "The key that receives it; what else it holds stays")->required();
  command->callback([names] { Copy(names->first, names->second); });
}

// ---- export, import, undo, compare, check

struct ExportOptions {
  std::vector<std::string> keys;
  std::string output = "-";
  int form = 5;
  bool utf8 = false;
};

void Export(const ExportOptions& options) {
  RegDocument document;
  for (const std::string& key : options.keys) {
    RegDocument tree = ReadExisting(key, true);
    std::move(tree.begin(), tree.end(), std::back_inserter(document));
  }
  WriteWholeFile(
      options.output,
      WriteRegFile(document, options.form == 4 ? RegForm::Version4 : RegForm::Version5, options.utf8));
}

void AddExport(CLI::App& reg) {
  auto options = std::make_shared<ExportOptions>();
  CLI::App* command = AddSubcommand(reg, "export", "Write keys with everything below them as a settings file",
                                    "  orm reg export 'HKCU\\SOFTWARE\\Editor' -o editor.reg\n"
                                    "  orm reg export 'HKCU\\SOFTWARE\\Editor' --form 4 -o old.reg\n"
                                    "  orm reg export 'HKCU\\SOFTWARE\\Editor' --utf8          to look at\n");
  command->add_option("KEY", options->keys, "The keys")->required();
  command->add_option("-o,--output", options->output, "The file; without it the standard output");
  command->add_option("--form", options->form, "5: version 5.00, UTF-16; 4: REGEDIT4, ANSI code page")
      ->check(CLI::IsMember({4, 5}))
      ->capture_default_str();
  command->add_flag("--utf8", options->utf8, "Version 5.00 in UTF-8, which this command reads too");
  command->callback([options] { Export(*options); });
}

void AddImport(CLI::App& reg) {
  auto file = std::make_shared<std::string>();
  CLI::App* command =
      AddSubcommand(reg, "import", "Make the registry what a settings file says, all of it or nothing",
                    "  orm reg import editor.reg\n"
                    "  orm reg undo                   as it was before\n");
  command
      ->add_option("FILE", *file,
                   "REGEDIT4 or version 5.00, in ANSI, UTF-16 or UTF-8; - is the standard input")
      ->required();
  command->callback([file] {
    const RegDocument document = ReadFileArgument(*file);
    Change(document, *file);
    if (IsForPerson(stdout)) {
      PrintLine(Counted(document.size(), "key") + ", " + Counted(CountValues(document), "value") +
                "; orm reg undo takes it back");
    }
  });
}

void AddUndo(CLI::App& reg) {
  CLI::App* command =
      AddSubcommand(reg, "undo", "Take back your last import, delete, add, copy or undo", "  orm reg undo\n");
  command->callback([] {
    try {
      UndoLastChange();
    } catch (const RegApplyError& error) {
      throw Failure(std::string(error.what()) + "; nothing was changed");
    } catch (const RegSyntaxError& error) {
      throw Failure(std::string("the kept change is damaged: ") + error.what());
    }
  });
}

void AddCompare(CLI::App& reg) {
  struct Options {
    std::string file;
    bool subset = false;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddSubcommand(reg, "compare", "Compare a settings file with the registry",
                    "  orm reg compare editor.reg             exit code 0: equal, 2: different\n"
                    "  orm reg compare editor.reg --subset    only what the file mentions\n");
  command->add_option("FILE", options->file, "The settings file")->required();
  command->add_flag("--subset", options->subset,
                    "Values and subkeys that the file does not mention do not count");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] {
    const std::vector<RegDifference> differences =
        CompareWithStore(ReadFileArgument(options->file), options->subset);
    if (options->json) {
      Json list = Json::array();
      for (const RegDifference& difference : differences) list.push_back(RegDifferenceToJson(difference));
      PrintJson(list);
    } else {
      for (const RegDifference& difference : differences) PrintLine(ShowRegDifference(difference));
    }
    if (!differences.empty()) throw Exit{EXIT_DIFFERENT};
  });
}

void AddCheck(CLI::App& reg) {
  auto json = std::make_shared<bool>(false);
  CLI::App* command = AddSubcommand(reg, "check", "Read the whole store and check every record",
                                    "  orm reg check          exit code 0: sound, 2: damaged\n"
                                    "  orm reg check --json\n");
  command->add_flag("--json", *json, "Print JSON");
  command->callback([json] {
    bool damaged = false;
    Json list = Json::array();
    for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
      const std::string name = RegPath{root, ""}.GetName();
      std::vector<std::string> faults;
      const auto report = [](void* context, const char* fault) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(fault);
      };
      const LSTATUS error = OrmRegCheckStore(root, report, &faults);
      if (error != 0 && error != ERROR_BADDB)
        throw SystemFailure("cannot check " + name, static_cast<DWORD>(error));
      list.push_back({{"root", name}, {"sound", error == 0}, {"faults", faults}});
      damaged |= error != 0;
      if (*json) continue;
      for (const std::string& fault : faults) PrintLine(name + ": " + fault);
      PrintLine(name + ": " +
                (error == 0 ? Coloured(Colour::Green, "sound") : Coloured(Colour::Red, "damaged")));
    }
    if (*json) PrintJson(list);
    if (damaged) throw Exit{EXIT_DIFFERENT};
  });
}

}  // namespace

void AddRegCommand(CLI::App& app) {
  CLI::App* reg = AddSubcommand(app, "reg", "The registry: look, change, settings files",
                                "  orm reg query HKLM -r\n"
                                "  orm reg import settings.reg && orm reg compare settings.reg\n");
  reg->require_subcommand(1);
  AddQuery(*reg);
  AddAdd(*reg);
  AddDelete(*reg);
  AddCopy(*reg);
  AddCompare(*reg);
  AddExport(*reg);
  AddImport(*reg);
  AddUndo(*reg);
  AddRegWatchCommand(*reg);
  AddCheck(*reg);
}

}  // namespace orm::tool
