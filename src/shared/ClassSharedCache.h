// The class lists that all processes of the machine share: the named mutex and mapping, and what is read from
// and stored into the block under them.
#pragma once

#include <ormutil/FacePtr.h>

#include "ClassCacheBlock.h"
#include "ClassRecord.h"

namespace orm {

// What Lookup found out about one version of one library file; valid under the lock that it was looked up
// with.
struct CacheEntry {
  CacheKey key;
  ULONGLONG stamp = 0;  // last-write time of the file
  CacheBlock::Place place;
};

// Its face operations are a lock, so that a FacePtr<BaseFace> holds the mutex for a scope: AddRef waits for
// it, Release releases it. Whoever takes it holds the class manager's lock, except while the manager is
// built.
class SharedCache final : public BaseFace {
 public:
  SharedCache() = default;
  ~SharedCache() { Close(); }
  SharedCache(const SharedCache&) = delete;
  SharedCache& operator=(const SharedCache&) = delete;

  // Maps the block. On any failure the cache is unavailable for the life of the process; nothing is reported.
  void Open();
  void Close();
  bool IsAvailable() const { return mpHeader != nullptr; }
  // Lets go of the block when its file, which is anybody's to cut short, is shorter than it; the cache is
  // unavailable from then on. False then, and when it was before. Under the mutex, which its holders keep.
  bool CheckWhole();

  // Has the block's pages made at once, for many look-ups.
  void Populate();

  DWORD AddRef() override;
  bool Release() override;
  BaseFace* QueryFace(const char*) override { return nullptr; }

  // Fills `rEntry`; true when there is a class list for that version of the file. `lock` is this cache's.
  bool Lookup(const FacePtr<BaseFace>& lock, const String& path, ULONGLONG stamp, CacheEntry& rEntry);
  // The class list of an entry that Lookup found. Throws the archive's errors when it is damaged; the next
  // Lookup does not find it then.
  std::vector<ClassRecord> Read(const CacheEntry& entry);
  // Nothing happens when the cache has become unavailable since Lookup.
  void Store(const CacheEntry& entry, const std::vector<ClassRecord>& records);

 private:
  bool MapBlock(bool abandoned);
  void UnmapBlock();
  CacheBlock GetBlock() const { return CacheBlock(mpHeader); }

  HANDLE mhMutex = nullptr;
  HANDLE mhMapping = nullptr;
  void* mpView = nullptr;
  BYTE* mpHeader = nullptr;
  bool mIsPopulated = false;
};

}  // namespace orm
