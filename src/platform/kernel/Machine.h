// The machine: the folder under which everything that all processes of one machine share is kept (registry,
// drives, named objects). It is made on first use.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "win32/types.h"

namespace orm::platform {

// Path of the machine folder, absolute, UTF-8, without a trailing slash; empty when it cannot be had (cannot
// be made, or belongs to somebody whom this process must not trust). Where it lies: ORM_MACHINE; else
// /var/lib/ormutil when that is a shared machine; else $XDG_STATE_HOME/ormutil, else ~/.local/state/ormutil.
// Decided once, at the first call; kept for the life of the process and inherited over fork. Any thread.
ORM_PLATFORM_API const std::string& MachineFolder();

// A path below the machine folder ("registry/machine"); empty when there is no machine folder.
ORM_PLATFORM_API std::string MachinePath(std::string_view sub);

// The user who owns the machine folder; uid_t(-1) without one.
ORM_PLATFORM_API uid_t MachineOwner();

// A machine is its owner's alone, closed to everybody else, unless its owner has shared it: a file "shared"
// of the owner's stands in its folder then. Any thread; a machine may be shared while it is used.
ORM_PLATFORM_API bool MachineIsShared();

// The permission bits that a file or folder of a shared machine is to have, or those of the owner alone.
ORM_PLATFORM_API mode_t MachineMode(mode_t shared);

// Shares the machine with all users, or with the members of a group (gid_t(-1): all): opens what is there
// already as far as others are to see it. Returns 0 or an errno value. For the machine's owner.
ORM_PLATFORM_API int ShareMachine(gid_t group = static_cast<gid_t>(-1));

// Makes a folder of the given permission bits, whatever the process's file mode mask, or accepts one that
// is there already. It must be a folder, not a link, owned by this user, root or the machine's owner, and
// writable to others only when it is sticky. Returns 0 or an errno value. Safe against concurrent callers.
ORM_PLATFORM_API int EnsureFolder(const std::string& path, mode_t mode);

}  // namespace orm::platform
