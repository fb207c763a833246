// Change notifications of folders, over inotify.
#include <errno.h>
#include <limits.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include "kernel/Errno.h"
#include "kernel/Paths.h"
#include "kernel/Waitable.h"
#include "win32.h"

namespace orm::platform {

namespace {

constexpr DWORD NAME_CHANGES = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME;
constexpr DWORD CONTENT_CHANGES = FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;
constexpr uint32_t NAME_EVENTS = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr uint32_t FOLDER_EVENTS = IN_DELETE_SELF | IN_MOVE_SELF;

uint32_t EventsOf(DWORD filter, bool subtree) {
  uint32_t events = FOLDER_EVENTS | IN_ONLYDIR;
  if ((filter & NAME_CHANGES) != 0 || subtree) events |= NAME_EVENTS;
  // A set time stamp comes as a change of attributes.
  if ((filter & CONTENT_CHANGES) != 0) events |= IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB;
  if ((filter & FILE_NOTIFY_CHANGE_ATTRIBUTES) != 0) events |= IN_ATTRIB;
  return events;
}

// Signalled from the first change until it is re-armed. What happens meanwhile stays in the descriptor and
// signals the object again at once.
class ChangeObject final : public Waitable {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kChangeNotification;

  ChangeObject(int descriptor, DWORD filter, bool subtree)
      : Waitable(kKind), mDescriptor(descriptor), mFilter(filter), mSubtree(subtree) {}

  // False with errno when the folder cannot be watched.
  bool Watch(const std::string& folder) {
    const int watch = inotify_add_watch(mDescriptor, folder.c_str(), EventsOf(mFilter, mSubtree));
    if (watch < 0) return false;
    if (mRoot < 0) mRoot = watch;
    if (!mSubtree) return true;
    mFolders[watch] = folder;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
      if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) (void)Watch(entry.path().string());
    }
    return true;
  }

  Acquired TryAcquire(const WaitNode&) noexcept override {
    const std::lock_guard lock(mMutex);
    if (!mChanged) ReadEvents();
    return mChanged ? Acquired::kYes : Acquired::kNo;
  }
  int PollDescriptor() const noexcept override { return mDescriptor; }

  // False when the folder is gone.
  bool Rearm() {
    const std::lock_guard lock(mMutex);
    mChanged = false;
    return !mGone;
  }

 private:
  ~ChangeObject() override { close(mDescriptor); }

  void ReadEvents() {
    alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    for (ssize_t size; (size = read(mDescriptor, buffer, sizeof buffer)) > 0;) {
      for (const char* p = buffer; p < buffer + size;) {
        const auto& event = *reinterpret_cast<const inotify_event*>(p);
        Take(event);
        p += sizeof event + event.len;
      }
    }
  }

  void Take(const inotify_event& event) {
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    if ((event.mask & IN_Q_OVERFLOW) != 0) mChanged = true;
    if ((event.mask & (FOLDER_EVENTS | IN_IGNORED)) != 0 && event.wd == mRoot) mGone = mChanged = true;
    if ((event.mask & NAME_EVENTS) != 0) {
      mChanged |= (mFilter & (isFolder ? FILE_NOTIFY_CHANGE_DIR_NAME : FILE_NOTIFY_CHANGE_FILE_NAME)) != 0;
      // A file that was moved over another one has another content too.
      if ((event.mask & IN_MOVED_TO) != 0) mChanged |= !isFolder && (mFilter & CONTENT_CHANGES) != 0;
      if (mSubtree && isFolder && (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0 && event.len != 0) {
        (void)Watch(mFolders[event.wd] + "/" + event.name);
      }
    }
    if ((event.mask & (IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB)) != 0 && event.len != 0) mChanged = true;
  }

  const int mDescriptor;
  const DWORD mFilter;
  const bool mSubtree;
  std::mutex mMutex;
  bool mChanged = false;
  bool mGone = false;
  int mRoot = -1;
  std::map<int, std::string> mFolders;  // by watch; for subtrees only
};

HANDLE Fail(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

}  // namespace

}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

HANDLE FindFirstChangeNotificationA(const char* folder, BOOL subtree, DWORD filter) {
  if (folder == nullptr || filter == 0) return Fail(ERROR_INVALID_PARAMETER);
  DWORD error = ERROR_SUCCESS;
  const std::string path = UnixPath(folder, &error);
  if (path.empty()) return Fail(error);
  const int descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (descriptor < 0) return Fail(ErrorFromErrno(errno));
  auto object = MakeRef<ChangeObject>(descriptor, filter, subtree != FALSE);
  if (!object->Watch(path)) return Fail(ErrorFromErrno(errno));
  const HANDLE handle = AllocateHandle(std::move(object));
  return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
}

BOOL FindNextChangeNotification(HANDLE change) {
  const HandlePin pin(change);
  auto* object = PinnedAs<ChangeObject>(pin);
  if (object == nullptr) return FALSE;
  if (object->Rearm()) return TRUE;
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

BOOL FindCloseChangeNotification(HANDLE change) {
  {
    const HandlePin pin(change);
    if (PinnedAs<ChangeObject>(pin) == nullptr) return FALSE;
  }
  return ReleaseHandle(change) ? TRUE : FALSE;
}

}  // extern "C"
