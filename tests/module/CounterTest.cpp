// Interlocked counters and copy-on-write holders.
#include <gtest/gtest.h>
#include <ormutil/AtomicCounter.h>
#include <ormutil/CountedObject.h>

#include <cstring>
#include <thread>

#include "support/Sanitizers.h"

using namespace orm;

namespace {

struct Assertions {
  Assertions() { TraceSetSink(Add, this, 'i'); }
  ~Assertions() { TraceSetSink(nullptr, nullptr, 0); }
  static void Add(void* self, const char* line) {
    const std::string text(line);
    const size_t colon = text.find("assert fail:");
    const size_t open = text.rfind('(', colon);
    if (colon != std::string::npos)
      static_cast<Assertions*>(self)->lines.push_back(std::atoi(text.c_str() + open + 1));
  }
  std::vector<int> lines;
};

struct Data {
  int number = 5;
};

}  // namespace

TEST(AtomicCounter, CountsAcrossThreads) {
  AtomicCounter counter(0);
  auto work = [&] {
    for (int i = 0; i < 10000; ++i) {
      ++counter;
      ++counter;
      --counter;
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(counter, 20000);
  counter = 7;
  EXPECT_EQ(++counter, 8);
  EXPECT_EQ(--counter, 7);
}

TEST(AtomicCounter, AssertsItsAlignment) {
  if (test::IS_SANITIZED) GTEST_SKIP() << "the sanitizers end the program where the platform would go on";
  Assertions assertions;
  alignas(8) unsigned char memory[16] = {};
  auto* counter = new (memory + 1) AtomicCounter(1);
  *counter = 2;
  LONG value = *counter;
  ++*counter;
  --*counter;
  EXPECT_EQ(value, 2);
  EXPECT_EQ(assertions.lines, (std::vector<int>{118, 124, 130, 136, 142}));
}

TEST(CountedObject, AccessNeedsARecord) {
  const auto access = [] {
    TraceSetSink([](void*, const char* line) { std::fputs(line, stderr); }, nullptr, 'a');
    (void)*CountedObject<Data>();
  };
  EXPECT_EXIT(access(), testing::ExitedWithCode(255),
              "src/include/CountedObject\\(530\\):assert fail:mpData != 0");
}

TEST(CountedObject, CopiesBeforeAWrite) {
  CountedObject<Data> a;
  EXPECT_TRUE(a.IsNull());
  a.MakeWritable().number = 6;
  const Data* first = &*a;
  CountedObject<Data> b(a);
  EXPECT_EQ(&*b, first);
  b.MakeWritable().number = 7;
  EXPECT_EQ(a->number, 6);
  EXPECT_EQ(b->number, 7);
  EXPECT_EQ(&a.MakeWritable(), first);
  b = a;
  a.Release();
  EXPECT_TRUE(a.IsNull());
  EXPECT_EQ(&*b, first);
}
