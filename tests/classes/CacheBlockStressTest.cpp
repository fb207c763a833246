// The shared block against a model, against damage, against writers that do not keep the lock, and against
// processes that are killed while they store.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ormutil/Error.h>

#include <cstdlib>
#include <map>
#include <string>

#include "ClassRecord.h"
#include "GuardedBlock.h"
#include "Random.h"
#include "support/Sanitizers.h"

namespace {

using orm::Binary;
using orm::CacheBlock;
using orm::CacheKey;

// Under a sanitizer a step takes about twenty times as long, under memcheck twice that; the lanes are there
// for the steps' kinds, not their number.
const int COST = test::IsUnderMemcheck() ? 20 : test::IS_SANITIZED ? 5 : 1;

std::string PathOf(unsigned number) {
  return "z:\\components\\library" + std::to_string(number) + ".dll";
}

// A payload that tells to whom it belongs: repetitions of one byte that key and stamp determine.
std::string PayloadOf(unsigned number, ULONGLONG stamp, size_t size) {
  return std::string(size, static_cast<char>('A' + (number * 7 + stamp) % 26));
}

bool Store(const GuardedBlock& memory, unsigned number, ULONGLONG stamp, const std::string& payload,
           ULONGLONG now) {
  const Binary bytes(payload.data(), static_cast<unsigned>(payload.size()));
  return memory.GetBlock().Store(CacheKey(PathOf(number).c_str()), stamp, bytes, now);
}

struct Modelled {
  ULONGLONG stamp;
  std::string payload;
  ULONGLONG lastUse;
};
using Model = std::map<unsigned, Modelled>;

// Takes the records that the block evicted out of the model: they must be the ones longest unused.
void FollowEvictions(const GuardedBlock& memory, unsigned stored, Model& rModel) {
  ULONGLONG youngestGone = 0, oldestKept = ~ULONGLONG{0};
  for (auto entry = rModel.begin(); entry != rModel.end();) {
    if (memory.GetBlock().Find(CacheKey(PathOf(entry->first).c_str())).found) {
      if (entry->first != stored) oldestKept = std::min(oldestKept, entry->second.lastUse);
      ++entry;
    } else {
      youngestGone = std::max(youngestGone, entry->second.lastUse);
      entry = rModel.erase(entry);
    }
  }
  ASSERT_LT(youngestGone, oldestKept);
}

// With ORM_LONG_TESTS=1 a million steps.
TEST(CacheBlockStress, BehavesLikeItsModel) {
  GuardedBlock memory;
  memory.GetBlock().Initialize();
  Model model;
  Random random(41);
  const auto steps =
      static_cast<ULONGLONG>(std::getenv("ORM_LONG_TESTS") != nullptr ? 1'000'000 : 150'000 / COST);
  for (ULONGLONG now = 1; now <= steps; ++now) {
    const unsigned number = random() % 400;
    const auto known = model.find(number);
    if (random() % 3 != 0) {
      const CacheBlock::Place place = memory.GetBlock().Find(CacheKey(PathOf(number).c_str()));
      ASSERT_EQ(place.found, known != model.end());
      if (!place.found) continue;
      ASSERT_EQ(place.record.stamp, known->second.stamp);
      const Binary payload = memory.GetBlock().ReadPayload(place, now);
      ASSERT_EQ(payload.RawCompare(known->second.payload.data(),
                                   static_cast<unsigned>(known->second.payload.size())),
                0);
      known->second.lastUse = now;
      continue;
    }
    // Mostly lists of a real library's size, now and then a huge one.
    const size_t size = random() % 1000 == 0 ? random() % 62000 : random() % (random() % 2 ? 100 : 700);
    const std::string payload = PayloadOf(number, now, size);
    // The record that it replaces goes first, so it is not among those that make room.
    model.erase(number);
    ASSERT_TRUE(Store(memory, number, now, payload, now));
    model[number] = {now, payload, now};
    if (memory.GetCount() != model.size()) FollowEvictions(memory, number, model);
    ASSERT_EQ(memory.GetCount(), model.size());
    if (now % 256 == 0) {
      ASSERT_TRUE(memory.IsSound());
    }
  }
}

class HostileBlock : public testing::Test {
 protected:
  HostileBlock() {
    mMemory.GetBlock().Initialize();
    orm::HashedId id("CID_Something");
    const std::vector<orm::ClassRecord> classes = {
        {id, Binary("abc", 3), {{orm::HashedId("IID_BaseFace"), {}}, {orm::HashedId("IID_Other"), {}}}}};
    for (unsigned i = 0; i < 60; ++i) {
      mMemory.GetBlock().Store(CacheKey(PathOf(i).c_str()), 1000 + i, WriteClassList(classes), i);
    }
    mValid.assign(mMemory.GetBytes(), mMemory.GetBytes() + GuardedBlock::SIZE);
  }

  // What a process does with the block while it starts.
  void Use(Random& rRandom) {
    const CacheBlock block = mMemory.GetBlock();
    for (int i = 0; i < 8; ++i) {
      const CacheBlock::Place place = block.Find(CacheKey(PathOf(rRandom() % 70).c_str()));
      if (!place.found) continue;
      const Binary payload = block.ReadPayload(place, 5000);
      try {
        orm::ReadClassList(payload);
      } catch (const orm::Error&) {
        block.Forget(place);
      }
    }
    const std::string payload(rRandom() % (rRandom() % 16 == 0 ? 60000 : 300), 'x');
    Store(mMemory, rRandom() % 70, 2000, payload, 6000);
  }

  GuardedBlock mMemory;
  std::vector<BYTE> mValid;
};

TEST_F(HostileBlock, SurvivesRandomMutations) {
  Random random(7);
  for (int round = 0; round < 20000 / COST; ++round) {
    std::copy(mValid.begin(), mValid.end(), mMemory.GetBytes());
    // Where it hurts: in half of the rounds the directory, else anywhere up to the end of the records.
    for (unsigned i = 0, count = 1 + random() % 8; i < count; ++i) {
      const unsigned at = random() % (random() % 2 ? 32 + 60 * 12 : 3104 + 60 * 144);
      mMemory.GetBytes()[at] = static_cast<BYTE>(random() % 4 == 0 ? 0xFF : random());
    }
    Use(random);
    mMemory.GetBlock().RepairIfDamaged();
    ASSERT_TRUE(orm::CacheDirectory(orm::CacheBytes(mMemory.GetBytes())).Load()) << round;
  }
}

// A child process, ended by the object that made it.
class Child {
 public:
  template <class Body>
  explicit Child(Body body) : mPid(fork()) {
    if (mPid == 0) {
      body();
      _exit(0);
    }
  }
  ~Child() { Kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void Kill() {
    if (mPid <= 0) return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    mPid = 0;
  }

 private:
  pid_t mPid;
};

TEST_F(HostileBlock, SurvivesAProcessThatScribblesWithoutTheLock) {
  Child scribbler([this] {
    for (unsigned state = 1;; state = state * 1664525 + 1013904223) {
      const unsigned at = (state >> 8) % (state & 0x80 ? 32 + 60 * 12 : GuardedBlock::SIZE);
      __atomic_store_n(mMemory.GetBytes() + at, static_cast<BYTE>(state >> 24), __ATOMIC_RELAXED);
    }
  });
  Random random(11);
  for (int round = 0; round < 3000 / COST; ++round) {
    Use(random);
    if (round % 64 == 0) std::copy(mValid.begin(), mValid.end(), mMemory.GetBytes());
  }
  scribbler.Kill();
  mMemory.GetBlock().RepairIfDamaged();
  EXPECT_TRUE(orm::CacheDirectory(orm::CacheBytes(mMemory.GetBytes())).Load());
}

// The storing child counts in shared memory what it finished, so that the parent knows what must be there.
struct Progress {
  unsigned stores;
  ULONGLONG finished[40];
};

TEST(CacheBlockStress, AKilledWriterLosesNothingThatItHadFinished) {
  GuardedBlock memory, shared;
  auto* progress = reinterpret_cast<Progress*>(shared.GetBytes());
  memory.GetBlock().Initialize();
  Random random(3);
  for (int round = 0; round < 400 / COST; ++round) {
    __atomic_store_n(&progress->stores, 0u, __ATOMIC_SEQ_CST);
    Child writer([&, seed = random()] {
      Random choice(seed);
      for (unsigned i = 0;; ++i) {
        const unsigned number = choice() % 40;
        const ULONGLONG stamp = progress->finished[number] + 1 + choice() % 3;
        __atomic_store_n(&progress->finished[number], 0, __ATOMIC_SEQ_CST);  // in the air
        Store(memory, number, stamp, PayloadOf(number, stamp, choice() % 300), i);
        __atomic_store_n(&progress->finished[number], stamp, __ATOMIC_SEQ_CST);
        __atomic_add_fetch(&progress->stores, 1, __ATOMIC_SEQ_CST);
      }
    });
    const unsigned enough = 1 + random() % 200;
    while (__atomic_load_n(&progress->stores, __ATOMIC_SEQ_CST) < enough) sched_yield();
    for (unsigned spin = random() % 2000; spin > 0; --spin) asm volatile("");
    writer.Kill();

    memory.GetBlock().RepairIfDamaged();
    ASSERT_TRUE(memory.IsSound());
    for (unsigned number = 0; number < 40; ++number) {
      const CacheBlock::Place place = memory.GetBlock().Find(CacheKey(PathOf(number).c_str()));
      if (progress->finished[number] != 0) {
        ASSERT_TRUE(place.found) << "round " << round << " library " << number;
        ASSERT_EQ(place.record.stamp, progress->finished[number]);
      }
      if (!place.found || place.record.stamp == orm::CacheRecord::UNFINISHED) continue;
      const Binary payload = memory.GetBlock().ReadPayload(place, 1);
      const std::string expected = PayloadOf(number, place.record.stamp, payload.GetSize());
      ASSERT_EQ(payload.RawCompare(expected.data(), payload.GetSize()), 0) << "a torn record";
    }
  }
}

}  // namespace
