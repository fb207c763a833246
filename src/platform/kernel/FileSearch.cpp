// Folder searches: the whole listing is made and sorted by the first call.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/CodePage.h"
#include "kernel/Errno.h"
#include "kernel/File.h"
#include "kernel/Paths.h"
#include "win32.h"

namespace orm::platform {

namespace {

struct Entry {
  std::string name;  // UTF-8
  struct stat status;
};

class SearchObject final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kFileSearch;
  explicit SearchObject(std::vector<Entry> entries) : KernelObject(kKind), mEntries(std::move(entries)) {}

  // The next entry whose name fits; null at the end.
  bool Next(WIN32_FIND_DATAA* data) {
    while (mNext < mEntries.size()) {
      if (Fill(mEntries[mNext++], data)) return true;
    }
    return false;
  }

 private:
  static bool Fill(const Entry& entry, WIN32_FIND_DATAA* data) {
    const std::string name = AnsiFromUtf8(entry.name);
    if (name.size() >= sizeof data->cFileName) return false;
    const auto size = static_cast<uint64_t>(entry.status.st_size);
    *data = {};
    data->dwFileAttributes = AttributesFromMode(entry.status.st_mode);
    data->ftCreationTime = FileTimeFromDisk(entry.status.st_ctim);
    data->ftLastAccessTime = FileTimeFromDisk(entry.status.st_atim);
    data->ftLastWriteTime = FileTimeFromDisk(entry.status.st_mtim);
    data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(size);
    memcpy(data->cFileName, name.c_str(), name.size() + 1);
    return true;
  }

  const std::vector<Entry> mEntries;
  size_t mNext = 0;
};

size_t CharacterSize(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const size_t size = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  return std::min(size, text.size());
}

// `*` is any run of characters; `?` is one character, or none at the end of the name or before a full stop.
// The last star is the only one that need be tried again, so the time is bounded by the product of the
// lengths.
bool Matches(std::string_view pattern, std::string_view name) {
  std::string_view afterStar, retry;
  bool hasStar = false;
  while (!name.empty() || !pattern.empty()) {
    if (!pattern.empty() && pattern[0] == '*') {
      hasStar = true;
      pattern.remove_prefix(1);
      afterStar = pattern;
      retry = name;
      continue;
    }
    if (!pattern.empty() && pattern[0] == '?' && (name.empty() || name[0] == '.')) {
      pattern.remove_prefix(1);
      continue;
    }
    if (!pattern.empty() && !name.empty()) {
      const size_t p = CharacterSize(pattern), n = CharacterSize(name);
      if (pattern[0] == '?' || CompareNames(pattern.substr(0, p), name.substr(0, n)) == 0) {
        pattern.remove_prefix(p);
        name.remove_prefix(n);
        continue;
      }
    }
    if (!hasStar || retry.empty()) return false;
    retry.remove_prefix(CharacterSize(retry));
    name = retry;
    pattern = afterStar;
  }
  return true;
}

// Where the last component begins: after the last separator or the drive's colon, double-byte characters
// whole.
size_t LastComponent(std::string_view path) {
  const CodePage& page = AnsiCodePage();
  const auto* begin = reinterpret_cast<const unsigned char*>(path.data());
  const auto* end = begin + path.size();
  size_t result = path.size() >= 2 && path[1] == ':' ? 2 : 0;
  for (const auto* p = begin; p < end; p += page.CharacterSize(p, end)) {
    if (*p == '\\' || *p == '/') result = static_cast<size_t>(p - begin) + 1;
  }
  return result;
}

int RankOf(const std::string& name) {
  return name == "." ? 0 : name == ".." ? 1 : 2;
}

bool ComesBefore(const Entry& a, const Entry& b) {
  const int rankA = RankOf(a.name), rankB = RankOf(b.name);
  if (rankA != rankB || rankA != 2) return rankA < rankB;
  const int order = CompareNames(a.name, b.name);
  return order != 0 ? order < 0 : a.name < b.name;
}

// The matching entries; false with errno when the folder cannot be read.
bool List(const std::string& folder, const std::string& pattern, std::vector<Entry>* entries) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
  if (!stream) return false;
  const bool matchesAll = pattern == "*" || pattern == "*.*";
  errno = 0;
  while (const dirent* found = readdir(stream.get())) {
    if (!matchesAll && !Matches(pattern, found->d_name)) continue;
    Entry entry{found->d_name, {}};
    // A link that leads nowhere is listed as itself.
    if (fstatat(dirfd(stream.get()), found->d_name, &entry.status, 0) == 0 ||
        fstatat(dirfd(stream.get()), found->d_name, &entry.status, AT_SYMLINK_NOFOLLOW) == 0) {
      entries->push_back(std::move(entry));
    }
    errno = 0;
  }
  if (errno != 0) return false;
  std::sort(entries->begin(), entries->end(), ComesBefore);
  return true;
}

HANDLE Fail(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

}  // namespace

}  // namespace orm::platform

using namespace orm::platform;

extern "C" {

HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data) {
  if (pattern == nullptr || data == nullptr) return Fail(ERROR_INVALID_PARAMETER);
  const std::string text(pattern);
  const size_t last = LastComponent(text);
  if (last == text.size()) return Fail(ERROR_FILE_NOT_FOUND);
  DWORD error = ERROR_SUCCESS;
  const std::string folder = last == 0 ? "." : UnixPath(text.substr(0, last).c_str(), &error);
  if (folder.empty()) return Fail(error);
  std::vector<Entry> entries;
  if (!List(folder, Utf8FromAnsi(text.substr(last)), &entries)) {
    return Fail(errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
  }
  auto search = MakeRef<SearchObject>(std::move(entries));
  if (!search->Next(data)) return Fail(ERROR_FILE_NOT_FOUND);
  const HANDLE handle = AllocateHandle(std::move(search));
  return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
}

BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data) {
  const HandlePin pin(search);
  auto* object = PinnedAs<SearchObject>(pin);
  if (object == nullptr) return FALSE;
  if (object->Next(data)) return TRUE;
  SetLastError(ERROR_NO_MORE_FILES);
  return FALSE;
}

BOOL FindClose(HANDLE search) {
  {
    const HandlePin pin(search);
    if (PinnedAs<SearchObject>(pin) == nullptr) return FALSE;
  }
  return ReleaseHandle(search) ? TRUE : FALSE;
}

}  // extern "C"
