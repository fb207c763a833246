// The shared class cache on a block that somebody else writes as he likes, also between two steps of an
// operation: nothing outside the block is touched, everything ends, and the next Store finds or makes a sound
// directory. The input chooses one of three blocks and goes on with operations.
#include "ClassCacheBlock.h"

#include <ormutil/Error.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "ClassRecord.h"
#include "Require.h"
#include "Script.h"

namespace {

using fuzz::Require;
using fuzz::Script;
using orm::Binary;
using orm::CacheBlock;
using orm::CacheKey;
using orm::CacheLayout;
using orm::String;

CacheKey KeyOf(unsigned number) {
  String path;
  path.Format("z:\\lib\\%u.dll", number);
  return CacheKey(path);
}

Binary PayloadOf(unsigned size) {
  const std::vector<BYTE> bytes(size, static_cast<BYTE>(size));
  return {bytes.data(), size};
}

// A block of its own in the heap, so that a sanitizer sees the first step out of it.
class Memory {
 public:
  Memory() : mBytes(new (std::align_val_t{16}) BYTE[CacheBlock::SIZE]()) {}

  [[nodiscard]] BYTE* Get() const { return mBytes.get(); }

 private:
  struct Delete {
    void operator()(BYTE* bytes) const { operator delete[](bytes, std::align_val_t{16}); }
  };
  std::unique_ptr<BYTE[], Delete> mBytes;
};

// A few records, as many as it holds, and hardly a free byte.
std::string MakeBlock(unsigned records, unsigned payload) {
  const Memory memory;
  const CacheBlock cache(memory.Get());
  cache.Initialize();
  const auto classes = orm::NormalizeClasses(
      {{"CID_A", Binary("data", 4), {{"IID_X", {}}, {"IID_Y", {}}}}, {"CID_B", {}, {}}});
  for (unsigned i = 0; i < records; ++i)
    cache.Store(KeyOf(i), 100 + i, payload == 0 ? WriteClassList(classes) : PayloadOf(payload), i);
  return {reinterpret_cast<const char*>(memory.Get()), CacheBlock::SIZE};
}

void Scribble(Script& script, BYTE* block) {
  // A field of the header or of a slot more often than a byte of the data.
  const uint16_t place = script.Word();
  const size_t at = (place & 0x8000) != 0 ? place & 0x7FFF : place % (CacheLayout::DATA_START + 64);
  const std::string bytes = script.Text();
  std::copy_n(bytes.begin(), std::min(bytes.size(), CacheBlock::SIZE - at), block + at);
}

void Read(Script& script, const CacheBlock& cache, BYTE* block, unsigned operation) {
  const CacheBlock::Place place = cache.Find(KeyOf(script.Byte()));
  if (!place.found) return;
  if (operation & 0x80) Scribble(script, block);
  try {
    orm::ReadClassList(cache.ReadPayload(place, operation));
  } catch (const orm::Error&) {
    cache.Forget(place);
  }
}

void Store(Script& script, const CacheBlock& cache, BYTE* block) {
  const CacheKey key = KeyOf(script.Byte());
  const Binary payload = PayloadOf(script.Word());
  if (!cache.Store(key, 5, payload, script.Byte())) return;
  Require(orm::CacheDirectory(orm::CacheBytes(block)).Load());
  const CacheBlock::Place place = cache.Find(key);
  Require(place.found && cache.ReadPayload(place, 7) == payload);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string blocks[] = {MakeBlock(20, 0), MakeBlock(256, 100), MakeBlock(8, 7700)};
  Script script(data, size);
  const Memory memory;
  const std::string& chosen = blocks[script.Byte() % std::size(blocks)];
  std::copy(chosen.begin(), chosen.end(), memory.Get());
  const CacheBlock cache(memory.Get());
  for (unsigned step = 0; step < 64 && !script.IsAtEnd(); ++step) {
    const unsigned operation = script.Byte();
    switch (operation & 7) {
      case 0:
      case 1:
      case 2:
        Scribble(script, memory.Get());
        break;
      case 3:
      case 4:
        Read(script, cache, memory.Get(), operation);
        break;
      case 5:
        cache.RepairIfDamaged();
        Require(orm::CacheDirectory(orm::CacheBytes(memory.Get())).Load());
        break;
      default:
        Store(script, cache, memory.Get());
    }
  }
  return 0;
}
