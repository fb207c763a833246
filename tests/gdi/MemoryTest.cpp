// Want of memory at any place: what is asked for is not made, but nothing is lost, locked or left half done.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>

#include "gdi/Canvas.h"

namespace test {
namespace {
std::atomic<long> gAllocationsLeft{-1};  // negative: as many as there are
}  // namespace
}  // namespace test

void* operator new(size_t size) {
  long left = test::gAllocationsLeft;
  while (left > 0 && !test::gAllocationsLeft.compare_exchange_weak(left, left - 1)) {
  }
  void* const memory = left != 0 ? std::malloc(size) : nullptr;
  if (memory) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

namespace test {
namespace {

// With room for one allocation more each time, until that is enough, runs what returns whether it succeeded.
// `check` looks at what is left, and clears it away.
template <class Run, class Check>
void Starve(Run run, Check check) {
  for (long room = 0;; ++room) {
    ASSERT_LT(room, 10000);
    gAllocationsLeft = room;
    const bool isDone = run();
    const DWORD error = GetLastError();
    const bool isEnough = gAllocationsLeft > 0;
    gAllocationsLeft = -1;
    ASSERT_TRUE(isDone || (!isEnough && error == ERROR_NOT_ENOUGH_MEMORY)) << error << ", room for " << room;
    check(room);
    if (isEnough) return;
  }
}

class MemoryTest : public GdiTest {
 protected:
  template <class Run, class Clear>
  void Starve(Run run, Clear clear) {
    test::Starve(run, [&](long room) {
      clear();
      ASSERT_EQ(GetGuiResources(nullptr, GR_GDIOBJECTS), mLiving) << "with room for " << room;
    });
  }

  const Canvas mCanvas{60, 30}, mWhole{60, 30};
  const DWORD mLiving = GetGuiResources(nullptr, GR_GDIOBJECTS);
};

// The face lacks the second character, which another one has to give.
TEST_F(MemoryTest, FontsAndTheirCharacters) {
  LOGFONTA description{};
  description.lfHeight = -16;
  std::strcpy(description.lfFaceName, "DejaVu Math TeX Gyre");
  HFONT font = nullptr;
  const auto draw = [&font, &description](const Canvas& on) {
    font = CreateFontIndirectA(&description);
    return font && SelectObject(on.context, font) && TextOutA(on.context, 3, 3, "A\xBC", 2);
  };
  const auto clear = [&font](const Canvas& on) {
    SelectObject(on.context, GetStockObject(SYSTEM_FONT));
    if (font) DeleteObject(std::exchange(font, nullptr));
  };
  draw(mWhole);
  clear(mWhole);
  Starve([&] { return draw(mCanvas); }, [&] { clear(mCanvas); });
  EXPECT_EQ(mCanvas.Colors(), mWhole.Colors());
}

TEST_F(MemoryTest, ObjectsAreDeletedWithoutMemory) {
  std::vector<HGDIOBJ> objects;
  objects.reserve(300);
  Starve(
      [&] {
        while (objects.size() < 300) {
          const HGDIOBJ object = CreateSolidBrush(0);
          if (!object) return false;
          objects.push_back(object);
        }
        return true;
      },
      [&] {
        gAllocationsLeft = 0;
        for (const HGDIOBJ object : objects) DeleteObject(object);
        gAllocationsLeft = -1;
        objects.clear();
      });
}

TEST_F(MemoryTest, EveryCallFailsWithoutIt) {
  const HDC context = mCanvas.context;
  const MonoCanvas mono(60, 30, [](int x, int y) { return (x + y) % 2 == 0; });
  const Canvas indexed(60, 30, 8);
  DibInfo info(60, 30, 8);
  std::vector<BYTE> bits(60 * 30);
  const std::string text(100, 'w');
  const LOGPALETTE palette{0x300, 1, {{1, 2, 3, 0}}};
  RECT rect{0, 0, 60, 30};
  SIZE size{};
  char name[100];
  const auto deleted = [](HGDIOBJ object) { return object && DeleteObject(object); };
  const std::function<bool()> calls[] = {
      [&] { return deleted(CreateBitmap(6, 3, 1, 8, nullptr)); },
      [&] { return deleted(CreateCompatibleBitmap(indexed.context, 6, 3)); },
      [&] { return deleted(CreateDIBSection(context, info.Get(), DIB_RGB_COLORS, nullptr, nullptr, 0)); },
      [&] {
        return deleted(
            CreateDIBitmap(context, &info.header, CBM_INIT, bits.data(), info.Get(), DIB_RGB_COLORS));
      },
      [&] { return deleted(CreatePalette(&palette)); },
      [&] { return deleted(CreateSolidBrush(0)); },
      [&] { return deleted(CreateCompatibleDC(context)); },
      [&] {
        const HDC screen = GetDC(nullptr);
        return screen && ReleaseDC(nullptr, screen);
      },
      [&] {
        return SetDIBits(context, mCanvas.bitmap, 0, 30, bits.data(), info.Get(), DIB_RGB_COLORS) == 30;
      },
      [&] {
        return GetDIBits(context, mCanvas.bitmap, 0, 30, bits.data(), info.Get(), DIB_RGB_COLORS) == 30;
      },
      [&] {
        return StretchDIBits(context, 0, 0, 9, 9, 0, 0, 60, 30, bits.data(), info.Get(), DIB_RGB_COLORS,
                             SRCCOPY) == 30;
      },
      [&] { return BitBlt(context, 0, 0, 60, 30, mono.context, 0, 0, SRCAND) != FALSE; },
      [&] { return StretchBlt(context, 0, 0, 9, 9, indexed.context, 0, 0, 60, 30, SRCCOPY) != FALSE; },
      [&] { return PatBlt(context, 0, 0, 60, 30, PATINVERT) != FALSE; },
      [&] { return FillRect(context, &rect, static_cast<HBRUSH>(GetStockObject(GRAY_BRUSH))) != 0; },
      [&] { return GetTextFaceA(context, sizeof name, name) != 0; },
      [&] { return GetTextExtentPoint32A(context, text.c_str(), 100, &size) != FALSE; },
      [&] { return ExtTextOutA(context, 0, 0, ETO_OPAQUE, &rect, text.c_str(), 100, nullptr) != FALSE; },
      [&] { return DrawTextA(context, text.c_str(), 100, &rect, DT_WORDBREAK) != 0; },
  };
  const DWORD living = GetGuiResources(nullptr, GR_GDIOBJECTS);
  for (const auto& call : calls) {
    ASSERT_TRUE(call());
    test::Starve(call, [&](long room) {
      ASSERT_EQ(GetGuiResources(nullptr, GR_GDIOBJECTS), living)
          << "number " << &call - calls << " with room for " << room;
    });
    EXPECT_TRUE(call()) << "number " << &call - calls;
  }
}

// The screen and the stock objects, whole or not yet.
TEST(FirstUse, WithoutMemoryIsMadeUpForByTheNext) {
  const auto begin = [] {
    const HDC screen = GetDC(nullptr);
    return screen && ReleaseDC(nullptr, screen) && GetDeviceCaps(screen, HORZRES) == 0;
  };
  const auto isUsable = [] {
    if (GetGuiResources(nullptr, GR_GDIOBJECTS) != 0) return false;
    const Canvas canvas(20, 20);
    return TextOutA(canvas.context, 0, 0, "Ww", 2) && SetPixel(GetDC(nullptr), 3, 3, 0x123456) == 0x123456;
  };
  for (long room = 0, enough = 0; !enough; ++room) {
    const pid_t child = fork();
    if (child == 0) {
      gAllocationsLeft = room;
      const bool isDone = begin();
      const DWORD error = GetLastError();
      const bool isEnough = gAllocationsLeft > 0;
      gAllocationsLeft = -1;
      _exit(!isDone && (isEnough || error != ERROR_NOT_ENOUGH_MEMORY) ? 2 : !isUsable() ? 3 : isEnough);
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << status << ", room for " << room;
    enough = WEXITSTATUS(status);
  }
}

}  // namespace
}  // namespace test
