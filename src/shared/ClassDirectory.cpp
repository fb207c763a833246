// Libraries and masks of one directory.
#include "ClassDirectory.h"

#include <ormutil/Error.h>
#include <win32/memoryx.h>

#include "Areas.h"
#include "ClassManagerImpl.h"

#include <algorithm>

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/ClassDirectory";

constexpr DWORD WATCHED =
    FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;

constexpr SIZE_T BYTES_OF_LIBRARY = 1300;  // with three classes of one face

const String& GetKey(const FacePtr<LibraryIntl>& rpLibrary) {
  return rpLibrary->GetFileName();
}
const String& GetKey(const FacePtr<MaskIntl>& rpMask) {
  return rpMask->GetMask().GetText();
}

// The place of the key in a list that is sorted by it without regard to case. A listing of the folder comes
// in that order, so most places are at the end.
template <class List>
auto FindPlace(List& rList, const String& key) {
  const auto isBefore = [](const auto& item, const String& other) {
    return GetKey(item).CompareNoCase(other.GetBegin()) < 0;
  };
  if (rList.empty() || isBefore(rList.back(), key)) return rList.end();
  return std::lower_bound(rList.begin(), rList.end(), key, isBefore);
}

template <class List>
auto Find(const List& list, const String& key) -> typename List::value_type {
  const auto place = FindPlace(list, key);
  if (place == list.end() || GetKey(*place).CompareNoCase(key.GetBegin()) != 0) return {};
  return *place;
}

}  // namespace

DirectoryIntl::~DirectoryIntl() {
  UnloadLibraries(true);
  std::exchange(mMasks, {}).clear();
  // A thread that is creating at the end of the process comes back to the library's record: it stays.
  for (const auto& library : mLibraries) {
    if (!library->IsBusy()) continue;
    library->ReportIfLoaded();
    mrManager.KeepToTheEnd(library);
  }
  std::exchange(mLibraries, {}).clear();
  if (mhChange != INVALID_HANDLE_VALUE) FindCloseChangeNotification(mhChange);
}

DWORD DirectoryIntl::Register(const Path& mask) {
  const TraceScope scope(areaClassManagerDirectory, TRACE_TRACE, FILE_NAME, __LINE__, "Register(%s) v.1",
                         mask.GetText().GetBegin());
  FacePtr<MaskIntl> record = Find(mMasks, mask.GetText());
  if (!record) {
    record = FacePtr<MaskIntl>::Adopt(new MaskIntl(*this, mask));
    mMasks.insert(FindPlace(mMasks, mask.GetText()), record);
  }
  // In the list and in use from now on: a library that is being listed may register the same mask, or
  // unregister it.
  record->AddUse();
  try {
    record->Register();
  } catch (...) {
    if (record->DropUse()) std::erase(mMasks, record);
    throw;
  }
  if (record->GetCookie() == 0) record->SetCookie(mrManager.GetNewCookie());
  return record->GetCookie();
}

FacePtr<LibraryIntl> DirectoryIntl::GetLibrary(const String& fileName, ULONGLONG listedStamp) {
  const TraceScope scope(areaClassManagerDirectory, TRACE_TRACE, FILE_NAME, __LINE__, "Register(%s) v.2",
                         fileName.GetBegin());
  FacePtr<LibraryIntl> library = Find(mLibraries, fileName);
  const bool isNew = !library;
  if (isNew) {
    library = FacePtr<LibraryIntl>::Adopt(new LibraryIntl(mrManager, mPath, fileName));
    mLibraries.insert(FindPlace(mLibraries, fileName), library);
  }
  // As with masks: what the library calls while it is listed finds this record, and leaves it there.
  library->AddUse();
  try {
    library->Register(listedStamp);
  } catch (...) {
    if (library->DropUse() && isNew) std::erase(mLibraries, library);
    throw;
  }
  return library;
}

void DirectoryIntl::PrepareLibraries(size_t count) {
  OrmPopulateHeap(count * BYTES_OF_LIBRARY);
  if (count > 1) mrManager.GetSharedCache().Populate();
}

bool DirectoryIntl::Unregister(DWORD cookie) {
  const TraceScope scope(areaClassManagerDirectory, TRACE_TRACE, FILE_NAME, __LINE__, "Unregister(%i)",
                         cookie);
  const auto place = std::find_if(mMasks.begin(), mMasks.end(),
                                  [cookie](const auto& mask) { return mask->GetCookie() == cookie; });
  if (cookie == 0 || place == mMasks.end()) return false;  // 0 is one that is being registered
  {
    const FacePtr<MaskIntl> mask = *place;
    if (!mask->DropUse()) return false;
    std::erase(mMasks, mask);
  }
  for (const auto& library : std::vector(mLibraries)) {
    if (!library->IsUsed() && library->Unload(false) >= 0) std::erase(mLibraries, library);
  }
  return true;
}

bool DirectoryIntl::UnloadLibraries(bool force) {
  const TraceScope scope(areaClassManagerDirectory, TRACE_TRACE, FILE_NAME, __LINE__, "UnloadLibraries(%i)",
                         static_cast<int>(force));
  bool freed = false;
  for (const auto& library : std::vector(mLibraries)) {
    const int result = library->Unload(force);
    if (result >= 0 && !library->IsUsed()) std::erase(mLibraries, library);
    freed |= result == 1;
  }
  return freed;
}

void DirectoryIntl::StartWatch() {
  if (mhChange != INVALID_HANDLE_VALUE) return;
  mhChange = FindFirstChangeNotificationA(mPath.GetText().GetBegin(), FALSE, WATCHED);
}

bool DirectoryIntl::HasChanged() {
  if (mMasks.empty()) return false;
  if (mhChange == INVALID_HANDLE_VALUE) {
    StartWatch();
    return mhChange != INVALID_HANDLE_VALUE;
  }
  if (WaitForSingleObject(mhChange, 0) == WAIT_TIMEOUT) return false;
  if (FindNextChangeNotification(mhChange)) return true;
  FindCloseChangeNotification(mhChange);
  mhChange = INVALID_HANDLE_VALUE;
  StartWatch();
  return true;
}

void DirectoryIntl::Synchronize() {
  const TraceScope scope(areaClassManagerDirectory, TRACE_TRACE, FILE_NAME, __LINE__, "Synchronize()");
  if (HasChanged()) {
    for (const auto& mask : std::vector(mMasks)) {
      try {
        mask->Register();
      } catch (const Error&) {
        // The mask has released its libraries; the others go on.
      }
    }
  }
  for (const auto& library : std::vector(mLibraries)) library->Refresh();
}

bool DirectoryIntl::IsAt(const Path& path) const {
  return mPath.GetRootLength() == path.GetRootLength() &&
         mPath.GetText().CompareNoCase(path.GetText().GetBegin()) == 0;
}

void DirectoryIntl::AppendMaskedPaths(std::vector<String>& rPaths) const {
  for (const auto& mask : mMasks) {
    if (Path path = mPath; path.Append(mask->GetMask())) rPaths.push_back(path.GetText());
  }
}

}  // namespace orm
