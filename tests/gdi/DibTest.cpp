// Device-independent bits: every depth, order of rows and compression in, every depth out, and bad headers.
#include <algorithm>
#include <array>
#include <memory>

#include "gdi/Canvas.h"

namespace test {
namespace {

using DibTest = GdiTest;

constexpr int width = 5, height = 3;

// A picture of the two colours that every depth can be made to hold: red where on(x, y), else blue.
bool On(int x, int y) {
  return (x * 2 + y) % 3 == 0;
}

// Its pixels in the format of a header, written without the code under test.
std::vector<BYTE> MakeBits(DibInfo& info) {
  const int bits = info.header.biBitCount;
  const bool topDown = info.header.biHeight < 0;
  const size_t stride = static_cast<size_t>(info.Stride());
  info.colors[1].rgbRed = info.header.biCompression == BI_RGB ? 255 : info.colors[1].rgbRed;
  if (info.header.biCompression == BI_RGB) info.colors[0] = {255, 0, 0, 0};
  std::vector<BYTE> bytes(stride * height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      BYTE* row = bytes.data() + stride * static_cast<size_t>(topDown ? y : height - 1 - y);
      std::uint32_t value = On(x, y);
      if (bits > 8) {
        DWORD masks[3] = {bits == 16 ? 0x7C00u : 0xFF0000u, 0, bits == 16 ? 0x1Fu : 0xFFu};
        if (info.header.biCompression == BI_BITFIELDS) std::memcpy(masks, info.colors, sizeof masks);
        value = On(x, y) ? masks[0] : masks[2];
      }
      if (bits >= 8)
        std::memcpy(row + x * bits / 8, &value, static_cast<size_t>(bits) / 8);
      else
        row[x * bits / 8] |= static_cast<BYTE>(value << (8 - bits - x * bits % 8));
    }
  return bytes;
}

void ExpectPicture(const Canvas& canvas, const char* what) {
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) ASSERT_EQ(canvas.Color(x, y), On(x, y) ? 0xFF0000u : 0x0000FFu) << what;
}

struct Form {
  const char* name;
  int bits;
  bool topDown;
  DWORD masks[3];
};
constexpr Form forms[] = {
    {"1", 1, false, {}},
    {"1 top-down", 1, true, {}},
    {"4", 4, false, {}},
    {"8", 8, false, {}},
    {"8 top-down", 8, true, {}},
    {"16", 16, false, {}},
    {"16 565", 16, false, {0xF800, 0x07E0, 0x001F}},
    {"24", 24, false, {}},
    {"24 top-down", 24, true, {}},
    {"32", 32, false, {}},
    {"32 reversed", 32, true, {0x000000FF, 0x0000FF00, 0x00FF0000}},
    {"32 10 bits", 32, false, {0x3FF00000, 0x000FFC00, 0x000003FF}},
};

DibInfo MakeInfo(const Form& form) {
  DibInfo info(width, form.topDown ? -height : height, form.bits, form.masks[0] ? BI_BITFIELDS : BI_RGB);
  if (form.masks[0]) info.SetMasks(form.masks[0], form.masks[1], form.masks[2]);
  return info;
}

TEST_F(DibTest, EveryFormIsStoredStretchedAndRead) {
  for (const Form& form : forms) {
    DibInfo info = MakeInfo(form);
    const std::vector<BYTE> bits = MakeBits(info);
    Canvas stored(width, height, 24), drawn(width, height), large(2 * width, 2 * height);
    EXPECT_EQ(SetDIBits(nullptr, stored.bitmap, 0, height, bits.data(), info.Get(), DIB_RGB_COLORS), height);
    ExpectPicture(stored, form.name);
    StretchDIBits(drawn.context, 0, 0, width, height, 0, 0, width, height, bits.data(), info.Get(),
                  DIB_RGB_COLORS, SRCCOPY);
    ExpectPicture(drawn, form.name);
    StretchDIBits(large.context, 0, 0, 2 * width, 2 * height, 0, 0, width, height, bits.data(), info.Get(),
                  DIB_RGB_COLORS, SRCCOPY);
    for (int y = 0; y < 2 * height; ++y)
      for (int x = 0; x < 2 * width; ++x)
        ASSERT_EQ(large.Color(x, y), On(x / 2, y / 2) ? 0xFF0000u : 0x0000FFu) << form.name;

    if (form.bits == 1) continue;  // read into one bit, it would be black and white
    DibInfo wanted = MakeInfo(form);
    std::vector<BYTE> back(bits.size() + 8, 0xEE);
    ASSERT_EQ(GetDIBits(nullptr, stored.bitmap, 0, height, back.data(), wanted.Get(), DIB_RGB_COLORS),
              height);
    EXPECT_EQ(wanted.header.biSizeImage, bits.size());
    EXPECT_THAT(std::vector(back.begin() + static_cast<std::ptrdiff_t>(bits.size()), back.end()),
                testing::Each(0xEE));
    Canvas again(width, height);
    SetDIBits(nullptr, again.bitmap, 0, height, back.data(), wanted.Get(), DIB_RGB_COLORS);
    ExpectPicture(again, form.name);
  }
}

TEST_F(DibTest, PartsOfPictures) {
  DibInfo info = MakeInfo(forms[7]);
  const std::vector<BYTE> bits = MakeBits(info);
  Canvas canvas(width, height);
  canvas.Fill(0x123456);
  // The middle row alone; rows count from the bottom.
  EXPECT_EQ(SetDIBits(nullptr, canvas.bitmap, 1, 1, bits.data() + info.Stride(), info.Get(), DIB_RGB_COLORS),
            1);
  for (int x = 0; x < width; ++x) {
    EXPECT_EQ(canvas.Color(x, 0), 0x123456u);
    EXPECT_EQ(canvas.Color(x, 1), On(x, 1) ? 0xFF0000u : 0x0000FFu);
    EXPECT_EQ(canvas.Color(x, 2), 0x123456u);
  }
  EXPECT_EQ(SetDIBits(nullptr, canvas.bitmap, 7, 1, bits.data(), info.Get(), DIB_RGB_COLORS), 0);
  // The source point of bottom-up bits counts from below: the lower left 2 x 1 pixels.
  StretchDIBits(canvas.context, 0, 0, 2, 1, 0, 0, 2, 1, bits.data(), info.Get(), DIB_RGB_COLORS, SRCCOPY);
  EXPECT_EQ(canvas.Color(0, 0), On(0, 2) ? 0xFF0000u : 0x0000FFu);
  EXPECT_EQ(canvas.Color(1, 0), On(1, 2) ? 0xFF0000u : 0x0000FFu);
}

TEST_F(DibTest, RunLengthData) {
  DibInfo info(6, 3, 8, BI_RLE8);
  for (int i = 0; i < 256; ++i) info.colors[i] = {static_cast<BYTE>(i), 0, 0, 0};
  const BYTE bits[] = {
      4, 7, 0, 0,                    // row 0: four 7s, the rest skipped
      0, 3, 1, 2, 3, 0, 2, 9, 9, 5,  // row 1: literals 1 2 3 (padded), two 9s, 5s cut at the edge
      0, 0, 0, 2, 2, 0, 1, 8, 0, 1,  // row 2: skip two, one 8; end
      6, 6};
  info.header.biSizeImage = sizeof bits;
  Canvas canvas(6, 3);
  canvas.Fill(0xFF00FF);
  EXPECT_EQ(SetDIBits(nullptr, canvas.bitmap, 0, 3, bits, info.Get(), DIB_RGB_COLORS), 3);
  constexpr std::uint32_t skipped = 0xFF00FF;
  EXPECT_THAT(canvas.Colors(), testing::ElementsAre(skipped, skipped, 8u, skipped, skipped, skipped,  //
                                                    1u, 2u, 3u, 9u, 9u, 5u,                           //
                                                    7u, 7u, 7u, 7u, skipped, skipped));

  DibInfo nibbles(5, 2, 4, BI_RLE4);
  for (int i = 0; i < 16; ++i) nibbles.colors[i] = {static_cast<BYTE>(i), 0, 0, 0};
  const BYTE runs[] = {5, 0x12, 0, 0, 0, 3, 0x45, 0x60, 2, 0x78, 0, 1};
  nibbles.header.biSizeImage = sizeof runs;
  Canvas small(5, 2);
  SetDIBits(nullptr, small.bitmap, 0, 2, runs, nibbles.Get(), DIB_RGB_COLORS);
  EXPECT_THAT(small.Colors(), testing::ElementsAre(4u, 5u, 6u, 7u, 8u, 1u, 2u, 1u, 2u, 1u));
}

TEST_F(DibTest, RandomRunLengthDataStayInside) {
  std::mt19937 random(5);
  for (int round = 0; round < 2000; ++round) {
    const bool nibbles = round % 2;
    DibInfo info(1 + static_cast<int>(random() % 9), 1 + static_cast<int>(random() % 9), nibbles ? 4 : 8,
                 nibbles ? BI_RLE4 : BI_RLE8);
    // On the heap and exactly as long as announced, for the address sanitizer.
    std::vector<BYTE> bits(random() % 40 + 1);
    for (BYTE& byte : bits) byte = static_cast<BYTE>(random() % 4 ? random() % 6 : random());
    info.header.biSizeImage = static_cast<DWORD>(bits.size());
    Canvas canvas(4, 4);
    SetDIBits(nullptr, canvas.bitmap, 0, 9, bits.data(), info.Get(), DIB_RGB_COLORS);
    StretchDIBits(canvas.context, 0, 0, 4, 4, 0, 0, info.header.biWidth, info.header.biHeight, bits.data(),
                  info.Get(), DIB_RGB_COLORS, SRCCOPY);
  }
}

TEST_F(DibTest, HeadersThatMakeNoSenseAreRefused) {
  Canvas canvas(4, 4);
  const auto refused = [&](DibInfo info) {
    BYTE bits[256] = {};
    void* memory = nullptr;
    EXPECT_EQ(SetDIBits(nullptr, canvas.bitmap, 0, 4, bits, info.Get(), DIB_RGB_COLORS), 0);
    EXPECT_EQ(
        StretchDIBits(canvas.context, 0, 0, 4, 4, 0, 0, 4, 4, bits, info.Get(), DIB_RGB_COLORS, SRCCOPY), 0);
    // On the heap and no longer than a table of 256 colours, for the address sanitizer.
    const auto asked = std::make_unique<DibInfo>(info);
    for (void* const buffer : {static_cast<void*>(bits), static_cast<void*>(nullptr)}) {
      if (info.header.biBitCount == 0 && !buffer) continue;  // asks for the description
      EXPECT_EQ(GetDIBits(nullptr, canvas.bitmap, 0, 4, buffer, asked->Get(), DIB_RGB_COLORS), 0);
      EXPECT_EQ(std::memcmp(asked.get(), &info, sizeof info), 0) << "what was refused is not written";
    }
    EXPECT_EQ(CreateDIBSection(nullptr, info.Get(), DIB_RGB_COLORS, &memory, nullptr, 0), nullptr);
  };
  for (const int bits : {0, 2, 3, 5, 15, 48, 65535}) refused(DibInfo(4, 4, bits));
  for (const DWORD compression : {BI_RLE8, BI_RLE4, BI_BITFIELDS, DWORD{4}, DWORD{5}, DWORD{0xFFFFFFFF}})
    refused(DibInfo(4, 4, 24, compression));
  refused(DibInfo(4, -4, 8, BI_RLE8));
  for (const auto& masks :
       {std::array<DWORD, 3>{0xFF, 0, 0xFF00}, {0xFF, 0xFF, 0xFF00}, {0xF0F0, 0x0F, 0xFF0000}}) {
    DibInfo info(4, 4, 32, BI_BITFIELDS);
    info.SetMasks(masks[0], masks[1], masks[2]);
    refused(info);
  }
  for (const DWORD compression : {BI_RGB, BI_BITFIELDS}) {  // masks of 0, which the canvas could fill in
    DibInfo planes(4, 4, 32, compression);
    planes.header.biPlanes = 3;
    refused(planes);
  }
  DibInfo core(4, 4, 24);
  core.header.biSize = 12;
  refused(core);
  for (const int bits : {1, 8, 24})  // the table would begin anywhere
    for (const DWORD size : {125u, 4000u, 0xFFFFFFFFu}) {
      DibInfo far(4, 4, bits);
      far.header.biSize = size;
      refused(far);
    }
  for (const SIZE size :
       {SIZE{0, 4}, SIZE{4, 0}, SIZE{-4, 4}, SIZE{4, INT32_MIN}, SIZE{INT32_MAX, INT32_MAX}})
    for (const DWORD compression : {BI_RGB, BI_BITFIELDS})
      refused(DibInfo(size.cx, size.cy, 32, compression));
}

TEST_F(DibTest, SizeIsToldWithoutABuffer) {
  Canvas canvas(7, 5, 24);
  DibInfo info(7, 5, 24);
  EXPECT_EQ(GetDIBits(nullptr, canvas.bitmap, 0, 5, nullptr, info.Get(), DIB_RGB_COLORS), 5);
  EXPECT_EQ(info.header.biSizeImage, 24u * 5);
  DibInfo unknown(0, 0, 0);
  EXPECT_EQ(GetDIBits(nullptr, canvas.bitmap, 0, 0, nullptr, unknown.Get(), DIB_RGB_COLORS), 5);
  EXPECT_EQ(unknown.header.biWidth, 7);
  EXPECT_EQ(unknown.header.biHeight, 5);
  EXPECT_EQ(unknown.header.biBitCount, 24);
  EXPECT_EQ(GetDIBits(nullptr, nullptr, 0, 0, nullptr, info.Get(), DIB_RGB_COLORS), 0);
}

// No row is written that the bitmap does not have, the caller did not ask for or the header does not
// announce.
TEST_F(DibTest, RowsAreReadWithinEveryBound) {
  const Canvas canvas(1, 5);
  for (int y = 0; y < 5; ++y) canvas.At(0, y) = static_cast<std::uint32_t>(4 - y + 1);  // from below: 1 to 5
  const struct {
    LONG headerHeight;
    UINT start, lines;
    std::vector<std::uint32_t> rows;
  } cases[] = {{5, 0, 5, {1, 2, 3, 4, 5}},
               {5, 3, 5, {4, 5}},
               {5, 2, 2, {3, 4}},
               {5, 3, UINT32_MAX, {4, 5}},
               {5, 5, 1, {}},
               {5, UINT32_MAX, UINT32_MAX, {}},
               {5, 1, 0, {}},
               {2, 0, 5, {1, 2}},
               {2, 1, 5, {2, 3}},
               {9, 0, 9, {1, 2, 3, 4, 5}},
               {-5, 0, 5, {5, 4, 3, 2, 1}},
               {-5, 1, 0, {}}};
  for (const auto& c : cases) {
    DibInfo info(1, c.headerHeight, 32);
    std::vector<std::uint32_t> bits(9, 0xEEEEEEEE), expected = c.rows;
    expected.resize(bits.size(), 0xEEEEEEEE);
    EXPECT_EQ(GetDIBits(nullptr, canvas.bitmap, c.start, c.lines, bits.data(), info.Get(), DIB_RGB_COLORS),
              static_cast<int>(c.rows.size()))
        << c.start << "," << c.lines;
    EXPECT_EQ(bits, expected) << c.start << "," << c.lines;
  }
  DibInfo info(1, 5, 32);
  EXPECT_EQ(SetDIBits(nullptr, canvas.bitmap, 1, 0, cases, info.Get(), DIB_RGB_COLORS), 0);
  EXPECT_EQ(SetDIBits(nullptr, canvas.bitmap, 0, 5, nullptr, info.Get(), DIB_RGB_COLORS), 0);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

// The table is only written: what stands there, and how much the header says there is, does not matter.
TEST_F(DibTest, ReadingWritesTheWholeColourTable) {
  const Canvas canvas(4, 1, 8);
  canvas.Row(0)[1] = 77;
  DibInfo info(4, 1, 8);
  info.header.biClrUsed = 3;
  BYTE bits[4];
  EXPECT_EQ(GetDIBits(nullptr, canvas.bitmap, 0, 1, bits, info.Get(), DIB_RGB_COLORS), 1);
  EXPECT_EQ(bits[1], 77) << "the bitmap's own colours, so its own indices";
  RGBQUAD colors[256];
  EXPECT_EQ(GetDIBColorTable(canvas.context, 0, 256, colors), 256u);
  EXPECT_EQ(std::memcmp(info.colors, colors, sizeof colors), 0);
  EXPECT_EQ(info.header.biClrUsed, 0u);
}

// Whoever asks for the header first and then for the pixels gets both as the bitmap has them.
TEST_F(DibTest, ADescriptionLeadsToThePixelsThemselves) {
  for (const Form& form : forms) {
    if (form.bits <= 8) continue;
    DibInfo info = MakeInfo(form);
    const std::vector<BYTE> bits = MakeBits(info);
    void* pixels = nullptr;
    const HBITMAP bitmap = CreateDIBSection(nullptr, info.Get(), DIB_RGB_COLORS, &pixels, nullptr, 0);
    std::memcpy(pixels, bits.data(), bits.size());
    DibInfo asked(0, 0, 0);
    EXPECT_EQ(GetDIBits(nullptr, bitmap, 0, 0, nullptr, asked.Get(), DIB_RGB_COLORS), height) << form.name;
    EXPECT_EQ(asked.header.biCompression, info.header.biCompression) << form.name;
    if (form.topDown) asked.header.biHeight = -height;
    std::vector<BYTE> back(bits.size());
    EXPECT_EQ(GetDIBits(nullptr, bitmap, 0, height, back.data(), asked.Get(), DIB_RGB_COLORS), height);
    EXPECT_EQ(back, bits) << form.name;
    EXPECT_EQ(std::memcmp(asked.colors, info.colors, form.masks[0] ? 12 : 0), 0) << form.name;
    DeleteObject(bitmap);
  }
}

// The table of indices is written like one of colours: entry i of the context's palette.
TEST_F(DibTest, ReadingForThePaletteWritesItsIndices) {
  const Canvas canvas(3, 1);
  const struct {
    WORD version, count;
    PALETTEENTRY entries[3];
  } described{0x300, 3, {{10, 20, 30, 0}, {200, 0, 0, 0}, {0, 0, 250, 0}}};
  const HPALETTE palette = CreatePalette(reinterpret_cast<const LOGPALETTE*>(&described));
  const HPALETTE previous = SelectPalette(canvas.context, palette, TRUE);
  canvas.At(0, 0) = 0x0000FA;
  canvas.At(1, 0) = 0xC80000;
  canvas.At(2, 0) = 0x0A141E;
  DibInfo info(3, 1, 4);
  std::memset(info.colors, 0xEE, sizeof info.colors);
  info.header.biClrUsed = 1;
  BYTE bits[4] = {};
  EXPECT_EQ(GetDIBits(canvas.context, canvas.bitmap, 0, 1, bits, info.Get(), DIB_PAL_COLORS), 1);
  EXPECT_EQ(bits[0], 0x21);
  EXPECT_EQ(bits[1], 0x00);
  WORD indices[17];
  std::memcpy(indices, info.colors, sizeof indices);
  for (WORD i = 0; i < 16; ++i) EXPECT_EQ(indices[i], i);
  EXPECT_EQ(indices[16], 0xEEEE) << "beyond the table";
  EXPECT_EQ(info.header.biClrUsed, 0u);
  EXPECT_EQ(GetDIBits(nullptr, canvas.bitmap, 0, 1, bits, info.Get(), DIB_PAL_COLORS), 0) << "no palette";
  SelectPalette(canvas.context, previous, TRUE);
  DeleteObject(palette);
}

TEST_F(DibTest, SectionsShareTheirPixelsAndColours) {
  Canvas canvas(4, 1, 8);
  canvas.Row(0)[2] = 200;
  EXPECT_EQ(canvas.Color(2, 0), 0x64C837u);
  RGBQUAD color{1, 2, 3, 0};
  EXPECT_EQ(SetDIBColorTable(canvas.context, 200, 1, &color), 1u);
  EXPECT_EQ(canvas.Color(2, 0), 0x030201u);
  RGBQUAD colors[4]{};
  EXPECT_EQ(GetDIBColorTable(canvas.context, 254, 4, colors), 2u);
  EXPECT_EQ(GetDIBColorTable(canvas.context, 256, 4, colors), 0u);
}

TEST_F(DibTest, DeviceBitmapsFromBits) {
  const HDC screen = GetDC(nullptr);
  DibInfo info = MakeInfo(forms[3]);
  const std::vector<BYTE> bits = MakeBits(info);
  const HBITMAP bitmap =
      CreateDIBitmap(screen, &info.header, CBM_INIT, bits.data(), info.Get(), DIB_RGB_COLORS);
  const HDC memory = CreateCompatibleDC(screen);
  const HGDIOBJ previous = SelectObject(memory, bitmap);
  Canvas canvas(width, height);
  BitBlt(canvas.context, 0, 0, width, height, memory, 0, 0, SRCCOPY);
  ExpectPicture(canvas, "device bitmap");
  SelectObject(memory, previous);
  DeleteDC(memory);
  DeleteObject(bitmap);
  ReleaseDC(nullptr, screen);
}

}  // namespace
}  // namespace test
