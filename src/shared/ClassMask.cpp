// The files that a mask includes.
#include "ClassMask.h"

#include <ormutil/Error.h>

#include "Areas.h"
#include "ClassDirectory.h"
#include "PathListing.h"

#include <algorithm>

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/ClassMask";

// For which memory is prepared.
constexpr size_t LIBRARIES_AT_ONCE = 60;

void DropUses(const std::vector<FacePtr<LibraryIntl>>& libraries) {
  for (const auto& library : libraries) library->DropUse();
}

}  // namespace

void MaskIntl::Register() {
  const TraceScope scope(areaClassManagerMask, TRACE_TRACE, FILE_NAME, __LINE__, "Register()");
  Libraries found;
  try {
    FindLibraries(found);
  } catch (...) {
    DropUses(found);
    Unregister();
    throw;
  }
  // The new uses were taken before the old ones go, so a library that is in both lists stays registered.
  Unregister();
  mLibraries = std::move(found);
}

void MaskIntl::FindLibraries(Libraries& rLibraries) {
  if (!mMask.HasWildcards()) {
    rLibraries.reserve(1);  // what has been taken is noted
    rLibraries.push_back(mrDirectory.GetLibrary(mMask.GetText(), 0));
    return;
  }
  std::vector<ListedFile> files;
  ListFiles(mrDirectory.GetPath(), mMask.GetText(), 0, FILE_ATTRIBUTE_DIRECTORY, files);
  rLibraries.reserve(files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    if (i % LIBRARIES_AT_ONCE == 0)
      mrDirectory.PrepareLibraries(std::min(files.size() - i, LIBRARIES_AT_ONCE));
    try {
      rLibraries.push_back(mrDirectory.GetLibrary(files[i].name, files[i].lastWriteTime));
    } catch (const Error&) {
      // No component library, or none that can be listed now.
    }
  }
}

void MaskIntl::Unregister() {
  const TraceScope scope(areaClassManagerMask, TRACE_TRACE, FILE_NAME, __LINE__, "Unregister()");
  DropUses(std::exchange(mLibraries, {}));
}

bool MaskIntl::DropUse() {
  if (--mUseCount != 0) return false;
  Unregister();
  return true;
}

}  // namespace orm
