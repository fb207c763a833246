// The shared block is taken apart whatever it holds.
#include <gmock/gmock.h>
#include <ormutil/BaseString.h>

#include <random>

#include "ClassCacheView.h"

namespace orm::tool {
namespace {

using testing::Contains;
using testing::HasSubstr;

void Put32(std::string& block, std::size_t at, uint32_t number) {
  for (std::size_t i = 0; i < 4; ++i) block[at + i] = static_cast<char>(number >> 8 * i & 0xFF);
}

// A block with two records without classes, in the order of their keys.
std::string SampleBlock() {
  std::string block(0x10000, '\0');
  const uint32_t head[] = {0x41, 0x1D06A085, 0x8C46418F, 0x10000, 0, 0xC20, 256, 1};
  for (std::size_t i = 0; i < 8; ++i) Put32(block, i * 4, head[i]);
  uint32_t offset = 0xC20;
  const std::string names[] = {"c:\\a.dll", "c:\\b.dll"};
  for (uint32_t i = 0; i < 2; ++i) {
    const auto length = static_cast<uint32_t>(names[i].size());
    Put32(block, 32 + i * 12, offset);
    Put32(block, 36 + i * 12, 48);
    Put32(block, 40 + i * 12, i);
    Put32(block, offset + 8, 1);
    Put32(block, offset + 16, 33 + length);
    Put32(block, offset + 24, GetSimpleStringHash(names[i].c_str()));
    block.replace(offset + 28, length, names[i]);
    offset += 48;
  }
  return block;
}

TEST(ClassCacheView, ReadsASoundBlock) {
  const ClassCacheView view = ReadClassCache(SampleBlock());
  EXPECT_THAT(view.faults, testing::IsEmpty());
  ASSERT_EQ(view.slots.size(), 2u);
  EXPECT_EQ(view.slots[1].name, "c:\\b.dll");
  EXPECT_EQ(view.usedBytes, 96u);
}

TEST(ClassCacheView, SaysWhatIsWrong) {
  struct {
    std::size_t at;
    uint32_t number;
    const char* fault;
  } const cases[] = {
      {4, 0, "magic word 2"},
      {12, 1, "block size"},
      {28, 256, "outside of -1 to 255"},
      {32, 0xFFFFFFF0, "slot 0: its record lies outside"},
      {36, 0xFFFFFFFF, "slot 0: its record lies outside"},
      {36, 16, "slot 0: its record is too small"},
      {44, 0xC20, "slot 1: its record begins before the end"},
      {40, 7, "twice or one that is not there"},
      {0xC20 + 16, 0x7FFFFFFF, "slot 0: its payload lies outside"},
      {0xC20 + 16, 34, "slot 0: its name does not end"},
      {0xC20 + 24, 1, "slot 0: its hash is not that of its name"},
  };
  for (const auto& item : cases) {
    std::string block = SampleBlock();
    Put32(block, item.at, item.number);
    EXPECT_THAT(ReadClassCache(block).faults, Contains(HasSubstr(item.fault)));
  }
  std::string swapped = SampleBlock();
  Put32(swapped, 40, 1);
  Put32(swapped, 52, 0);
  EXPECT_THAT(ReadClassCache(swapped).faults, Contains(HasSubstr("not ascending")));
  EXPECT_THAT(ReadClassCache("short").faults, Contains(HasSubstr("5 bytes")));
}

TEST(ClassCacheView, SurvivesAnyBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string block = SampleBlock();
    for (int i = 0; i < 20; ++i) block[random() % 0xD00] = static_cast<char>(random());
    (void)ReadClassCache(block);
  }
}

}  // namespace
}  // namespace orm::tool
