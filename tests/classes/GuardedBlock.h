// A cache block in shared memory between pages that may not be touched: whatever leaves its bounds ends the
// test.
#pragma once

#include <sys/mman.h>

#include <cstdlib>

#include "ClassCacheBlock.h"

class GuardedBlock {
 public:
  GuardedBlock() {
    constexpr size_t page = 4096;
    mpMemory = static_cast<BYTE*>(
        mmap(nullptr, SIZE + 2 * page, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    if (mpMemory == MAP_FAILED) std::abort();
    mprotect(mpMemory, page, PROT_NONE);
    mprotect(mpMemory + page + SIZE, page, PROT_NONE);
    mpBlock = mpMemory + page;
  }
  ~GuardedBlock() { munmap(mpMemory, SIZE + 2 * 4096); }
  GuardedBlock(const GuardedBlock&) = delete;
  GuardedBlock& operator=(const GuardedBlock&) = delete;

  static constexpr unsigned SIZE = orm::CacheBlock::SIZE;

  BYTE* GetBytes() const { return mpBlock; }
  orm::CacheBlock GetBlock() const { return orm::CacheBlock(mpBlock); }
  bool IsSound() const {
    return orm::CacheDirectory(orm::CacheBytes(mpBlock)).Load() && GetBlock().HasMagic();
  }
  DWORD GetCount() const {
    return orm::CacheDirectory::LoadCount(orm::CacheBytes(mpBlock)).value_or(0xFFFFFFFF);
  }

 private:
  BYTE* mpMemory;
  BYTE* mpBlock;
};
