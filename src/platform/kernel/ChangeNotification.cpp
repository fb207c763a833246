// Change notifications of folders, over inotify.
//
// What happens is queued by the kernel from the moment that the watch exists, so that nothing is missed
// between two looks, nor between a look and the re-arming. Content that changes through a shared mapping is
// seen when its writer closes the file.
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <mutex>

#include "kernel/FileDisk.h"
#include "kernel/FolderReader.h"
#include "kernel/Waitable.h"
#include "win32/files.h"

namespace orm::platform {
namespace {

constexpr std::uint32_t nameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t selfEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;
constexpr DWORD allFilters = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                             FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                             FILE_NOTIFY_CHANGE_LAST_WRITE;

class ChangeNotification final : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kChangeNotification;

  ChangeNotification(std::string folder, bool subtree, DWORD filter) noexcept
      : Waitable(kKind), mFolder(std::move(folder)), mSubtree(subtree), mFilter(filter) {}

  // Begins to watch; 0 or an errno value.
  int Start() {
    mProcess = getpid();
    mWatched.clear();
    mQueue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return mQueue < 0 ? errno : Watch(mFolder);
  }

  // False when the folder is gone.
  bool Rearm() {
    const std::lock_guard lock(mLock);
    mIsSignalled = false;
    return !mIsGone;
  }

  int PollDescriptor() const noexcept override { return mQueue; }

  // Stays signalled until it is re-armed.
  Acquired TryAcquire(const WaitNode&) noexcept override {
    const std::lock_guard lock(mLock);
    StartAnewAfterFork();
    while (ReadEvents()) continue;
    return mIsSignalled ? Acquired::kYes : Acquired::kNo;
  }

 protected:
  ~ChangeNotification() override {
    if (mQueue >= 0) close(mQueue);
  }

 private:
  std::uint32_t Mask() const {
    std::uint32_t mask = nameEvents | selfEvents | IN_ONLYDIR;
    if ((mFilter & (FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE)) != 0)
      mask |= IN_MODIFY | IN_CLOSE_WRITE;
    if ((mFilter & (FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_LAST_WRITE)) != 0) mask |= IN_ATTRIB;
    return mask;
  }

  int Watch(const std::string& folder) {
    const int watch = inotify_add_watch(mQueue, folder.c_str(), Mask());
    if (watch < 0) return errno;
    mWatched[watch] = folder;
    return mSubtree ? WatchBelow(folder) : 0;
  }

  // What has vanished meanwhile, or what this user may not look into, needs no watch.
  static bool IsOutOfSight(int error) { return error == ENOENT || error == ENOTDIR || error == EACCES; }

  int WatchBelow(const std::string& folder) {
    FolderReader listing(folder);
    while (const dirent* entry = listing.Next()) {
      const std::string name = entry->d_name;
      struct stat status {};
      std::string path = folder;
      path.append(1, '/').append(name);
      if (name == "." || name == ".." || lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        continue;
      if (const int error = Watch(path); error != 0 && !IsOutOfSight(error)) return error;
    }
    return IsOutOfSight(listing.GetError()) ? 0 : listing.GetError();
  }

  // The queue is the parent's: reading it would take its events away. What has happened before is not known,
  // so the handle is signalled.
  void StartAnewAfterFork() {
    if (mProcess == getpid()) return;
    close(mQueue);
    mIsGone = Start() != 0;
    mIsSignalled = true;
  }

  // One buffer full of events; false when there are none.
  bool ReadEvents() {
    alignas(inotify_event) char buffer[4096];
    const ssize_t size = read(mQueue, buffer, sizeof buffer);
    if (size <= 0) return size < 0 && errno == EINTR;
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      See(*event);
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return true;
  }

  void See(const inotify_event& event) {
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    const auto watched = mWatched.find(event.wd);
    const bool isTop = watched != mWatched.end() && watched->second == mFolder;
    if ((event.mask & IN_Q_OVERFLOW) != 0) mIsSignalled = true;
    // Who watches by name is to look where the name leads now.
    if ((event.mask & (selfEvents | IN_IGNORED)) != 0 && isTop) mIsGone = mIsSignalled = true;
    if ((event.mask & nameEvents) != 0) {
      const DWORD kind = isFolder ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME;
      if ((mFilter & kind) != 0) mIsSignalled = true;
      const bool comes = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;
      // What was made in the new folder before the watch on it is only seen as the new folder.
      if (comes && isFolder && mSubtree && watched != mWatched.end()) {
        const int error = Watch(watched->second + '/' + event.name);
        // Rather no watch any more than one that misses what happens there.
        mIsGone |= error != 0 && !IsOutOfSight(error);
        mIsSignalled = true;
      }
    }
    if ((event.mask & (IN_MODIFY | IN_CLOSE_WRITE)) != 0) mIsSignalled = true;
    // The time of a folder's own entry is of no interest unless attributes are.
    if ((event.mask & IN_ATTRIB) != 0 && (event.len != 0 || (mFilter & FILE_NOTIFY_CHANGE_ATTRIBUTES) != 0))
      mIsSignalled = true;
    if ((event.mask & IN_IGNORED) != 0 && watched != mWatched.end()) mWatched.erase(watched);
  }

  std::mutex mLock;
  const std::string mFolder;
  const bool mSubtree;
  const DWORD mFilter;
  int mQueue = -1;
  pid_t mProcess = 0;
  bool mIsSignalled = false;
  bool mIsGone = false;
  std::map<int, std::string> mWatched;
};

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE FindFirstChangeNotificationA(const char* folder, BOOL subtree, DWORD filter) {
  if (filter == 0 || (filter & ~allFilters) != 0) {
    SetLastErrorCode(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  const std::string translated = TranslateOrFail(folder);
  if (translated.empty()) return INVALID_HANDLE_VALUE;
  const std::string path = ResolveCase(translated);
  if (path.empty()) {
    SetLastErrorCode(ErrorFromErrno(errno));
    return INVALID_HANDLE_VALUE;
  }
  auto change = MakeRef<ChangeNotification>(path, subtree != FALSE, filter);
  if (const int error = change->Start(); error != 0) {
    FailWith(error, path);
    if (error == ENOTDIR) SetLastErrorCode(ERROR_DIRECTORY);
    if (error == ENOSPC) SetLastErrorCode(ERROR_NO_SYSTEM_RESOURCES);  // the user's limit of watches
    return INVALID_HANDLE_VALUE;
  }
  const HANDLE handle = AllocateHandle(std::move(change));
  return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

BOOL FindNextChangeNotification(HANDLE change) {
  const auto object = ReferenceHandle<ChangeNotification>(change);
  if (!object) return FALSE;
  if (object->Rearm()) return TRUE;
  SetLastErrorCode(ERROR_ACCESS_DENIED);
  return FALSE;
}

BOOL FindCloseChangeNotification(HANDLE change) {
  return ReferenceHandle<ChangeNotification>(change) && ReleaseHandle(change) ? TRUE : FALSE;
}
