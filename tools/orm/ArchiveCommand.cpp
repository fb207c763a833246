// orm archive: archived errors, values, property bags and class lists, for people, as JSON, and back.
#include <algorithm>
#include <memory>

#include "ArchiveText.h"
#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "Text.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

struct ShowOptions {
  std::string file;
  std::string kind;
  bool json = false;
  bool dump = false;
};

ArchiveReading ReadAs(std::string_view bytes, const std::string& kindName) {
  for (const ArchiveKind kind : AllArchiveKinds()) {
    if (ArchiveKindName(kind) == kindName) return ReadArchiveAs(bytes, kind);
  }
  return RecogniseArchive(bytes);
}

void PrintError(const Json& json) {
  PrintLine("error of " + std::to_string(json["layers"].size()) + " layers, the last one first");
  Table table({"CODE", "MESSAGE"});
  for (auto layer = json["layers"].rbegin(); layer != json["layers"].rend(); ++layer) {
    const bool marked = std::distance(layer, json["layers"].rend()) - 1 == json.value("marked", -1);
    table.Add({(*layer)["code"],
               (*layer)["message"].get<std::string>() + (marked ? "  (marked for display)" : "")});
  }
  table.Print();
  if (const std::string text = json.value("suggestion", ""); !text.empty()) PrintLine("Suggestion: " + text);
  if (const std::string hex = json.value("data", ""); !hex.empty()) PrintLine("Data: " + hex);
}

std::string Payload(const Json& json) {
  for (const char* name : {"time", "number", "text", "hex"}) {
    if (json.contains(name))
      return json[name].is_string() ? json[name].get<std::string>() : json[name].dump();
  }
  return "";
}

void PrintForPeople(const ArchiveReading& reading) {
  const Json& json = reading.json;
  if (reading.kind == ArchiveKind::Error) return PrintError(json);
  if (reading.kind == ArchiveKind::Value) {
    return PrintLine("value " + json["type"].get<std::string>() + " " + Payload(json));
  }
  if (reading.kind == ArchiveKind::Properties) {
    PrintLine(std::to_string(json["properties"].size()) + " properties");
    Table table({"NAME", "TYPE", "VALUE"});
    for (const Json& property : json["properties"])
      table.Add({property["name"], property["type"], Payload(property)});
    return table.Print();
  }
  PrintLine(std::to_string(json["classes"].size()) + " classes");
  Table table({"CLASS", "FACES"});
  for (const Json& item : json["classes"]) {
    std::string faces;
    for (const Json& face : item["faces"])
      faces += (faces.empty() ? "" : " ") + face["face"].get<std::string>();
    table.Add({item["class"], faces});
  }
  table.Print();
}

// Every field with its bytes, at most sixteen a line.
void PrintDump(std::string_view bytes, const std::vector<ArchiveField>& fields) {
  Table table({"OFFSET", "BYTES", "FIELD", "VALUE"});
  for (const ArchiveField& field : fields) {
    for (std::size_t at = 0; at < field.size; at += 16) {
      std::string hex;
      for (std::size_t i = at; i < std::min(field.size, at + 16); ++i) {
        if (!hex.empty()) hex += ' ';
        hex += HexOf(bytes.substr(field.offset + i, 1));
      }
      char offset[16];
      std::snprintf(offset, sizeof offset, "%6zu", field.offset + at);
      table.Add({offset, hex, at == 0 ? field.name : "", at == 0 ? field.value : ""});
    }
  }
  table.Print();
}

void ShowArchive(const ShowOptions& options) {
  const std::string bytes = ReadWholeFile(options.file);
  const ArchiveReading reading = ReadAs(bytes, options.kind);
  if (options.dump) PrintDump(bytes, reading.fields);
  if (!reading.isSound) {
    std::fflush(stdout);
    throw Failure(options.file + ": damaged at byte " + std::to_string(reading.faultAt) + ", read as " +
                  ArchiveKindName(reading.kind) + ": " + reading.fault);
  }
  if (options.json) {
    PrintJson(reading.json);
  } else if (!options.dump) {
    PrintForPeople(reading);
  }
}

void AddShow(CLI::App& archive) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* command =
      AddSubcommand(archive, "show", "Print an archived error, value, property bag or class list",
                    "  orm archive show settings.bin\n"
                    "  orm archive show settings.bin --json > settings.json\n"
                    "  orm archive show settings.bin --dump       every field with its bytes\n");
  command->add_option("FILE", options->file, "The archive; - is the standard input")->required();
  command
      ->add_option("--as", options->kind,
                   "Read it as error, value, properties or classes instead of guessing")
      ->check(CLI::IsMember({"error", "value", "properties", "classes"}));
  CLI::Option* json = command->add_flag("--json", options->json, "Print JSON, which orm archive make reads");
  command->add_flag("--dump", options->dump, "Print every field with its place and bytes")->excludes(json);
  command->callback([options] { ShowArchive(*options); });
}

void AddMake(CLI::App& archive) {
  auto files = std::make_shared<std::pair<std::string, std::string>>("-", "-");
  CLI::App* command = AddSubcommand(
      archive, "make", "Make an archive from JSON as orm archive show prints it",
      "  orm archive make settings.json -o settings.bin\n"
      "  echo '{\"kind\":\"value\",\"type\":\"NUMBER\",\"number\":7}' | orm archive make -o seven.bin\n");
  command->add_option("FILE", files->first, "The JSON; without it the standard input");
  command->add_option("-o,--output", files->second, "The archive; without it the standard output");
  command->callback([files] {
    try {
      WriteWholeFile(files->second, ArchiveFromJson(Json::parse(ReadWholeFile(files->first))));
    } catch (const Json::exception& error) {
      throw Failure(files->first + ": " + error.what());
    }
  });
}

}  // namespace

void AddArchiveCommand(CLI::App& app) {
  CLI::App* archive = AddSubcommand(app, "archive", "Archives: errors, values, property bags, class lists",
                                    "  orm archive show error.bin\n");
  archive->require_subcommand(1);
  AddShow(*archive);
  AddMake(*archive);
}

}  // namespace orm::tool
