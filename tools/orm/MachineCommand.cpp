// orm machine: the folder that all processes of one machine share.
#include <win32/registryx.h>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>

#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "RegStore.h"
#include "Text.h"
#include "kernel/FolderReader.h"
#include "kernel/Machine.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* SHARED_FOLDER = "/var/lib/ormutil";

// Adds the names in order, as far as they can be read; 0, or an errno value.
int ReadEntries(const std::string& folder, std::vector<std::string>& names) {
  platform::FolderReader reader(folder);
  while (const dirent* entry = reader.Next()) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return reader.GetError();
}

// None when there is no such folder.
std::vector<std::string> Entries(const std::string& folder) {
  std::vector<std::string> names;
  const int error = ReadEntries(folder, names);
  if (error != 0 && error != ENOENT) throw Failure("cannot list " + folder + ": " + std::strerror(error));
  return names;
}

std::string LinkTarget(const std::string& path) {
  char target[4096];
  const ssize_t size = ::readlink(path.c_str(), target, sizeof target);
  return size < 0 ? "" : std::string(target, static_cast<std::size_t>(size));
}

std::string UserName(uid_t user) {
  const passwd* entry = ::getpwuid(user);
  return entry ? entry->pw_name : std::to_string(user);
}

// The name of an object from that of its file: %XX stands for a byte.
std::string ObjectName(const std::string& file) {
  std::string name;
  for (std::size_t i = 2; i < file.size(); ++i) {
    const std::optional<std::string> byte =
        file[i] == '%' ? BytesFromHex(file.substr(i + 1, 2)) : std::nullopt;
    name += byte ? *byte : std::string(1, file[i]);
    if (byte) i += 2;
  }
  return name;
}

// The processes that have a file open, as far as this user may see.
std::vector<std::string> Holders(const std::string& path) {
  std::vector<std::string> holders;
  for (const std::string& process : Entries("/proc")) {
    if (process.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string folder = "/proc/" + process + "/fd";
    std::vector<std::string> descriptors;
    (void)ReadEntries(folder, descriptors);  // it may be another user's, or end meanwhile
    for (const std::string& descriptor : descriptors) {
      if (LinkTarget(folder + "/" + descriptor) != path) continue;
      holders.push_back(process);
      break;
    }
  }
  return holders;
}

std::string RequireFolder() {
  const std::string& folder = platform::MachineFolder();
  if (folder.empty())
    throw Failure("there is no machine folder: it cannot be made, or it belongs to somebody else");
  return folder;
}

// ---- init

// The machine that all processes find is made by root. Everybody, or each member of the group, may read it,
// and make files in it that are theirs.
void MakeSystemMachine() {
  if (::mkdir(SHARED_FOLDER, 0700) != 0 && errno != EEXIST) {
    throw Failure(std::string("cannot make ") + SHARED_FOLDER + ": " + std::strerror(errno));
  }
}

gid_t GroupNumber(const std::string& name) {
  const group* entry = ::getgrnam(name.c_str());
  if (!entry) throw Failure("there is no group " + name);
  return entry->gr_gid;
}

void Share(const std::string& folder, const std::string& groupName) {
  const gid_t group = groupName.empty() ? static_cast<gid_t>(-1) : GroupNumber(groupName);
  if (const int error = platform::ShareMachine(group)) {
    throw Failure("cannot share " + folder + ": " + std::strerror(error));
  }
}

struct InitOptions {
  bool shared = false;
  std::string group;
};

void Init(const InitOptions& options) {
  const bool shared = options.shared || !options.group.empty();
  if (shared && platform::MachineFolder() != SHARED_FOLDER) {
    // The library chose another folder when it was loaded: the same command once more, told where.
    MakeSystemMachine();
    ::setenv("ORM_MACHINE", SHARED_FOLDER, 1);
    ::execl("/proc/self/exe", "orm", "machine", "init", options.group.empty() ? "--shared" : "--group",
            options.group.empty() ? nullptr : options.group.c_str(), static_cast<char*>(nullptr));
    throw Failure(std::string("cannot run again: ") + std::strerror(errno));
  }
  const std::string folder = RequireFolder();
  if (shared) Share(folder, options.group);
  for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
    const LSTATUS error = RegFlushKey(root);  // makes the store
    if (error != 0) throw SystemFailure("cannot make the registry", static_cast<DWORD>(error));
  }
  for (const char* name : {"named", "undo"}) {
    if (const int error = platform::EnsureFolder(folder + "/" + name, platform::MachineMode(01777))) {
      throw Failure("cannot make " + folder + "/" + name + ": " + std::strerror(error));
    }
  }
  PrintLine("the machine is " + folder + (platform::MachineIsShared() ? ", shared" : ""));
}

// ---- info

Json Describe() {
  const std::string folder = RequireFolder();
  Json json{{"folder", folder},
            {"owner", UserName(platform::MachineOwner())},
            {"shared", platform::MachineIsShared()},
            {"codePage", GetACP()}};
  const HDC screen = GetDC(nullptr);
  json["screen"] = {{"dotsPerInch", GetDeviceCaps(screen, LOGPIXELSY)},
                    {"bitsPerPixel", GetDeviceCaps(screen, BITSPIXEL)}};
  ReleaseDC(nullptr, screen);
  json["drives"] = Json::array();
  for (const std::string& drive : Entries(folder + "/drives")) {
    const std::string target = LinkTarget(folder + "/drives/" + drive);
    if (!target.empty()) json["drives"].push_back({{"drive", drive}, {"target", target}});
  }
  json["hives"] = Entries(folder + "/registry");
  json["users"] = Json::array();
  for (const std::string& hive : Entries(folder + "/registry")) {
    constexpr std::string_view prefix = "user-";
    unsigned user = 0;
    if (hive.starts_with(prefix) &&
        std::from_chars(hive.data() + prefix.size(), hive.data() + hive.size(), user).ec == std::errc())
      json["users"].push_back(UserName(user));
  }
  json["objects"] = Json::array();
  for (const std::string& file : Entries(folder + "/named")) {
    if (!file.starts_with("n-")) continue;
    const std::vector<std::string> holders = Holders(folder + "/named/" + file);
    if (!holders.empty()) json["objects"].push_back({{"name", ObjectName(file)}, {"processes", holders}});
  }
  return json;
}

void PrintInfo(const Json& json) {
  const auto line = [](const std::string& head, const std::string& text) {
    PrintLine(Coloured(Colour::Bold, head) + std::string(head.size() < 12 ? 12 - head.size() : 1, ' ') +
              text);
  };
  line("folder", json["folder"]);
  line("owner", json["owner"]);
  line("shared", json["shared"] ? "with other users" : "with nobody");
  line("code page", json["codePage"].dump());
  line("screen", json["screen"]["dotsPerInch"].dump() + " dots per inch, " +
                     json["screen"]["bitsPerPixel"].dump() + " bits a pixel");
  for (const Json& drive : json["drives"])
    line("drive", drive["drive"].get<std::string>() + " is " + drive["target"].get<std::string>());
  for (const Json& user : json["users"]) line("user", user);
  for (const Json& object : json["objects"]) {
    std::string processes;
    for (const Json& process : object["processes"]) processes += " " + process.get<std::string>();
    line("object", object["name"].get<std::string>() + ", held by" + processes);
  }
}

// ---- check

class Check {
 public:
  explicit Check(bool json) : mJson(json) {}

  void Item(const std::string& what, bool good, const std::string& fault = "") {
    mGood &= good;
    mList.push_back({{"item", what}, {"good", good}});
    if (!good) mList.back()["fault"] = fault;
    if (mJson) return;
    PrintLine((good ? Coloured(Colour::Green, "ok    ") : Coloured(Colour::Red, "FAULT ")) + what +
              (good ? "" : ": " + fault));
  }
  bool IsGood() const { return mGood; }
  const Json& GetList() const { return mList; }

 private:
  const bool mJson;
  bool mGood = true;
  Json mList = Json::array();
};

void CheckStore(Check& check, HKEY root) {
  std::string faults;
  const auto report = [](void* context, const char* fault) {
    std::string& text = *static_cast<std::string*>(context);
    text += (text.empty() ? "" : "; ") + std::string(fault);
  };
  const LSTATUS error = OrmRegCheckStore(root, report, &faults);
  check.Item("registry " + RegPath{root, ""}.GetName(), error == 0,
             faults.empty() ? SystemMessage(static_cast<DWORD>(error)) : faults);
}

void CheckDrives(Check& check, const std::string& folder) {
  for (const std::string& drive : Entries(folder + "/drives")) {
    const std::string path = folder + "/drives/" + drive;
    struct stat target {};
    if (!LinkTarget(path).empty()) {
      check.Item("drive " + drive, ::stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode),
                 LinkTarget(path) + " is no folder");
    }
  }
  for (const char* name : {"Windows/System32", "Windows/Temp"}) {
    const std::string path = folder + "/drives/c:/" + name;
    const int error = ::access(path.c_str(), X_OK) == 0 ? 0 : errno;
    check.Item("folder c:/" + std::string(name), error == 0, std::strerror(error));
  }
}

void CheckCodePage(Check& check) {
  std::optional<std::string> page;
  try {
    page = ReadRegText({HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage"}, "ACP");
  } catch (const Failure& failure) {
    return check.Item("code page", false, failure.what());
  }
  check.Item("code page " + page.value_or("1252"), !page || *page == std::to_string(GetACP()),
             "it is not supported; 1252 is used");
}

void CheckMachine(bool json) {
  Check check(json);
  const std::string folder = RequireFolder();
  struct stat status {};
  const bool found = ::stat(folder.c_str(), &status) == 0;
  check.Item("folder " + folder, found && (status.st_mode & S_IWOTH) == 0, "it is writable to everybody");
  CheckStore(check, HKEY_LOCAL_MACHINE);
  CheckStore(check, HKEY_CURRENT_USER);
  CheckDrives(check, folder);
  CheckCodePage(check);
  if (json) PrintJson(check.GetList());
  if (!check.IsGood()) throw Exit{EXIT_DIFFERENT};
}

}  // namespace

void AddMachineCommand(CLI::App& app) {
  CLI::App* machine = AddSubcommand(app, "machine", "The folder that all processes of a machine share",
                                    "  orm machine info\n"
                                    "  ORM_MACHINE=/tmp/trial orm machine init     a machine to play with\n");
  machine->require_subcommand(1);
  auto options = std::make_shared<InitOptions>();
  CLI::App* init = AddSubcommand(
      *machine, "init", "Make the machine folder",
      "  orm machine init\n"
      "  sudo orm machine init --shared         one machine for all users, in /var/lib/ormutil\n"
      "  sudo orm machine init --group staff    the same for the members of a group only\n");
  init->add_flag("--shared", options->shared,
                 "For all users, in /var/lib/ormutil, where every process finds it");
  init->add_option("--group", options->group, "The same for the members of this group only");
  init->callback([options] { Init(*options); });
  auto json = std::make_shared<bool>(false);
  CLI::App* info =
      AddSubcommand(*machine, "info", "Show the folder, its settings, drives, and who holds named objects",
                    "  orm machine info\n  orm machine info --json\n");
  info->add_flag("--json", *json, "Print JSON");
  info->callback([json] { *json ? PrintJson(Describe()) : PrintInfo(Describe()); });
  CLI::App* check =
      AddSubcommand(*machine, "check", "Check the folder, the registry, the drives and the settings",
                    "  orm machine check          exit code 0: sound, 2: something is wrong\n"
                    "  orm machine check --json\n");
  auto checkJson = std::make_shared<bool>(false);
  check->add_flag("--json", *checkJson, "Print JSON");
  check->callback([checkJson] { CheckMachine(*checkJson); });
}

}  // namespace orm::tool
