// What the tests of fonts and bitmaps share: trace lines and assertions that are caught, and resource data
// that are written byte by byte.
#pragma once

#include <ormutil/Bitmap.h>
#include <ormutil/Font.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gdi/Canvas.h"

namespace test {

// Fails when an assertion was raised that the test did not take.
class DrawingTest : public GdiTest {
 protected:
  void SetUp() override {
    // Before the facility is built: level, file and line of every trace line. The message comes last.
    SetTraceText(" option_format", "%3!c! %9(%10!u!)|");
    orm::TraceSetSink(&Add, this, 'i');
    GdiTest::SetUp();
  }
  void TearDown() override {
    GdiTest::TearDown();
    EXPECT_THAT(TakeAssertions(), testing::IsEmpty());
    orm::TraceSetSink(nullptr, nullptr, 0);
  }

  // "file(line):condition" of the assertions since the last call.
  std::vector<std::string> TakeAssertions() { return std::exchange(mAssertions, {}); }
  // The trace lines since the last call; see OpenArea.
  std::vector<std::string> TakeLines() {
    mPlaces.clear();
    return std::exchange(mLines, {});
  }
  // Where they stand, "level file(line)"; to be taken before the lines.
  std::vector<std::string> TakePlaces() { return std::exchange(mPlaces, {}); }

  // Lets lines of an area up to a level through.
  static void OpenArea(const char* area, const char* level) { SetTraceText(area, level); }

  // Gives the screen that many dots per inch. False in a process that has asked for its screen before.
  static bool SetScreenResolution(DWORD dots) {
    HKEY key = nullptr;
    RegCreateKeyExA(HKEY_LOCAL_MACHINE,
                    "SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\Software\\Fonts", 0, nullptr, 0,
                    KEY_SET_VALUE, nullptr, &key, nullptr);
    RegSetValueExA(key, "LogPixels", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dots), sizeof dots);
    RegCloseKey(key);
    const HDC screen = GetDC(nullptr);
    const bool isSet = GetDeviceCaps(screen, LOGPIXELSX) == static_cast<int>(dots);
    ReleaseDC(nullptr, screen);
    return isSet;
  }

 private:
  // The module is named after the test program.
  static void SetTraceText(const char* valueName, const char* text) {
    HKEY key = nullptr;
    const std::string name = "SOFTWARE\\tdbg_trace\\1.0\\test_drawing";
    ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, name.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key,
                              nullptr),
              static_cast<LONG>(ERROR_SUCCESS));
    RegSetValueExA(key, valueName, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>(std::strlen(text) + 1));
    RegCloseKey(key);
  }

  static void Add(void* context, const char* line) {
    const std::string_view place = std::string_view(line).substr(0, std::strcspn(line, "|"));
    std::string text = line + place.size() + 1;
    text.erase(text.find_last_not_of("\r\n") + 1);
    auto* const self = static_cast<DrawingTest*>(context);
    const size_t at = text.find("assert fail:");
    if (at == std::string::npos) {
      self->mLines.push_back(text);
      self->mPlaces.emplace_back(place);
    } else {
      self->mAssertions.push_back(text.erase(at, std::strlen("assert fail:")));
    }
  }

  std::vector<std::string> mAssertions;
  std::vector<std::string> mLines;
  std::vector<std::string> mPlaces;
};

// Resource data: a 40-byte header, a colour table, rows.
struct Resource {
  std::vector<BYTE> bytes;

  Resource& Put16(unsigned value) {
    bytes.push_back(static_cast<BYTE>(value));
    bytes.push_back(static_cast<BYTE>(value >> 8));
    return *this;
  }
  Resource& Put32(DWORD value) { return Put16(value & 0xFFFF).Put16(value >> 16); }
  Resource& PutHeader(LONG width, LONG height, unsigned bits, DWORD compression = BI_RGB, DWORD sizeImage = 0,
                      DWORD headerSize = 40) {
    Put32(headerSize).Put32(static_cast<DWORD>(width)).Put32(static_cast<DWORD>(height));
    Put16(1).Put16(bits).Put32(compression).Put32(sizeImage);
    Put32(0).Put32(0).Put32(0).Put32(0);
    return *this;
  }

  // A picture of 24 bits: color(x, y) gives 0x00RRGGBB, y counting from the top.
  static Resource Picture(int width, int height, const std::function<std::uint32_t(int, int)>& color) {
    Resource resource;
    resource.PutHeader(width, height, 24);
    for (int y = height - 1; y >= 0; --y) {
      for (int x = 0; x < width; ++x)
        for (int c = 0; c < 3; ++c) resource.bytes.push_back(static_cast<BYTE>(color(x, y) >> 8 * c));
      while ((resource.bytes.size() - 40) % 4) resource.bytes.push_back(0xCC);
    }
    return resource;
  }
};

inline bool Load(orm::Bitmap& bitmap, const Resource& resource,
                 const orm::StretchInfo& scale = orm::StretchInfo::GetNotChanging(), bool system = false) {
  return bitmap.LoadData(resource.bytes.data(), resource.bytes.size(), scale, system);
}

// The pixels of a loaded bitmap, 0x00RRGGBB, top row first.
struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint32_t> colors;

  explicit Pixels(const orm::Bitmap& bitmap) : Pixels(bitmap.GetHandle()) {}
  explicit Pixels(HBITMAP handle) {
    DIBSECTION section{};
    if (GetObjectA(handle, sizeof section, &section) != sizeof section) return;
    EXPECT_EQ(section.dsBm.bmBitsPixel, 24);
    EXPECT_GT(section.dsBmih.biHeight, 0) << "bottom row first";
    width = section.dsBm.bmWidth;
    height = section.dsBm.bmHeight;
    for (int y = 0; y < height; ++y) {
      const BYTE* pixel =
          static_cast<const BYTE*>(section.dsBm.bmBits) + (height - 1 - y) * section.dsBm.bmWidthBytes;
      for (int x = 0; x < width; ++x, pixel += 3)
        colors.push_back(pixel[0] | static_cast<std::uint32_t>(pixel[1]) << 8 |
                         static_cast<std::uint32_t>(pixel[2]) << 16);
    }
  }
  std::uint32_t At(int x, int y) const { return colors[static_cast<size_t>(y * width + x)]; }
};

}  // namespace test
