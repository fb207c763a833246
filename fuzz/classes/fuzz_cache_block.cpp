// The shared class cache on hostile content. The first bytes of the input choose operations, the rest is laid
// over a valid block: at its start, so that header and slots are reached, and at the data area.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "ClassCacheBlock.h"
#include "ClassRecord.h"

#include <ormutil/Error.h>

namespace {

using orm::Binary;
using orm::CacheBlock;
using orm::CacheKey;
using orm::String;

constexpr size_t OPERATIONS = 16;

CacheKey KeyOf(unsigned number) {
  String path;
  path.Format("z:\\lib\\%u.dll", number % 40);
  return CacheKey(path);
}

const std::vector<BYTE>& GetValidBlock() {
  alignas(16) static BYTE block[CacheBlock::SIZE];
  static const std::vector<BYTE> valid = [] {
    const CacheBlock cache(block);
    cache.Initialize();
    const auto classes =
        orm::NormalizeClasses({{"CID_A", Binary("data", 4), {{"IID_X", {}}, {"IID_Y", {}}}}});
    for (unsigned i = 0; i < 20; ++i) cache.Store(KeyOf(i), 100 + i, WriteClassList(classes), i);
    return std::vector<BYTE>(block, block + sizeof block);
  }();
  return valid;
}

void Read(const CacheBlock& cache, const CacheBlock::Place& place) {
  try {
    orm::ReadClassList(cache.ReadPayload(place, 7));
  } catch (const orm::Error&) {
    cache.Forget(place);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < OPERATIONS) return 0;
  const std::vector<BYTE>& valid = GetValidBlock();
  alignas(16) static BYTE memory[CacheBlock::SIZE];
  std::copy(valid.begin(), valid.end(), memory);
  const uint8_t* content = data + OPERATIONS;
  const size_t length = size - OPERATIONS;
  const size_t atStart = std::min<size_t>(length, 28 + 4 + 12 * 20);
  std::copy(content, content + atStart, memory + 28);
  std::copy(content + atStart, content + std::min(length, CacheBlock::SIZE - size_t{3104} + atStart),
            memory + 3104);

  const CacheBlock cache(memory);
  for (size_t i = 0; i < OPERATIONS; ++i) {
    const CacheKey key = KeyOf(data[i] & 0x3F);
    if (data[i] & 0x40) {
      const CacheBlock::Place place = cache.Find(key);
      if (place.found) Read(cache, place);
    } else {
      const std::vector<BYTE> payload((data[i] & 0x80) ? 9000 : data[i] * 3u, data[i]);
      cache.Store(key, 5, Binary(payload.data(), static_cast<unsigned>(payload.size())), i);
    }
  }
  cache.RepairIfDamaged();
  if (!orm::CacheDirectory(orm::CacheBytes(memory)).Load()) std::abort();
  return 0;
}
