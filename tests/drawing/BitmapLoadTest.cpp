// Loading: palettes, scaling by both roads, trace lines, and data that are not what they announce.
#include <ormutil/Bitmap.h>

#include "drawing/Drawing.h"

namespace test {
namespace {

using BitmapLoadTest = DrawingTest;
using orm::Bitmap;
using orm::StretchInfo;

std::uint32_t Checker(int x, int y) {
  return (x / 2 + y) % 2 ? 0x10A0F0 : 0xF04020;
}

// An indexed picture: index(x, y) = (x + 3 y) % 2^bits, entry i of the table (i, 2 i, 255 - i).
Resource Indexed(int width, int height, int bits) {
  Resource resource;
  resource.PutHeader(width, height, static_cast<unsigned>(bits));
  for (int i = 0; i < 1 << bits; ++i)
    resource.Put32(static_cast<DWORD>((255 - i) & 0xFF) | static_cast<DWORD>(2 * i & 0xFF) << 8 |
                   static_cast<DWORD>(i) << 16);
  const int stride = (width * bits + 31) / 32 * 4;
  for (int y = height - 1; y >= 0; --y) {
    std::vector<BYTE> row(static_cast<size_t>(stride));
    for (int x = 0; x < width; ++x)
      row[static_cast<size_t>(x * bits / 8)] |=
          static_cast<BYTE>((x + 3 * y) % (1 << bits) << (8 - bits - x * bits % 8));
    resource.bytes.insert(resource.bytes.end(), row.begin(), row.end());
  }
  return resource;
}

TEST_F(BitmapLoadTest, KeepsTheSizeWithoutScaling) {
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Resource::Picture(7, 5, Checker)));
  const Pixels pixels(bitmap);
  ASSERT_EQ(pixels.width, 7);
  ASSERT_EQ(pixels.height, 5);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 7; ++x) EXPECT_EQ(pixels.At(x, y), Checker(x, y));
  EXPECT_EQ(bitmap.GetPalette(), nullptr);
}

TEST_F(BitmapLoadTest, IndexedPicturesGetAPalette) {
  for (const int bits : {1, 4, 8}) {
    Bitmap bitmap;
    ASSERT_TRUE(Load(bitmap, Indexed(11, 4, bits)));
    const Pixels pixels(bitmap);
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 11; ++x) {
        const auto i = static_cast<std::uint32_t>((x + 3 * y) % (1 << bits));
        EXPECT_EQ(pixels.At(x, y), i << 16 | (2 * i & 0xFF) << 8 | (255 - i)) << bits << " bits";
      }
    PALETTEENTRY entries[256];
    ASSERT_EQ(GetPaletteEntries(bitmap.GetPalette(), 0, 256, entries), 1u << bits);
    for (int i = 0; i < 1 << bits; ++i) {
      EXPECT_EQ(entries[i].peRed, i);
      EXPECT_EQ(entries[i].peGreen, 2 * i & 0xFF);
      EXPECT_EQ(entries[i].peBlue, 255 - i);
      EXPECT_EQ(entries[i].peFlags, 0);
    }
  }
}

TEST_F(BitmapLoadTest, ScreenResolution) {
  if (!SetScreenResolution(120)) GTEST_SKIP() << "needs a process of its own";
  const StretchInfo& scale = StretchInfo::GetDefault();
  EXPECT_EQ(scale.mMulX, 120);
  EXPECT_EQ(scale.mDivX, 96);
  EXPECT_EQ(scale.mMulY, 120);
  EXPECT_EQ(scale.mDivY, 96);
  EXPECT_EQ(&scale, &StretchInfo::GetDefault());
  for (const bool system : {false, true}) {
    Bitmap bitmap;
    ASSERT_TRUE(Load(bitmap, Resource::Picture(32, 16, Checker), scale, system));
    EXPECT_EQ(Pixels(bitmap).width, 40);
    EXPECT_EQ(Pixels(bitmap).height, 20);
    EXPECT_EQ(bitmap.GetWidth(), 32);
  }
  orm::Font font;
  font.Create("Tahoma;10");
  LOGFONTA description{};
  GetObjectA(font.GetHandle(), sizeof description, &description);
  EXPECT_EQ(description.lfHeight, -17) << "16.67 rounded";
}

TEST_F(BitmapLoadTest, TheSystemStretchesByItsDefaultMode) {
  Bitmap small;
  ASSERT_TRUE(Load(small, Resource::Picture(8, 2, [](int x, int) { return x % 2 ? 0xF0F0F0u : 0x0FFF3Cu; }),
                   {1, 2, 1, 1}, true));
  const Pixels pixels(small);
  EXPECT_EQ(pixels.width, 4);
  EXPECT_EQ(pixels.height, 2);
  EXPECT_THAT(pixels.colors, testing::Each(0x00F030u)) << "black on white combines by AND";
  Bitmap large;
  ASSERT_TRUE(Load(large, Resource::Picture(4, 3, Checker), {3, 1, 2, 1}, true));
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 12; ++x) EXPECT_EQ(Pixels(large).At(x, y), Checker(x / 3, y / 2));
}

TEST_F(BitmapLoadTest, TracesItsWay) {
  OpenArea("bitmap", "t");
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, Indexed(4, 4, 8)));
  char loaded[40];
  std::snprintf(loaded, sizeof loaded, "    bitmap loaded %08x",
                static_cast<unsigned>(reinterpret_cast<uintptr_t>(bitmap.GetHandle())));
  EXPECT_THAT(TakeLines(), testing::ElementsAre("-> Bitmap::Load()", loaded, "<- Bitmap::Load()"));
  ASSERT_TRUE(Load(bitmap, Indexed(4, 4, 8), {2, 1, 2, 1}, true));
  EXPECT_THAT(TakePlaces(), testing::ElementsAre("d Bitmap(298)", "t Bitmap(302)", "t Bitmap(308)",
                                                 "t Bitmap(406)", "t Bitmap(430)", "d Bitmap(431)"));
  EXPECT_THAT(TakeLines(),
              testing::ElementsAre("-> Bitmap::Load()", "    Palette already loaded , delete it",
                                   "    Bitmap already loaded , delete it", "    Doing the system stretch",
                                   testing::StartsWith("    bitmap loaded "), "<- Bitmap::Load()"));
  EXPECT_FALSE(bitmap.Load(4711, nullptr, StretchInfo::GetNotChanging(), false));
  EXPECT_EQ(bitmap.GetHandle(), nullptr) << "what was loaded before is gone";
  EXPECT_EQ(bitmap.GetPalette(), nullptr);
  EXPECT_THAT(TakeLines(), testing::ElementsAre("-> Bitmap::Load()", "    Palette already loaded , delete it",
                                                "    Bitmap already loaded , delete it"));
  // The resampler refuses what is not there.
  Resource cut;
  cut.PutHeader(4, 4, 24);
  EXPECT_TRUE(Load(bitmap, cut, {2, 1, 2, 1}));
  EXPECT_EQ(TakePlaces().at(1), "t Bitmap(64)");
  EXPECT_THAT(TakeLines(),
              testing::ElementsAre("-> Bitmap::Load()", "StretchBitmap cannot work with 0 bit image",
                                   "    Doing the system stretch", testing::StartsWith("    bitmap loaded "),
                                   "<- Bitmap::Load()"));
  EXPECT_THAT(
      TakeAssertions(),
      testing::ElementsAre(
          "src/shared/Bitmap(378):mBitmap",
          "src/shared/Bitmap(382):SetDIBits(dc, mBitmap, 0, (WORD)pBI->bmiHeader.biHeight, pBits, pBI, 0)",
          "src/shared/Bitmap(56):::GetObjectA(mBitmap, sizeof(BITMAP), &bitmapInfo) == sizeof(BITMAP)"));
  OpenArea("bitmap", "d");
  ASSERT_TRUE(Load(bitmap, Indexed(4, 4, 8), {2, 1, 2, 1}, true));
  EXPECT_THAT(TakeLines(), testing::ElementsAre("-> Bitmap::Load()", "<- Bitmap::Load()"));
}

TEST_F(BitmapLoadTest, OtherHeadersAndCompressions) {
  // A longer header, its masks inside; the colours come right after it.
  Resource longer;
  longer.PutHeader(2, 1, 32, BI_BITFIELDS, 0, 108);
  longer.Put32(0xFF).Put32(0xFF00).Put32(0xFF0000);
  longer.bytes.resize(108);
  longer.Put32(0x332211).Put32(0x665544);
  Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, longer));
  EXPECT_THAT(Pixels(bitmap).colors, testing::ElementsAre(0x112233u, 0x445566u));
  // The short one is followed by them.
  Resource masks;
  masks.PutHeader(2, 1, 16, BI_BITFIELDS)
      .Put32(0xF800)
      .Put32(0x07E0)
      .Put32(0x001F)
      .Put16(0xF800)
      .Put16(0x07E0);
  ASSERT_TRUE(Load(bitmap, masks));
  EXPECT_THAT(Pixels(bitmap).colors, testing::ElementsAre(0xFF0000u, 0x00FF00u));
  // Top row first.
  Resource topDown;
  topDown.PutHeader(1, -2, 32).Put32(0x010203).Put32(0x040506);
  ASSERT_TRUE(Load(bitmap, topDown, {2, 1, 2, 1}, true));
  EXPECT_EQ(Pixels(bitmap).At(0, 0), 0x010203u);
  EXPECT_EQ(Pixels(bitmap).At(1, 3), 0x040506u);
  EXPECT_EQ(bitmap.GetHeight(), 2);
  // Run-length data, their announced size 0: what is there counts.
  Resource runs;
  runs.PutHeader(4, 1, 8, BI_RLE8);
  for (DWORD i = 0; i < 256; ++i) runs.Put32(i * 0x010101);
  runs.Put16(0x0703).Put16(0x0901).Put16(0x0100);
  ASSERT_TRUE(Load(bitmap, runs));
  EXPECT_THAT(Pixels(bitmap).colors, testing::ElementsAre(0x070707u, 0x070707u, 0x070707u, 0x090909u));
}

constexpr const char* noSection = "src/shared/Bitmap(378):mBitmap";
constexpr const char* notConverted =
    "src/shared/Bitmap(382):SetDIBits(dc, mBitmap, 0, (WORD)pBI->bmiHeader.biHeight, pBits, pBI, 0)";

TEST_F(BitmapLoadTest, DataThatAreNotWhatTheyAnnounce) {
  const auto absurd = [this](LONG width, LONG height, unsigned bits, DWORD compression = BI_RGB) {
    Resource resource;
    resource.PutHeader(width, height, bits, compression);
    resource.bytes.resize(40 + 4096);
    Bitmap bitmap;
    EXPECT_TRUE(Load(bitmap, resource));
    EXPECT_EQ(bitmap.GetHandle(), nullptr);
    EXPECT_THAT(TakeAssertions(), testing::ElementsAre(noSection, notConverted))
        << width << "x" << height << " " << bits;
  };
  absurd(0, 4, 24);
  absurd(4, 0, 24);
  absurd(-4, 4, 24);
  absurd(4, INT32_MIN, 24);
  absurd(INT32_MAX, INT32_MAX, 24);
  absurd(INT32_MAX, 1, 1);
  absurd(1, INT32_MAX, 32);
  absurd(100000, 100000, 8, BI_RLE8);
  absurd(64, 64, 24);  // more pixels than data

  for (const unsigned bits : {2u, 15u, 64u}) {
    Resource resource;
    resource.PutHeader(2, 2, bits);
    resource.bytes.resize(40 + 4096);
    Bitmap bitmap;
    EXPECT_TRUE(Load(bitmap, resource));
    EXPECT_THAT(TakeAssertions(), testing::ElementsAre(notConverted));
  }
}

TEST_F(BitmapLoadTest, EveryTruncationEndsWell) {
  for (const int bits : {1, 8}) {
    const Resource whole = Indexed(9, 5, bits);
    for (size_t size = 0; size < whole.bytes.size(); size += bits == 8 ? 13 : 1) {
      // A block of exactly this size, for the address sanitizer.
      const std::vector<BYTE> part(whole.bytes.begin(),
                                   whole.bytes.begin() + static_cast<std::ptrdiff_t>(size));
      Bitmap bitmap;
      const bool hasTable = size >= 40u + (4u << bits);
      EXPECT_EQ(bitmap.LoadData(part.data(), part.size(), {3, 2, 1, 1}, size % 2), hasTable) << size;
      const std::vector<std::string> assertions = TakeAssertions();
      if (hasTable) {
        EXPECT_THAT(assertions, testing::IsSupersetOf({noSection, notConverted})) << size;
      }
    }
  }
  Bitmap bitmap;
  EXPECT_FALSE(bitmap.LoadData(nullptr, 0, StretchInfo::GetNotChanging(), false));
  EXPECT_THAT(TakeAssertions(), testing::ElementsAre("src/shared/Bitmap(321):pBI != 0"));
}

TEST_F(BitmapLoadTest, FactorsThatNoBitmapCanHave) {
  for (const StretchInfo scale :
       {StretchInfo{0, 1, 1, 1}, StretchInfo{1, 0, 1, 1}, StretchInfo{-1, 1, 1, 1},
        StretchInfo{INT32_MAX, 1, 1, 1}, StretchInfo{100000, 1, 100000, 1}, StretchInfo{1, INT32_MAX, 1, 1}})
    for (const bool system : {false, true}) {
      Bitmap bitmap;
      EXPECT_TRUE(Load(bitmap, Resource::Picture(3, 3, Checker), scale, system));
      EXPECT_EQ(bitmap.GetHandle(), nullptr);
      EXPECT_THAT(TakeAssertions(), testing::ElementsAre("src/shared/Bitmap(418):mBitmap"));
    }
}

}  // namespace
}  // namespace test
