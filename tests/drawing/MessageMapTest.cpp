// The message handlers, on windows of the platform.
#include <optional>

#include "drawing/Drawing.h"

namespace test {
namespace {

using orm::Bitmap;

constexpr int width = 40, height = 30;

std::uint32_t Color(int x, int y) {
  return static_cast<std::uint32_t>(x * 6 << 16 | y * 8);
}

class Background : public orm::BitmapBackground {
 public:
  HPALETTE GetPalette() override { return palette; }
  const Bitmap* GetBitmap() override { return bitmap; }
  void GetPlacement(POINT& destination, SIZE& size, POINT& source) override {
    destination = {3, 2};
    size = {10, 8};
    source = {1, 1};
  }

  HPALETTE palette = nullptr;
  const Bitmap* bitmap = nullptr;
};

class MessageMapTest : public DrawingTest {
 protected:
  void SetUp() override {
    DrawingTest::SetUp();
    WNDCLASSA windowClass{};
    windowClass.lpszClassName = "drawing test";
    windowClass.lpfnWndProc = &Procedure;
    RegisterClassA(&windowClass);
    mWindow =
        CreateWindowExA(0, "drawing test", "", 0, 100, 50, width, height, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(mWindow, nullptr);
    ValidateRect(mWindow, nullptr);
    mMap = &mBackground;
  }
  void TearDown() override {
    mMap = nullptr;
    DestroyWindow(mWindow);
    UnregisterClassA("drawing test", nullptr);
    DrawingTest::TearDown();
  }

  int Process(UINT message, WPARAM first) {
    mResult = 77;
    return mBackground.ProcessWindowMessage(mWindow, message, first, 0, mResult, 0);
  }
  bool IsInvalid() {
    RECT rect;
    return GetUpdateRect(mWindow, &rect, FALSE) && rect.right - rect.left == width &&
           rect.bottom - rect.top == height;
  }

  static LRESULT Procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
    LONG result = 0;
    if (mMap && mMap->ProcessWindowMessage(window, message, first, second, result, 0)) return result;
    return DefWindowProcA(window, message, first, second);
  }

  static Background* mMap;
  Background mBackground;
  HWND mWindow = nullptr;
  LONG mResult = 0;
};

Background* MessageMapTest::mMap = nullptr;

TEST_F(MessageMapTest, PaletteMessages) {
  EXPECT_EQ(Process(WM_QUERYNEWPALETTE, 0), 0) << "no palette";
  EXPECT_EQ(mResult, 77);
  LOGPALETTE entries{0x300, 1, {{1, 2, 3, 0}}};
  mBackground.palette = CreatePalette(&entries);
  EXPECT_FALSE(IsInvalid());
  EXPECT_EQ(Process(WM_QUERYNEWPALETTE, 0), 1);
  EXPECT_EQ(mResult, 1);
  EXPECT_TRUE(IsInvalid());
  ValidateRect(mWindow, nullptr);
  EXPECT_EQ(Process(WM_PALETTECHANGED, reinterpret_cast<WPARAM>(mWindow)), 0) << "its own change";
  EXPECT_EQ(mResult, 0);
  EXPECT_FALSE(IsInvalid());
  EXPECT_EQ(Process(WM_PALETTECHANGED, 0), 1);
  EXPECT_EQ(mResult, 1);
  EXPECT_TRUE(IsInvalid());
  EXPECT_EQ(Process(WM_SIZE, 0), 0);
  EXPECT_EQ(mResult, 77);
  LONG result = 77;
  const HWND dead = reinterpret_cast<HWND>(std::uintptr_t{1});
  EXPECT_EQ(mBackground.ProcessWindowMessage(dead, WM_QUERYNEWPALETTE, 0, 0, result, 0), 1);
  EXPECT_EQ(result, 1);
  EXPECT_THAT(TakeAssertions(),
              testing::ElementsAre("src/shared/Bitmap(822):dc != 0",
                                   "src/shared/Bitmap(826):dc.RealizePalette() != (0xFFFFFFFFL)"));
  EXPECT_TRUE(DeleteObject(mBackground.palette)) << "it is not selected any more";
}

TEST_F(MessageMapTest, ErasingPaintsTheBitmap) {
  const Canvas canvas(30, 20);
  EXPECT_EQ(Process(WM_ERASEBKGND, reinterpret_cast<WPARAM>(canvas.context)), 0);
  EXPECT_EQ(mResult, 77);
  Bitmap bitmap;
  Load(bitmap, Resource::Picture(20, 20, Color));
  mBackground.bitmap = &bitmap;
  EXPECT_EQ(Process(WM_ERASEBKGND, reinterpret_cast<WPARAM>(canvas.context)), 1);
  EXPECT_EQ(mResult, 1);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 30; ++x)
      ASSERT_EQ(canvas.At(x, y), x >= 3 && x < 13 && y >= 2 && y < 10 ? Color(x - 2, y - 1) : 0);
}

// The whole road: a window that has to be painted erases itself through the handler, onto the screen.
TEST_F(MessageMapTest, PaintingAWindow) {
  Bitmap bitmap;
  Load(bitmap, Resource::Picture(20, 20, Color));
  mBackground.bitmap = &bitmap;
  InvalidateRect(mWindow, nullptr, TRUE);
  PAINTSTRUCT paint;
  const HDC context = BeginPaint(mWindow, &paint);
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(paint.rcPaint.right, width);
  EXPECT_FALSE(paint.fErase) << "the handler did";
  EXPECT_FALSE(IsInvalid());
  EXPECT_EQ(GetPixel(context, 3, 2), RGB(6, 0, 8));
  PatBlt(context, -50, -50, 500, 500, WHITENESS);
  EXPECT_TRUE(EndPaint(mWindow, &paint));
  const HDC screen = GetDC(nullptr);
  EXPECT_EQ(GetPixel(screen, 100, 50), 0xFFFFFFu) << "where the window stands";
  EXPECT_EQ(GetPixel(screen, 99, 50), 0u) << "and not beyond it";
  EXPECT_EQ(GetPixel(screen, 100 + width, 50), 0u);
  ReleaseDC(nullptr, screen);
  EXPECT_EQ(GetDC(reinterpret_cast<HWND>(std::uintptr_t{1})), nullptr);
}

}  // namespace
}  // namespace test
