// orm class: component libraries and their classes.
#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

#include "ClassProbe.h"
#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "RegUndo.h"
#include "Text.h"
#include "kernel/Paths.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

RegPath GetLibraryPaths() {
  return {HKEY_LOCAL_MACHINE, "Software\\Brightwell\\LibPaths"};
}

String ToString(const std::string& text) {
  return AnsiFromArgument(text).c_str();
}

std::string Shown(const String& text) {
  return ToDisplay(text.GetBegin());
}

// A path of the interfaces as it is; a path of the disk as the interfaces name it. With `mayBeGone` what is
// not there, or not any more, has a path as well.
String InterfacePath(const std::string& text, bool mayBeGone = false) {
  if (text.find('\\') != std::string::npos || (text.size() > 1 && text[1] == ':')) return ToString(text);
  const std::size_t wild = text.find_first_of("*?");
  const std::size_t cut = wild == std::string::npos ? std::string::npos : text.rfind('/', wild);
  const std::string folder = wild == std::string::npos  ? text
                             : cut == std::string::npos ? "."
                                                        : text.substr(0, cut);
  std::error_code error;
  const std::filesystem::path real = mayBeGone ? std::filesystem::weakly_canonical(folder, error)
                                               : std::filesystem::canonical(folder, error);
  if (error == std::errc::no_such_file_or_directory) throw Failure("there is no file or folder " + folder);
  if (error) throw Failure("cannot find " + folder + ": " + error.message());
  std::string path = platform::AnsiPath(real);
  if (wild != std::string::npos) path += "\\" + text.substr(cut == std::string::npos ? 0 : cut + 1);
  return path.c_str();
}

// The manager with the libraries of this call registered besides those of the machine.
ClassManager& Manager(const std::vector<std::string>& paths) {
  ClassManager* manager = GetClassMgr();
  if (!manager) throw Failure("the class manager is not there");
  for (const std::string& path : paths) manager->Register(InterfacePath(path));
  return *manager;
}

void AddPathOption(CLI::App& command, std::vector<std::string>& paths) {
  command.add_option("-p,--path", paths, "Register this folder, library or pattern as well; may be repeated")
      ->allow_extra_args(false);
}

// ---- paths

struct PathsOptions {
  std::string add, remove;
  bool json = false;
};

// The names of the values carry no meaning; a name too long would keep processes from the values behind it.
std::string NewName(const std::vector<RegEntry>& present) {
  const auto isTaken = [&](const std::string& name) {
    return std::any_of(present.begin(), present.end(), [&](const auto& entry) { return entry.name == name; });
  };
  std::size_t number = present.size() + 1;
  while (isTaken(std::to_string(number))) ++number;
  return std::to_string(number);
}

void ChangePaths(const std::string& path, bool add) {
  constexpr std::size_t LONGEST = 515;  // that processes read
  const std::string text = InterfacePath(path, !add).GetBegin();
  if (add && text.size() > LONGEST)
    throw Failure(ToDisplay(text) + " is longer than the " + std::to_string(LONGEST) +
                  " bytes of a default path");
  RegSection section{GetLibraryPaths(), false, {}, {}};
  const RegDocument document = ReadRegTree(GetLibraryPaths(), false);
  const std::vector<RegEntry> present = document.empty() ? std::vector<RegEntry>() : document.front().entries;
  for (const RegEntry& entry : present) {
    const bool same = entry.data->type == REG_SZ &&
                      _mbsicmp(reinterpret_cast<const unsigned char*>(entry.data->bytes.c_str()),
                               reinterpret_cast<const unsigned char*>(text.c_str())) == 0;
    if (same && add) return;
    if (same) section.entries.push_back({entry.name, std::nullopt, {}});
  }
  if (add) section.entries.push_back({NewName(present), RegData{REG_SZ, text + '\0'}, {}});
  if (section.entries.empty()) throw Failure(ToDisplay(text) + " is not among the default paths");
  try {
    ApplyWithUndo({section});
  } catch (const RegApplyError& error) {
    throw Failure(error.what());
  }
}

void ShowPaths(bool json) {
  std::vector<String> registered;
  FacePtr<ClassManagerPathInfo>(ClassManagerPathInfo::CLASS_ID, "")->GetPaths(registered, true);
  Json list{{"defaults", Json::array()}, {"registered", Json::array()}};
  const RegDocument defaults = ReadRegTree(GetLibraryPaths(), false);
  for (const RegEntry& entry : defaults.empty() ? std::vector<RegEntry>() : defaults.front().entries) {
    if (entry.data->type == REG_SZ) list["defaults"].push_back(ToDisplay(entry.data->bytes.c_str()));
  }
  for (const String& path : registered) list["registered"].push_back(Shown(path));
  if (json) return PrintJson(list);
  PrintLine(Coloured(Colour::Bold, "Default paths of every process (HKLM\\Software\\Brightwell\\LibPaths):"));
  for (const Json& path : list["defaults"]) PrintLine("  " + path.get<std::string>());
  PrintLine(Coloured(Colour::Bold, "Registered in this process:"));
  for (const Json& path : list["registered"]) PrintLine("  " + path.get<std::string>());
}

void AddPaths(CLI::App& parent) {
  auto options = std::make_shared<PathsOptions>();
  CLI::App* command =
      AddSubcommand(parent, "paths", "Show, add or remove the default paths of component libraries",
                    "  orm class paths\n"
                    "  orm class paths --add ./build/lib       every process finds them from now on\n"
                    "  orm class paths --remove ./build/lib\n");
  CLI::Option* add = command->add_option("--add", options->add, "Add a folder, library or pattern");
  CLI::Option* remove = command->add_option("--remove", options->remove, "Remove it")->excludes(add);
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options, add, remove] {
    if (add->count()) return ChangePaths(options->add, true);
    if (remove->count()) return ChangePaths(options->remove, false);
    ShowPaths(options->json);
  });
}

// ---- list, show, create

struct ListOptions {
  std::vector<std::string> paths;
  std::string face;
  bool json = false;
};

std::vector<String> FacesOf(ClassInfo& info) {
  std::vector<String> faces;
  info.EnumFaces(faces);
  return faces;
}

void List(const ListOptions& options) {
  ClassManager& manager = Manager(options.paths);
  std::vector<String> classes;
  if (options.face.empty()) {
    manager.EnumClasses(classes);
  } else {
    manager.EnumClasses(ToString(options.face), classes);
  }
  Json list = Json::array();
  Table table({"CLASS", "LIBRARY"});
  for (const String& id : classes) {
    const FacePtr<ClassInfo> info = manager.GetClassInfo(id);
    const std::string library = Shown(info->GetLibraryPath());
    list.push_back({{"class", Shown(id)}, {"library", library}});
    table.Add({Shown(id), library.empty() ? "(in the process)" : library});
  }
  if (options.json) return PrintJson(list);
  table.Print();
}

void AddList(CLI::App& parent) {
  auto options = std::make_shared<ListOptions>();
  CLI::App* command = AddSubcommand(parent, "list", "List the classes that can be created",
                                    "  orm class list\n"
                                    "  orm class list -p ./build/lib --face IID_Digest\n");
  AddPathOption(*command, options->paths);
  command->add_option("--face", options->face, "Only classes with this face");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] { List(*options); });
}

struct ShowOptions {
  std::vector<std::string> paths;
  std::string classId, faceId;
  bool json = false;
};

std::string HexOf(const Binary& data) {
  return tool::HexOf({reinterpret_cast<const char*>(data.GetData()), data.GetSize()});
}

void Show(const ShowOptions& options) {
  const FacePtr<ClassInfo> info = Manager(options.paths).GetClassInfo(ToString(options.classId));
  Json json{{"class", Shown(info->GetClassId())},
            {"library", Shown(info->GetLibraryPath())},
            {"hex", HexOf(info->GetClassData())},
            {"faces", Json::array()}};
  for (const String& face : FacesOf(*info)) {
    json["faces"].push_back({{"face", Shown(face)}, {"hex", HexOf(info->GetFaceData(face))}});
  }
  if (options.json) return PrintJson(json);
  const std::string library = json["library"];
  PrintLine("class    " + json["class"].get<std::string>());
  PrintLine("library  " + (library.empty() ? "(in the process)" : library));
  if (json["hex"] != "") PrintLine("data     " + json["hex"].get<std::string>());
  for (const Json& face : json["faces"]) {
    PrintLine("face     " + face["face"].get<std::string>() +
              (face["hex"] == "" ? "" : "  data " + face["hex"].get<std::string>()));
  }
}

void AddShow(CLI::App& parent) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* command = AddSubcommand(parent, "show", "Show a class: its library, faces and data",
                                    "  orm class show CID_ClassManagerPathInfo\n");
  command->add_option("CID", options->classId, "The class id")->required();
  AddPathOption(*command, options->paths);
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] { Show(*options); });
}

void Create(const ShowOptions& options) {
  ClassManager& manager = Manager(options.paths);
  FacePtr<BaseFace> object = manager.CreateInstance(ToString(options.classId), ToString(options.faceId));
  const FacePtr<ClassInfo> info = manager.GetClassInfo(ToString(options.classId));
  Json json{{"class", options.classId},
            {"face", options.faceId},
            {"library", Shown(info->GetLibraryPath())},
            {"answers", Json::array()},
            {"lacks", Json::array()}};
  for (const String& face : FacesOf(*info)) {
    BaseFace* found = object->QueryFace(face.GetBegin());
    json[found ? "answers" : "lacks"].push_back(Shown(face));
    if (found) found->Release();
  }
  const bool destroyed = object.Detach()->Release();
  json["destroyed"] = destroyed;
  if (options.json) {
    PrintJson(json);
  } else {
    PrintLine("created " + options.classId + " with face " + options.faceId);
    for (const Json& face : json["answers"]) PrintLine("answers " + face.get<std::string>());
    for (const Json& face : json["lacks"])
      PrintLine(Coloured(Colour::Red, "lacks " + face.get<std::string>() + ", which its library promises"));
    PrintLine(destroyed ? "released: destroyed" : "released: still alive, as others hold it");
  }
  if (!json["lacks"].empty()) throw Exit{EXIT_FAILED};
}

void AddCreate(CLI::App& parent) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* command = AddSubcommand(parent, "create", "Create an object, ask it for its faces, release it",
                                    "  orm class create CID_FileDigest IID_Digest -p ./build/lib\n");
  command->add_option("CID", options->classId, "The class id")->required();
  command->add_option("IID", options->faceId, "The face id")->required();
  AddPathOption(*command, options->paths);
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] { Create(*options); });
}

// ---- probe

struct ProbeOptions {
  std::string file;
  bool create = false, json = false;
  int inside = -1;
};

void PrintProbe(const ProbeResult& result) {
  const auto verdict = [](bool good) {
    return good ? Coloured(Colour::Green, "yes") : Coloured(Colour::Red, "no");
  };
  PrintLine("file           " + result.json["file"].get<std::string>());
  PrintLine("meets contract " + verdict(result.meetsContract));
  PrintLine("unloads        " + verdict(result.unloads));
  for (const std::string& reason : result.reasons) PrintLine("  " + reason);
  for (const Json& item : result.json.value("classes", Json::array())) {
    std::string faces;
    for (const Json& face : item["faces"]) faces += " " + face.get<std::string>();
    PrintLine("class          " + item["class"].get<std::string>() + ":" + faces);
    for (const Json& fault : item.value("faults", Json::array()))
      PrintLine(Coloured(Colour::Red, "  " + fault.get<std::string>()));
  }
  for (const Json& library : result.json.value("needs", Json::array()))
    PrintLine("needs          " + library.get<std::string>());
}

void Probe(const ProbeOptions& options) {
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(options.file.c_str(), nullptr), std::free);
  const std::string path = real ? real.get() : platform::UnixPath(AnsiFromArgument(options.file).c_str());
  if (options.inside >= 0) throw Exit{ProbeInside(path, options.create, options.inside)};
  ProbeResult result = ProbeLibrary(path, options.create);
  if (options.json) {
    result.json["meetsContract"] = result.meetsContract;
    result.json["unloads"] = result.unloads;
    result.json["reasons"] = result.reasons;
    PrintJson(result.json);
  } else {
    PrintProbe(result);
  }
  bool faulty = !result.meetsContract || !result.unloads;
  for (const Json& item : result.json.value("classes", Json::array()))
    faulty |= !item.value("faults", Json::array()).empty();
  if (faulty) throw Exit{EXIT_DIFFERENT};
}

void AddProbe(CLI::App& parent) {
  auto options = std::make_shared<ProbeOptions>();
  CLI::App* command =
      AddSubcommand(parent, "probe",
                    "Examine a library: does it meet the contract, does it unload, and if "
                    "not, what holds it",
                    "  orm class probe build/lib/digest.dll             exit code 0: good, 2: not\n"
                    "  orm class probe build/lib/digest.dll --create    also make its objects\n");
  command->add_option("FILE", options->file, "The library")->required();
  command->add_flag("--create", options->create,
                    "Make an object of each class, ask it for its faces, release it");
  command->add_flag("--json", options->json, "Print JSON");
  command->add_option("--inside", options->inside, "")->group("");
  command->callback([options] { Probe(*options); });
}

}  // namespace

void AddClassCommand(CLI::App& app) {
  CLI::App* parent =
      AddSubcommand(app, "class", "Component libraries: classes, the shared cache, a check of a library",
                    "  orm class probe mine.dll && orm class paths --add . && orm class list\n");
  parent->require_subcommand(1);
  AddPaths(*parent);
  AddList(*parent);
  AddShow(*parent);
  AddCreate(*parent);
  AddClassCacheCommand(*parent);
  AddProbe(*parent);
}

}  // namespace orm::tool
