// Searches of folders. The first call lists the whole folder, sorted: the order is the same on every disk,
// and what happens in the folder meanwhile does not disturb the search.
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "kernel/CodePage.h"
#include "kernel/FileDisk.h"
#include "kernel/FolderReader.h"
#include "kernel/NameMatch.h"
#include "kernel/NoMemory.h"
#include "kernel/Object.h"
#include "win32/files.h"

namespace orm::platform {
namespace {

// As small as it goes: a folder may hold many.
struct Entry {
  std::u32string folded;
  std::string name;  // UTF-8
  WIN32_FILE_ATTRIBUTE_DATA attributes;
};

class FileSearch final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kFileSearch;

  explicit FileSearch(std::vector<Entry> entries) noexcept
      : KernelObject(kKind), mEntries(std::move(entries)) {}

  // Whoever is first to describe an entry has it; the other one goes on to the next.
  bool Next(WIN32_FIND_DATAA* data) {
    std::size_t at = mNext.load(std::memory_order_relaxed);
    do {
      if (at == mEntries.size()) return false;
      Describe(mEntries[at], data);
    } while (!mNext.compare_exchange_weak(at, at + 1, std::memory_order_relaxed));
    return true;
  }

 private:
  static void Describe(const Entry& entry, WIN32_FIND_DATAA* data) {
    const WIN32_FILE_ATTRIBUTE_DATA& attributes = entry.attributes;
    *data = {attributes.dwFileAttributes,
             attributes.ftCreationTime,
             attributes.ftLastAccessTime,
             attributes.ftLastWriteTime,
             attributes.nFileSizeHigh,
             attributes.nFileSizeLow,
             0,
             0,
             {},
             {}};
    const std::string name = AnsiFromName(entry.name);
    memcpy(data->cFileName, name.c_str(), name.size() + 1);
  }

  const std::vector<Entry> mEntries;
  std::atomic<std::size_t> mNext{0};
};

// `.` and `..` first, then by name.
bool ComesBefore(const Entry& left, const Entry& right) {
  const auto rank = [](const Entry& entry) { return entry.name == "." ? 0 : entry.name == ".." ? 1 : 2; };
  if (rank(left) != rank(right)) return rank(left) < rank(right);
  const int order = left.folded.compare(right.folded);
  return order != 0 ? order < 0 : left.name < right.name;
}

// Reads the matching entries of a folder. What vanishes while it is read is left out; an entry of which
// nothing can be learnt for another reason makes the whole listing fail, as half of one would be taken for
// all of it.
DWORD List(FolderReader& folder, const NamePattern& pattern, std::vector<Entry>* entries) {
  while (const dirent* item = folder.Next()) {
    const std::string_view name = item->d_name;
    std::u32string folded = FoldName(name);
    if (!pattern.Matches(folded)) continue;
    if (name.size() >= MAX_PATH && AnsiFromName(name).size() >= MAX_PATH) continue;
    struct stat status;
    if (StatusOf(folder.GetDescriptor(), item->d_name, &status) != 0) {
      if (errno == ENOENT) continue;
      return ErrorFromErrno(errno);
    }
    entries->push_back({std::move(folded), std::string(name), {}});
    FillAttributes(status, &entries->back().attributes);
  }
  if (folder.GetError() != 0) return ErrorFromErrno(folder.GetError());
  std::sort(entries->begin(), entries->end(), ComesBefore);
  return entries->empty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

// Splits at the last separator; a trail byte is none. The folder keeps its separator, for "C:\".
void SplitPattern(std::string_view text, std::string_view* folder, std::string_view* name) {
  const CodePage& page = AnsiCodePage();
  const auto* start = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* end = start + text.size();
  std::size_t split = 0;
  for (const unsigned char* current = start; current != end; current += page.CharacterSize(current, end)) {
    if (*current == '\\' || *current == '/') split = static_cast<std::size_t>(current - start) + 1;
  }
  *folder = split == 0 ? std::string_view(".") : text.substr(0, split);
  *name = text.substr(split);
}

DWORD Search(const char* text, std::vector<Entry>* found) {
  if (text == nullptr || *text == 0) return ERROR_PATH_NOT_FOUND;
  std::string_view folder, name;
  SplitPattern(text, &folder, &name);
  DWORD error = ERROR_SUCCESS;
  const std::string path = TranslatePath(folder, &error);
  if (path.empty()) return error;
  if (name.empty()) return ERROR_FILE_NOT_FOUND;
  std::string patternText;
  if (!Utf8FromName(name, true, &patternText)) return ERROR_INVALID_NAME;
  const NamePattern pattern(patternText);
  if (FolderReader spelled(path); spelled.GetError() != ENOENT) {
    return spelled.IsOpen() ? List(spelled, pattern, found) : ErrorFromErrno(spelled.GetError());
  }
  const std::string resolved = ResolveCase(path);
  if (resolved.empty()) return ErrorFromErrno(errno);
  FolderReader listing(resolved);
  if (listing.IsOpen()) return List(listing, pattern, found);
  return listing.GetError() == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(listing.GetError());
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data) noexcept {
  return OrNoMemory<HANDLE>(INVALID_HANDLE_VALUE, [&]() -> HANDLE {
    std::vector<Entry> found;
    const DWORD error = data == nullptr ? ERROR_INVALID_PARAMETER : Search(pattern, &found);
    if (error != ERROR_SUCCESS) {
      SetLastErrorCode(error);
      return INVALID_HANDLE_VALUE;
    }
    auto search = MakeRef<FileSearch>(std::move(found));
    search->Next(data);
    const HANDLE handle = AllocateHandle(std::move(search));
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
  });
}

BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data) noexcept {
  return OrNoMemory(FALSE, [&]() -> BOOL {
    const auto object = ReferenceHandle<FileSearch>(search);
    if (!object) return FALSE;
    if (data == nullptr) {
      SetLastErrorCode(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    if (object->Next(data)) return TRUE;
    SetLastErrorCode(ERROR_NO_MORE_FILES);
    return FALSE;
  });
}

BOOL FindClose(HANDLE search) noexcept {
  return ReferenceHandle<FileSearch>(search) && ReleaseHandle(search) ? TRUE : FALSE;
}
