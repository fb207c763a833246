// The file behind the shared class cache, of any content and size, as a process finds it that opens the
// cache.
#include <ormutil/Error.h>

#include "ClassSharedCache.h"
#include "Require.h"
#include "TemporaryFile.h"
#include "kernel/Paths.h"

namespace {

std::string BackingFile() {
  char path[1024];
  const DWORD length = GetTempPathA(sizeof path, path);
  fuzz::Require(length != 0 && length < sizeof path);
  return orm::platform::UnixPath((std::string(path) + "zrclrg41.tmp").c_str());
}

void Use(orm::SharedCache& cache) {
  const orm::FacePtr<orm::BaseFace> lock(&cache);
  for (const char* path : {"z:\\lib\\0.dll", "z:\\lib\\1.dll", "z:\\lib\\2.dll"}) {
    orm::CacheEntry entry;
    const bool found = cache.Lookup(lock, path, 100, entry);
    try {
      if (found) cache.Read(entry);
    } catch (const orm::Error&) {
    }
    cache.Store(entry, orm::NormalizeClasses({{"CID_A", orm::Binary("data", 4), {{"IID_X", {}}}}}));
    fuzz::Require(cache.Lookup(lock, path, 100, entry) && cache.Read(entry).size() == 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::TemporaryFile file = fuzz::TemporaryFile::At(BackingFile());
  file.Write({reinterpret_cast<const char*>(data), size});
  orm::SharedCache cache;
  cache.Open();
  if (cache.IsAvailable()) Use(cache);
  return 0;
}
