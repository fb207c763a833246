// Change notifications of folders, over inotify.
//
// What happens is queued by the kernel from the moment that the watch exists, so that nothing is missed
// between two looks, nor between a look and the re-arming. Content that changes through a shared mapping is
// seen when its writer closes the file.
#include <limits.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "kernel/ChangeQueue.h"
#include "kernel/FileDisk.h"
#include "kernel/FolderReader.h"
#include "kernel/NoMemory.h"
#include "kernel/Waitable.h"
#include "win32/files.h"

namespace orm::platform {
namespace {

constexpr std::uint32_t nameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t selfEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT;
constexpr std::uint32_t contentEvents = IN_MODIFY | IN_CLOSE_WRITE;
constexpr DWORD allFilters = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                             FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                             FILE_NOTIFY_CHANGE_LAST_WRITE;

// Its own state is changed under the queue's lock, but for what the object's lock guards.
class ChangeNotification final : public Waitable, private ChangeListener {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kChangeNotification;

  ChangeNotification(std::string folder, bool subtree, DWORD filter) noexcept
      : Waitable(kKind), mFolder(std::move(folder)), mSubtree(subtree), mFilter(filter) {}

  // Begins to watch; 0 or an errno value.
  int Start() {
    const ChangeQueue::Use queue;
    queue->Read();
    return Watch(*queue, mFolder);
  }

  // What has come in since somebody was told of the last change is a change of its own. False when the folder
  // is gone.
  bool Rearm() {
    const ChangeQueue::Use queue;
    const Lock lock(*this);
    mIsSeen = false;
    if (!std::exchange(mHasMore, false)) mState.fetch_and(~kSignalled, std::memory_order_relaxed);
    return !mIsGone;
  }

  bool IsPumped() const noexcept override { return true; }
  int PollDescriptor() const noexcept override { return ChangeQueue::Descriptor(); }
  void Pump() noexcept override {
    const ChangeQueue::Use queue;
    queue->Read();
  }

  // Stays signalled until it is re-armed.
  Acquired TryAcquire(const WaitNode& request) noexcept override {
    Pump();
    return Waitable::TryAcquire(request);
  }

 protected:
  ~ChangeNotification() override {
    const ChangeQueue::Use queue;
    queue->Remove(*this);
  }

  Acquired Consume(const WaitNode&) noexcept override {
    mIsSeen = true;
    return Acquired::kYes;
  }

 private:
  // Which kinds of changes of files the filter asks for.
  bool WantsContent() const {
    return (mFilter & (FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE)) != 0;
  }
  bool WantsAttributes() const {
    return (mFilter & (FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_LAST_WRITE)) != 0;
  }

  std::uint32_t Mask() const {
    return nameEvents | selfEvents | (WantsContent() ? contentEvents : 0) |
           (WantsAttributes() ? IN_ATTRIB : 0);
  }

  int Watch(ChangeQueue& queue, const std::string& folder) {
    const int error = queue.Add(*this, folder, Mask());
    return error == 0 && mSubtree ? WatchBelow(queue, folder) : error;
  }

  // What has vanished meanwhile, or what this user may not look into, needs no watch.
  static bool IsOutOfSight(int error) { return error == ENOENT || error == ENOTDIR || error == EACCES; }

  int WatchBelow(ChangeQueue& queue, const std::string& folder) {
    FolderReader listing(folder);
    while (const dirent* entry = listing.Next()) {
      const std::string name = entry->d_name;
      struct stat status {};
      std::string path = folder;
      path.append(1, '/').append(name);
      if (name == "." || name == ".." || lstat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        continue;
      if (const int error = Watch(queue, path); error != 0 && !IsOutOfSight(error)) return error;
    }
    return IsOutOfSight(listing.GetError()) ? 0 : listing.GetError();
  }

  // A folder, or one in it; want of memory is an error like another.
  int TryToWatch(ChangeQueue& queue, const std::string& folder, const char* name = nullptr) noexcept try {
    return Watch(queue, name == nullptr ? folder : folder + '/' + name);
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }

  void Mark() noexcept {
    {
      const Lock lock(*this);
      if ((mState.load(std::memory_order_relaxed) & kSignalled) != 0) {
        mHasMore = mHasMore || mIsSeen;
        return;
      }
    }
    Signal();
  }

  void BeginAnew(ChangeQueue& queue) noexcept override {
    mIsGone = TryToWatch(queue, mFolder) != 0;
    Mark();
  }

  void Hear(ChangeQueue& queue, const inotify_event& event, const std::string& folder) noexcept override {
    // Who watches by name is to look where the name leads now.
    if ((event.mask & (selfEvents | IN_IGNORED)) != 0 && folder == mFolder) mIsGone = true;
    if (mIsGone || IsWanted(event)) Mark();
    const bool isNewFolder = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0 && (event.mask & IN_ISDIR) != 0;
    // What was made in the new folder before the watch on it is only seen as the new folder.
    if (isNewFolder && mSubtree) {
      const int error = TryToWatch(queue, folder, event.name);
      // Rather no watch any more than one that misses what happens there.
      mIsGone = mIsGone || (error != 0 && !IsOutOfSight(error));
      Mark();
    }
  }

  // Others may watch the same folder for other kinds of events.
  bool IsWanted(const inotify_event& event) const {
    if ((event.mask & nameEvents) != 0) {
      const bool isFolder = (event.mask & IN_ISDIR) != 0;
      return (mFilter & (isFolder ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME)) != 0;
    }
    if ((event.mask & contentEvents) != 0) return WantsContent();
    // The time of a folder's own entry is of no interest unless attributes are.
    return (event.mask & IN_ATTRIB) != 0 && WantsAttributes() &&
           (event.len != 0 || (mFilter & FILE_NOTIFY_CHANGE_ATTRIBUTES) != 0);
  }

  const std::string mFolder;
  const bool mSubtree;
  const DWORD mFilter;
  bool mIsGone = false;
  bool mIsSeen = false;   // a wait has been told of the signal; guarded by the object's lock, as the next one
  bool mHasMore = false;  // more has happened since
};

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE FindFirstChangeNotificationA(const char* folder, BOOL subtree, DWORD filter) noexcept {
  return OrNoMemory<HANDLE>(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
    if (filter == 0 || (filter & ~allFilters) != 0) {
      SetLastErrorCode(ERROR_INVALID_PARAMETER);
      return INVALID_HANDLE_VALUE;
    }
    const std::string translated = TranslateOrFail(folder);
    if (translated.empty()) return INVALID_HANDLE_VALUE;
    const std::string path = ResolveOrFail(translated);
    if (path.empty()) return INVALID_HANDLE_VALUE;
    auto change = MakeRef<ChangeNotification>(path, subtree != FALSE, filter);
    if (const int error = change->Start(); error != 0) {
      FailWith(error, path);
      if (error == ENOTDIR) SetLastErrorCode(ERROR_DIRECTORY);
      if (error == ENOSPC) SetLastErrorCode(ERROR_NO_SYSTEM_RESOURCES);
      return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = AllocateHandle(std::move(change));
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
  });
}

BOOL FindNextChangeNotification(HANDLE change) noexcept {
  const auto object = ReferenceHandle<ChangeNotification>(change);
  if (!object) return FALSE;
  if (object->Rearm()) return TRUE;
  SetLastErrorCode(ERROR_ACCESS_DENIED);
  return FALSE;
}

BOOL FindCloseChangeNotification(HANDLE change) noexcept {
  return ReferenceHandle<ChangeNotification>(change) && ReleaseHandle(change) ? TRUE : FALSE;
}
