// Finds, makes and checks the machine folder.
//
// What is planted is refused: a folder counts only when it is a real folder that belongs to root or to the
// effective user, and that nobody else can write, unless it is sticky. So another user can neither slip in a
// machine of his own (in a temporary folder, say) nor exchange what lies inside one.
#include "kernel/Machine.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <vector>

namespace orm::platform {
namespace {

struct Machine {
  std::string folder;
  uid_t owner = static_cast<uid_t>(-1);
};

bool IsTrusted(const struct stat& status, uid_t owner) {
  const bool byTrusted = status.st_uid == 0 || status.st_uid == geteuid() || status.st_uid == owner;
  const bool openToOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  return S_ISDIR(status.st_mode) && byTrusted && (!openToOthers || (status.st_mode & S_ISVTX) != 0);
}

int EnsureFolderOf(const std::string& path, mode_t mode, uid_t owner) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) return errno;
    // The sticky bit goes in with the first call: the folder is never open without it.
    if (mkdir(path.c_str(), mode) == 0) {
      // The file mode mask may have taken bits away.
      const int folder = open(path.c_str(), O_DIRECTORY | O_NOFOLLOW | O_RDONLY | O_CLOEXEC);
      if (folder < 0) return errno;
      const int result = fchmod(folder, mode) == 0 ? 0 : errno;
      close(folder);
      if (result != 0) return result;
    } else if (errno != EEXIST) {
      return errno;
    }
    if (lstat(path.c_str(), &status) != 0) return errno;
  }
  if (!S_ISDIR(status.st_mode)) return ENOTDIR;
  return IsTrusted(status, owner) ? 0 : EACCES;
}

void MakeParents(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0700);
  }
}

std::string HomeFolder() {
  if (const char* home = secure_getenv("HOME"); home != nullptr && home[0] == '/') return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) return {};
  return entry.pw_dir;
}

std::string ChooseFolder() {
  // A program that runs with more rights than its caller does not let the caller choose.
  if (const char* named = secure_getenv("ORM_MACHINE"); named != nullptr && named[0] != 0) return named;
  static constexpr const char* system = "/var/lib/ormutil";
  struct stat status {};
  if (stat(system, &status) == 0 && S_ISDIR(status.st_mode)) return system;
  if (const char* state = secure_getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
    return std::string(state) + "/ormutil";
  }
  const std::string home = HomeFolder();
  return home.empty() ? home : home + "/.local/state/ormutil";
}

// What cannot be made here is missed by the operation that needs it, which has the error to tell it with.
void MakeRooms(const Machine& machine) {
  static constexpr struct {
    const char* name;
    mode_t mode;
  } rooms[] = {{"/registry", 01777},
               {"/named", 01777},
               {"/drives", 0755},
               {"/drives/drive_c", 0755},
               {"/drives/drive_c/Windows", 0755},
               {"/drives/drive_c/Windows/System32", 0755},
               {"/drives/drive_c/Windows/Temp", 01777}};
  for (const auto& room : rooms) EnsureFolderOf(machine.folder + room.name, room.mode, machine.owner);
  for (const auto& [target, name] : {std::pair{"drive_c", "c:"}, std::pair{"/", "z:"}}) {
    const std::string link = machine.folder + "/drives/" + name;
    // One that is there stays, and only the machine's owner can have made it.
    [[maybe_unused]] const int result = symlink(target, link.c_str());
  }
}

Machine FindMachine() {
  Machine machine;
  std::string chosen = ChooseFolder();
  if (chosen.empty()) return machine;
  while (chosen.size() > 1 && chosen.back() == '/') chosen.pop_back();
  if (access(chosen.c_str(), F_OK) != 0) {
    MakeParents(chosen);
    if (mkdir(chosen.c_str(), 0755) != 0 && errno != EEXIST) return machine;
  }
  // Links on the way are the administrator's or the user's choice; what they lead to is checked.
  char real[PATH_MAX];
  struct stat status {};
  if (realpath(chosen.c_str(), real) == nullptr || lstat(real, &status) != 0) return machine;
  if (!IsTrusted(status, 0)) return machine;
  machine.folder = real;
  machine.owner = status.st_uid;
  MakeRooms(machine);
  return machine;
}

const Machine& TheMachine() {
  static const Machine& machine = *new Machine(FindMachine());  // lives as long as any thread may ask
  return machine;
}

}  // namespace

const std::string& MachineFolder() {
  return TheMachine().folder;
}

uid_t MachineOwner() {
  return TheMachine().owner;
}

std::string MachinePath(std::string_view sub) {
  const std::string& folder = MachineFolder();
  if (folder.empty()) return {};
  return folder + '/' + std::string(sub);
}

int EnsureFolder(const std::string& path, mode_t mode) {
  return EnsureFolderOf(path, mode, MachineOwner());
}

}  // namespace orm::platform
