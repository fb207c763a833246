// Bitmap files that other programs wrote: brought into the form of resources, loaded, and compared with what
// an independent reader gets from them.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "BitmapFile.h"
#include "drawing/Drawing.h"

namespace test {
namespace {

using BitmapFilesTest = DrawingTest;
using orm::Bitmap;
using orm::StretchInfo;
using orm::rc::ResourceFromBitmapFile;

std::string ReadData(const std::string& name) {
  std::ifstream file(ORM_DRAWING_DATA "/" + name, std::ios::binary);
  EXPECT_TRUE(file) << name;
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool LoadFile(Bitmap& bitmap, std::string_view file) {
  const std::string resource = ResourceFromBitmapFile(file);
  return bitmap.LoadData(resource.data(), resource.size(), StretchInfo::GetNotChanging(), false);
}

TEST_F(BitmapFilesTest, AreReadAsAnotherProgramReadsThem) {
  // Channels of 5 and 6 bits are widened differently by a step at most; the reader does not widen those of 4.
  const struct {
    const char* name;
    int tolerance;
    const char* picture = nullptr;  // where several files show the same
  } files[] = {{"rgb24", 0},
               {"rgb24_v5", 0},
               {"argb32", 0},
               {"rgb555", 1},
               {"rgb565", 1},
               {"pal8", 0},
               {"rle8", 0},
               {"pal4", 0},
               {"mono", 0},
               {"top24", 0, "direct"},
               {"top32", 0, "direct"},
               {"masks32", 0, "direct"},
               {"core24", 0, "direct"},
               {"top444", 15},
               {"top8", 0, "indexed"},
               {"rle4", 0, "indexed"},
               {"used4", 0, "indexed"},
               {"core4", 0, "indexed"}};
  for (const auto& c : files) {
    Bitmap bitmap;
    ASSERT_TRUE(LoadFile(bitmap, ReadData(std::string(c.name) + ".bmp"))) << c.name;
    const Pixels pixels(bitmap);
    const std::string expected = ReadData(std::string(c.picture ? c.picture : c.name) + ".ppm");
    int width = 0, height = 0, start = 0;
    ASSERT_EQ(std::sscanf(expected.c_str(), "P6 %d %d 255%n", &width, &height, &start), 2) << c.name;
    ASSERT_EQ(pixels.width, width);
    ASSERT_EQ(pixels.height, height);
    const auto* byte = reinterpret_cast<const BYTE*>(expected.data()) + start + 1;
    for (const std::uint32_t color : pixels.colors)
      for (int shift = 16; shift >= 0; shift -= 8)
        ASSERT_NEAR(static_cast<int>(color >> shift & 0xFF), *byte++, c.tolerance) << c.name;
  }
}

TEST_F(BitmapFilesTest, ThoseInTheProgramsResourcesLoadById) {
  Bitmap resource, file;
  ASSERT_TRUE(resource.Load(4712, nullptr, StretchInfo::GetNotChanging(), false));
  ASSERT_TRUE(LoadFile(file, ReadData("pal8.bmp")));
  EXPECT_EQ(Pixels(resource).width, Pixels(file).width);
  EXPECT_EQ(Pixels(resource).colors, Pixels(file).colors);
  EXPECT_NE(resource.GetPalette(), nullptr);
}

// A file with a colour table of three entries for 8 bits, and room before the pixels.
std::string ShortTable() {
  Resource file;
  file.bytes = {'B', 'M'};
  file.Put32(0).Put32(0).Put32(14 + 40 + 12 + 8);
  file.PutHeader(4, 1, 8);
  file.bytes[14 + 32] = 3;
  file.Put32(0x112233).Put32(0x445566).Put32(0x778899);
  file.bytes.resize(file.bytes.size() + 8, 0xEE);
  file.Put32(0x02000102);
  return {file.bytes.begin(), file.bytes.end()};
}

TEST_F(BitmapFilesTest, ShortTablesAreFilledUp) {
  Bitmap bitmap;
  ASSERT_TRUE(LoadFile(bitmap, ShortTable()));
  EXPECT_THAT(Pixels(bitmap).colors, testing::ElementsAre(0x778899u, 0x445566u, 0x112233u, 0x778899u));
}

TEST_F(BitmapFilesTest, FillingOfTheLastRowMayBeMissing) {
  std::string file = ReadData("core24.bmp");
  file.pop_back();  // rows of 93 bytes
  file.pop_back();
  Bitmap bitmap;
  ASSERT_TRUE(LoadFile(bitmap, file));
  EXPECT_EQ(Pixels(bitmap).colors.size(), 31u * 20u);
}

// Whatever a file says, it is refused with a reason, or loads without an assertion.
TEST_F(BitmapFilesTest, DamagedFilesAreRefusedOrLoad) {
  std::mt19937 random(11);
  for (const char* name : {"pal8", "rgb565", "argb32", "rle8", "rle4", "core4", "top444"}) {
    const std::string whole = ReadData(std::string(name) + ".bmp");
    for (int round = 0; round < 400; ++round) {
      std::string file = whole;
      for (auto changes = 1 + random() % 3; changes > 0; --changes)
        file[random() % std::min<std::size_t>(file.size(), 80)] =
            static_cast<char>(random() % 4 ? random() : 255);
      Bitmap bitmap;
      try {
        LoadFile(bitmap, file);
        EXPECT_THAT(TakeAssertions(), testing::IsEmpty()) << name;
      } catch (const std::invalid_argument&) {
      }
    }
  }
}

TEST_F(BitmapFilesTest, EveryTruncationIsRefusedOrLoads) {
  for (const char* name : {"pal4", "argb32", "core4", "rle4"}) {
    const std::string whole = ReadData(std::string(name) + ".bmp");
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const std::string part = whole.substr(0, size);
      Bitmap bitmap;
      try {
        LoadFile(bitmap, part);
      } catch (const std::invalid_argument&) {
      }
    }
  }
  EXPECT_THAT(TakeAssertions(), testing::IsEmpty()) << "what is let through can be loaded";
  const std::string core = ReadData("core4.bmp");
  std::string other = core;
  other[14] = 13;
  const std::pair<std::string, const char*> refused[] = {
      {"GIF89a", "is no bitmap file"},
      {"", "is no bitmap file"},
      {core.substr(0, 40), "is cut short"},
      {other, "has a header of a kind that is not supported"},
  };
  for (const auto& [file, reason] : refused) {
    try {
      ResourceFromBitmapFile(file);
      ADD_FAILURE() << reason;
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), reason);
    }
  }
}

}  // namespace
}  // namespace test
