// Finds, makes and checks the machine folder.
//
// What is planted is refused: a folder counts only when it is a real folder that belongs to the effective
// user, or to root who has shared it, and that nobody else can write, unless it is sticky. So another user
// can neither slip in a machine of his own (in a temporary folder, say) nor exchange what lies inside one.
#include "kernel/Machine.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "kernel/Fork.h"

namespace orm::platform {
namespace {

struct Machine {
  std::string folder;
  uid_t owner = static_cast<uid_t>(-1);
};

constexpr const char* SYSTEM_MACHINE = "/var/lib/ormutil";

// The folders of every machine and, below them, what a machine that is being shared may hold already, with
// their modes on a shared machine. What is missing here is nobody's but its owner's.
constexpr struct {
  const char* name;
  mode_t mode;
  bool isRoom;
} PARTS[] = {{"/registry", 01777, true},
             {"/named", 01777, true},
             {"/drives", 0755, true},
             {"/drives/drive_c", 0755, true},
             {"/drives/drive_c/Windows", 0755, true},
             {"/drives/drive_c/Windows/System32", 0755, true},
             {"/drives/drive_c/Windows/Temp", 01777, true},
             {"/undo", 01777, false},
             {"/debug", 0644, false},
             {"/registry/machine", 0755, false},
             {"/registry/machine/data.mdb", 0644, false},
             {"/registry/machine/lock.mdb", 0666, false},
             {"/registry/open", 0755, false},
             {"/registry/open/data.mdb", 0666, false},
             {"/registry/open/lock.mdb", 0666, false}};

bool IsSharedBy(const std::string& folder, uid_t owner) {
  struct stat status {};
  return lstat((folder + "/shared").c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_uid == owner;
}

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
  if (IsSharedBy(SYSTEM_MACHINE, 0)) return SYSTEM_MACHINE;
  if (const char* state = secure_getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
    return std::string(state) + "/ormutil";
  }
  const std::string home = HomeFolder();
  return home.empty() ? home : home + "/.local/state/ormutil";
}

// What cannot be made here is missed by the operation that needs it, which has the error to tell it with.
void MakeRooms(const Machine& machine) {
  const bool isShared = IsSharedBy(machine.folder, machine.owner);
  for (const auto& part : PARTS) {
    if (part.isRoom) {
      EnsureFolderOf(machine.folder + part.name, isShared ? part.mode : part.mode & 0700, machine.owner);
    }
  }
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
    if (mkdir(chosen.c_str(), 0700) != 0 && errno != EEXIST) return machine;
  }
  // Links on the way are the administrator's or the user's choice; what they lead to is checked.
  char real[PATH_MAX];
  struct stat status {};
  if (realpath(chosen.c_str(), real) == nullptr || lstat(real, &status) != 0) return machine;
  if (!IsTrusted(status, 0)) return machine;
  if (status.st_uid != geteuid() && !IsSharedBy(real, status.st_uid)) return machine;
  machine.folder = real;
  machine.owner = status.st_uid;
  MakeRooms(machine);
  return machine;
}

constinit std::mutex gsMachineLock;
constinit std::atomic<const Machine*> gsMachine{nullptr};  // what it points to lives as long as the process

const Machine& TheMachine() {
  if (const Machine* const machine = gsMachine.load(std::memory_order_acquire)) return *machine;
  const std::lock_guard lock(gsMachineLock);
  if (gsMachine.load(std::memory_order_relaxed) == nullptr) {
    gsMachine.store(new Machine(FindMachine()), std::memory_order_release);
  }
  return *gsMachine.load(std::memory_order_relaxed);
}

}  // namespace

std::mutex& MachineLock() noexcept {
  return gsMachineLock;
}

const std::string& MachineFolder() {
  return TheMachine().folder;
}

uid_t MachineOwner() {
  return TheMachine().owner;
}

bool MachineIsShared() {
  const Machine& machine = TheMachine();
  return !machine.folder.empty() && IsSharedBy(machine.folder, machine.owner);
}

mode_t MachineMode(mode_t shared) {
  return MachineIsShared() ? shared : shared & 0700;
}

int ShareMachine(gid_t group) {
  const Machine& machine = TheMachine();
  if (machine.folder.empty()) return ENOENT;
  if (machine.owner != geteuid()) return EPERM;
  const std::string& folder = machine.folder;
  // First, so that what others of the owner's processes make from now on is open as well.
  const int mark = open((folder + "/shared").c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (mark < 0) return errno;
  const int marked = fchmod(mark, 0644) == 0 ? 0 : errno;
  close(mark);
  if (marked != 0) return marked;
  for (const auto& part : PARTS) {
    if (chmod((folder + part.name).c_str(), part.mode) != 0 && errno != ENOENT) return errno;
  }
  // Last, so that others find everything open when they come in.
  const bool isForAll = group == static_cast<gid_t>(-1);
  if (!isForAll && chown(folder.c_str(), static_cast<uid_t>(-1), group) != 0) return errno;
  return chmod(folder.c_str(), isForAll ? 0755 : 0750) == 0 ? 0 : errno;
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
