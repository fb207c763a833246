// Registration with the class manager: paths, factories, the machine's default paths.
#include "Areas.h"
#include "ClassDirectory.h"
#include "ClassErrors.h"
#include "ClassFactoryRegistration.h"
#include "ClassManagerImpl.h"
#include "RegistryKey.h"

#include <algorithm>
#include <new>

namespace orm {

namespace {

constexpr const char* FILE_NAME = "src/shared/ClassRegistration";

// Each string value of this key of the local machine is a path to register; names carry no meaning.
constexpr const char* DEFAULTS_KEY = "Software\\Brightwell\\LibPaths";

[[noreturn]] void ThrowInvalidPath() {
  throw Error(ERROR_COMPONENT_PATH_INVALID, "The specified path is invalid.");
}

[[noreturn]] void ThrowMissingPath() {
  throw Error(ERROR_COMPONENT_PATH_MISSING, "The specified path doesn't exist.");
}

bool IsDirectory(DWORD attributes) {
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// A path to register, taken apart.
struct DirectoryAndMask {
  Path directory;
  Path mask;
};

Path MakeMask(const String& text) {
  Path mask;
  if (!mask.Set(text)) ThrowInvalidPath();
  return mask;
}

// `text` is the path as the caller gave it: a trailing separator, which a Path does not keep, names a folder.
DirectoryAndMask SplitFilePath(const Path& path, String text) {
  text.Trim(static_cast<unsigned>(' '));
  if (text.IsEmpty()) ThrowInvalidPath();
  const unsigned last = text.GetAt(static_cast<int>(text.GetLength()) - 1);
  if (last == '\\' || last == '/') ThrowMissingPath();
  return {path.GetDirectory(), MakeMask(path.GetName())};
}

// Nothing is known of a path that could not be asked for want of memory.
DWORD AskAttributes(const Path& path) {
  const DWORD attributes = path.GetAttributes();
  if (attributes == INVALID_FILE_ATTRIBUTES && GetLastError() == ERROR_NOT_ENOUGH_MEMORY)
    throw std::bad_alloc();
  return attributes;
}

DirectoryAndMask SplitPath(const String& text) {
  Path path;
  if (!path.Set(text)) ThrowInvalidPath();
  path.MakeAbsolute();
  if (path.HasWildcards()) {
    const Path directory = path.GetDirectory();
    if (!IsDirectory(AskAttributes(directory))) ThrowMissingPath();
    return {directory, MakeMask(path.GetName())};
  }
  const DWORD attributes = AskAttributes(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) ThrowMissingPath();
  if (IsDirectory(attributes)) return {path, MakeMask("*.dll")};
  return SplitFilePath(path, text);
}

}  // namespace

DWORD ClassManagerImpl::Register(const String& path) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Register(%s)",
                         path.GetBegin());
  try {
    return RegisterPath(path);
  } catch (Error& error) {
    error.AddLayer(ERROR_LAYER_BELOW, String::FormatInserts("Cannot register library(ies) '%1'.", path));
    throw;
  }
}

DWORD ClassManagerImpl::RegisterPath(const String& text) {
  const ClassLock lock(mLock);
  const DirectoryAndMask target = SplitPath(text);
  if (!mSystemDirectory.IsOutside(target.directory)) {
    throw Error(ERROR_COMPONENT_PATH_INVALID, "The specified path is Windows system path.");
  }
  FacePtr<DirectoryIntl> directory = FindDirectory(target.directory);
  if (directory) {
    directory->StartWatch();
    return directory->Register(target.mask);
  }
  directory = FacePtr<DirectoryIntl>::Adopt(new DirectoryIntl(*this, target.directory));
  directory->StartWatch();
  // In the list before it is registered: its libraries may register it once more while they are listed.
  mDirectories.push_back(directory);
  try {
    return directory->Register(target.mask);
  } catch (...) {
    RemoveIfEmpty(directory);
    throw;
  }
}

DWORD ClassManagerImpl::Register(const FacePtr<ClassFactory>& rpFactory) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Register(Factory)");
  ORM_ASSERT(rpFactory != nullptr, "rpFactory != 0", "src/shared/ClassManager", 2132);
  try {
    return RegisterFactory(rpFactory);
  } catch (Error& error) {
    error.AddLayer(ERROR_LAYER_BELOW, "Cannot register class factory.");
    throw;
  }
}

DWORD ClassManagerImpl::RegisterFactory(const FacePtr<ClassFactory>& rpFactory) {
  const ClassLock lock(mLock);
  const auto find = [this, &rpFactory] {
    return std::lower_bound(
        mFactories.begin(), mFactories.end(), rpFactory.Get(),
        [](const FacePtr<FactoryRegistration>& registration, const ClassFactory* pFactory) {
          return std::less<>()(registration->GetFactory().Get(), pFactory);
        });
  };
  if (const auto known = find(); known != mFactories.end() && (*known)->GetFactory() == rpFactory) {
    (*known)->AddUse();
    return (*known)->GetCookie();
  }
  const auto registration = FacePtr<FactoryRegistration>::Adopt(new FactoryRegistration(*this, rpFactory));
  registration->Register();
  registration->AddUse();
  registration->SetCookie(GetNewCookie());
  // Looked up again: listing its classes, the factory may have registered others.
  mFactories.insert(find(), registration);
  return registration->GetCookie();
}

void ClassManagerImpl::Unregister(DWORD cookie) {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "Unregister(%i)", cookie);
  FacePtr<ClassFactory> released;
  const ClassLock lock(mLock);
  const auto hasCookie = [cookie](const auto& registration) { return registration->GetCookie() == cookie; };
  const auto factory = std::find_if(mFactories.begin(), mFactories.end(), hasCookie);
  if (factory != mFactories.end()) {
    if (!(*factory)->DropUse()) return;
    released = (*factory)->GetFactory();
    mFactories.erase(factory);
    return;
  }
  for (const auto& directory : std::vector(mDirectories)) {
    if (!directory->Unregister(cookie)) continue;
    RemoveIfEmpty(directory);
    return;
  }
}

void ClassManagerImpl::RegisterDefaults() {
  const TraceScope scope(areaClassManagerImpl, TRACE_TRACE, FILE_NAME, __LINE__, "RegisterDefaults()");
  ScopedKey key;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, DEFAULTS_KEY, 0, KEY_READ, key.Receive()) != 0) return;
  for (DWORD index = 0;; ++index) {
    char name[256];
    // One byte more than the registry may fill, for text that was stored without a terminator.
    char data[516 + 1] = {};
    DWORD nameLength = sizeof name;
    DWORD size = sizeof data - 1;
    DWORD type = REG_SZ;
    if (RegEnumValueA(key.Get(), index, name, &nameLength, nullptr, &type, reinterpret_cast<BYTE*>(data),
                      &size) != 0) {
      break;
    }
    if (type != REG_SZ) continue;
    try {
      static_cast<ClassManager*>(this)->Register(String(data));
    } catch (const Error&) {
      // One bad path keeps nobody from the others.
    }
  }
}

FacePtr<DirectoryIntl> ClassManagerImpl::FindDirectory(const Path& path) const {
  for (const auto& directory : mDirectories) {
    if (directory->IsAt(path)) return directory;
  }
  return {};
}

void ClassManagerImpl::RemoveIfEmpty(const FacePtr<DirectoryIntl>& rpDirectory) {
  if (rpDirectory->IsEmpty()) std::erase(mDirectories, rpDirectory);
}

}  // namespace orm
