// What the drawing tests share: a fixture that finds leaked and doubly deleted handles, and bitmaps whose
// pixels tests write and read without going through the code under test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <win32.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace test {

// Every test leaves as many drawing objects as it found, and deletes none twice.
class GdiTest : public testing::Test {
 protected:
  void SetUp() override {
    GetStockObject(SYSTEM_FONT);  // makes the stock objects
    mObjects = GetGuiResources(nullptr, GR_GDIOBJECTS);
    mDeadDeletes = OrmGetDeadDeletes();
  }
  void TearDown() override {
    EXPECT_EQ(GetGuiResources(nullptr, GR_GDIOBJECTS), mObjects) << "drawing objects leaked";
    EXPECT_EQ(OrmGetDeadDeletes(), mDeadDeletes) << "handles were deleted twice";
  }

  DWORD mObjects = 0;
  DWORD mDeadDeletes = 0;
};

// A header, and room for the longest colour table or the masks.
struct DibInfo {
  BITMAPINFOHEADER header{};
  RGBQUAD colors[256]{};

  DibInfo(int width, int height, int bits, DWORD compression = BI_RGB) {
    header.biSize = sizeof header;
    header.biWidth = width;
    header.biHeight = height;
    header.biPlanes = 1;
    header.biBitCount = static_cast<WORD>(bits);
    header.biCompression = compression;
  }
  void SetMasks(DWORD red, DWORD green, DWORD blue) {
    const DWORD masks[] = {red, green, blue};
    std::memcpy(colors, masks, sizeof masks);
  }
  BITMAPINFO* Get() { return reinterpret_cast<BITMAPINFO*>(this); }
  int Stride() const { return (header.biWidth * header.biBitCount + 31) / 32 * 4; }
};

// A memory context with a section of its own, top row first. 32 bits unless said otherwise.
class Canvas {
 public:
  Canvas(int canvasWidth, int canvasHeight, int bits = 32)
      : width(canvasWidth), height(canvasHeight), context(CreateCompatibleDC(nullptr)) {
    DibInfo info(width, -height, bits);
    if (bits <= 8)
      for (int i = 0; i < 256; ++i) {  // every index has a colour of its own
        const auto value = static_cast<BYTE>(bits == 1 ? i * 255 : bits == 4 ? i * 17 : i);
        info.colors[i] = {static_cast<BYTE>(255 - value), value, static_cast<BYTE>(value / 2), 0};
      }
    stride = info.Stride();
    bitmap = CreateDIBSection(context, info.Get(), DIB_RGB_COLORS, &mBits, nullptr, 0);
    mPrevious = SelectObject(context, bitmap);
  }
  ~Canvas() {
    SelectObject(context, mPrevious);
    DeleteObject(bitmap);
    DeleteDC(context);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  BYTE* Row(int y) const { return static_cast<BYTE*>(mBits) + y * stride; }
  // The pixels of a 32-bit canvas.
  std::uint32_t& At(int x, int y) const { return reinterpret_cast<std::uint32_t*>(Row(y))[x]; }
  // Whatever the depth, 0x00RRGGBB.
  std::uint32_t Color(int x, int y) const {
    const COLORREF color = GetPixel(context, x, y);
    return static_cast<std::uint32_t>(GetRValue(color)) << 16 |
           static_cast<std::uint32_t>(GetGValue(color)) << 8 | GetBValue(color);
  }
  void Fill(std::uint32_t value) const {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) At(x, y) = value;
  }
  void FillBytes(std::mt19937& random) const {
    for (int i = 0; i < stride * height; ++i) static_cast<BYTE*>(mBits)[i] = static_cast<BYTE>(random());
    if (stride == width * 4)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) At(x, y) &= 0xFFFFFF;
  }
  std::vector<std::uint32_t> Colors() const {
    std::vector<std::uint32_t> colors;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) colors.push_back(Color(x, y));
    return colors;
  }

  const int width;
  const int height;
  int stride = 0;
  const HDC context;
  HBITMAP bitmap = nullptr;

 private:
  void* mBits = nullptr;
  HGDIOBJ mPrevious = nullptr;
};

// A monochrome bitmap in a context of its own; pattern(x, y) tells which pixels are 1.
class MonoCanvas {
 public:
  template <class Pattern>
  MonoCanvas(int width, int height, Pattern pattern) : context(CreateCompatibleDC(nullptr)) {
    const int stride = (width + 15) / 16 * 2;
    std::vector<BYTE> bits(static_cast<size_t>(stride * height));
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        if (pattern(x, y)) bits[static_cast<size_t>(y * stride + x / 8)] |= static_cast<BYTE>(0x80 >> x % 8);
    mBitmap = CreateBitmap(width, height, 1, 1, bits.data());
    mPrevious = SelectObject(context, mBitmap);
  }
  ~MonoCanvas() {
    SelectObject(context, mPrevious);
    DeleteObject(mBitmap);
    DeleteDC(context);
  }
  MonoCanvas(const MonoCanvas&) = delete;
  MonoCanvas& operator=(const MonoCanvas&) = delete;

  const HDC context;

 private:
  HBITMAP mBitmap = nullptr;
  HGDIOBJ mPrevious = nullptr;
};

}  // namespace test
