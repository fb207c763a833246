// Opening, locking and using the shared class cache.
#include "ClassSharedCache.h"

#include <ormutil/Error.h>
#include <win32/mappingx.h>
#include <win32/memoryx.h>

namespace orm {

namespace {

constexpr const char* MUTEX_NAME = "zr41_clsmgr_mtx";
constexpr const char* MAPPING_NAME = "zr41_clsmgr_map";
constexpr const char* BACKING_FILE = "zrclrg41.tmp";

// A present but null access list: processes of every account may open the objects.
SECURITY_ATTRIBUTES* OpenToAll() {
  static constinit SECURITY_DESCRIPTOR descriptor{
      SECURITY_DESCRIPTOR_REVISION, 0, SE_DACL_PRESENT, nullptr, nullptr, nullptr, nullptr};
  static constinit SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), &descriptor, FALSE};
  return &attributes;
}

ULONGLONG GetNowAsFileTime() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return now.dwLowDateTime | (static_cast<ULONGLONG>(now.dwHighDateTime) << 32);
}

struct Mapping {
  HANDLE handle = nullptr;
  void* pView = nullptr;
  bool existed = false;  // somebody else has written the header, or is about to
};

HANDLE CreateMapping(HANDLE file) {
  return CreateFileMappingA(file, OpenToAll(), PAGE_READWRITE, 0, CacheBlock::SIZE, MAPPING_NAME);
}

// Fails for a mapping of that name that is smaller than the block.
void* MapView(HANDLE mapping) {
  return MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, CacheBlock::SIZE);
}

// A mapping over the file; without a handle when that cannot be had.
Mapping MapFile(HANDLE file, bool fileExisted) {
  Mapping result;
  result.handle = CreateMapping(file);
  if (!result.handle) return {};
  if (GetLastError() == ERROR_ALREADY_EXISTS) {
    result.existed = true;
    return result;
  }
  result.pView = MapView(result.handle);
  result.existed = fileExisted;
  if (result.pView) return result;
  CloseHandle(result.handle);
  return {};
}

// The mapping over the backing file, which keeps the cache between processes.
Mapping MapBackingFile() {
  char path[1024 + 16];
  const DWORD length = GetTempPathA(1024, path);
  if (length == 0 || length >= 1024) return {};
  std::memcpy(path + length, BACKING_FILE, std::strlen(BACKING_FILE) + 1);
  HANDLE file =
      CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OpenToAll(),
                  OPEN_ALWAYS, FILE_FLAG_RANDOM_ACCESS | FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return {};
  const bool fileExisted = GetLastError() == ERROR_ALREADY_EXISTS;
  const Mapping result = MapFile(file, fileExisted);
  CloseHandle(file);
  if (!result.pView && !fileExisted) DeleteFileA(path);
  return result;
}

// The mapping that another process has open, else one over the backing file, else one over memory alone.
Mapping MapSharedBlock() {
  HANDLE probe = OpenFileMappingA(FILE_MAP_READ, FALSE, MAPPING_NAME);
  Mapping result;
  if (!probe) result = MapBackingFile();
  if (!result.handle) {
    result.handle = CreateMapping(INVALID_HANDLE_VALUE);
    result.existed = result.handle && GetLastError() == ERROR_ALREADY_EXISTS;
  }
  if (result.handle && !result.pView) result.pView = MapView(result.handle);
  if (probe) CloseHandle(probe);
  return result;
}

}  // namespace

void SharedCache::Open() {
  HANDLE mutex = CreateMutexA(OpenToAll(), FALSE, MUTEX_NAME);
  if (!mutex) return;
  const DWORD wait = WaitForSingleObject(mutex, INFINITE);
  if (wait != WAIT_FAILED) {
    if (MapBlock(wait == WAIT_ABANDONED)) mhMutex = mutex;
    ReleaseMutex(mutex);
  }
  if (!mhMutex) CloseHandle(mutex);
}

// Under the mutex. `abandoned`: its last owner died while it held the mutex.
bool SharedCache::MapBlock(bool abandoned) {
  const Mapping mapping = MapSharedBlock();
  const CacheBlock block(static_cast<BYTE*>(mapping.pView));
  // The owner may have died before the block had its header.
  const bool usable = mapping.pView && (!mapping.existed || abandoned || block.HasMagic());
  if (!usable) {
    if (mapping.pView) UnmapViewOfFile(mapping.pView);
    if (mapping.handle) CloseHandle(mapping.handle);
    return false;
  }
  mhMapping = mapping.handle;
  mpView = mapping.pView;
  mpHeader = static_cast<BYTE*>(mapping.pView);
  if (!mapping.existed || !block.HasMagic()) {
    block.Initialize();
  } else {
    // The process that stored last may have died in the middle of it, with nobody there to notice.
    block.RepairIfDamaged();
  }
  return true;
}

void SharedCache::UnmapBlock() {
  mpHeader = nullptr;
  if (void* view = std::exchange(mpView, nullptr)) UnmapViewOfFile(view);
  if (HANDLE mapping = std::exchange(mhMapping, nullptr)) CloseHandle(mapping);
}

void SharedCache::Close() {
  UnmapBlock();
  if (HANDLE mutex = std::exchange(mhMutex, nullptr)) CloseHandle(mutex);
}

bool SharedCache::CheckWhole() {
  if (IsAvailable() && !OrmIsMappingWhole(mhMapping)) UnmapBlock();
  return IsAvailable();
}

void SharedCache::Populate() {
  if (mIsPopulated || !IsAvailable()) return;
  mIsPopulated = true;
  OrmPopulatePages(mpView, CacheBlock::SIZE);
}

DWORD SharedCache::AddRef() {
  if (WaitForSingleObject(mhMutex, INFINITE) == WAIT_ABANDONED && CheckWhole()) GetBlock().RepairIfDamaged();
  return 1;
}

bool SharedCache::Release() {
  ReleaseMutex(mhMutex);
  return false;
}

bool SharedCache::Lookup(const FacePtr<BaseFace>& lock, const String& path, ULONGLONG stamp,
                         CacheEntry& rEntry) {
  (void)lock;  // the proof that the caller holds it
  rEntry.key = CacheKey(path);
  rEntry.stamp = stamp;
  rEntry.place = GetBlock().Find(rEntry.key);
  const CacheBlock::Place& place = rEntry.place;
  return place.found && place.record.IsFinished() && place.record.stamp == stamp;
}

std::vector<ClassRecord> SharedCache::Read(const CacheEntry& entry) {
  const CacheBlock block = GetBlock();
  try {
    return ReadClassList(block.ReadPayload(entry.place, GetNowAsFileTime()));
  } catch (const Error&) {
    block.Forget(entry.place);
    throw;
  }
}

void SharedCache::Store(const CacheEntry& entry, const std::vector<ClassRecord>& records) {
  // A library has been loaded since the last look.
  if (CheckWhole()) GetBlock().Store(entry.key, entry.stamp, WriteClassList(records), GetNowAsFileTime());
}

}  // namespace orm
