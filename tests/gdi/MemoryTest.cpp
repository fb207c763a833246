// Want of memory at any place: what is asked for is not made, but nothing is lost, locked or left half done.
#include <atomic>
#include <cstdlib>
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

class MemoryTest : public GdiTest {
 protected:
  // Runs with room for one allocation more each time, until that is enough. `clear` puts back what was left.
  template <class Run, class Clear>
  void Starve(Run run, Clear clear) {
    for (long room = 0;; ++room) {
      bool enough = false;
      gAllocationsLeft = room;
      try {
        run();
        enough = gAllocationsLeft > 0;
      } catch (const std::bad_alloc&) {
      }
      gAllocationsLeft = -1;
      clear();
      ASSERT_EQ(GetGuiResources(nullptr, GR_GDIOBJECTS), mLiving) << "with room for " << room;
      if (enough) return;
      ASSERT_LT(room, 10000);
    }
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
    SelectObject(on.context, font);
    TextOutA(on.context, 3, 3, "A\xBC", 2);
  };
  const auto clear = [&font](const Canvas& on) {
    SelectObject(on.context, GetStockObject(SYSTEM_FONT));
    if (font) DeleteObject(std::exchange(font, nullptr));
  };
  draw(mWhole);
  clear(mWhole);
  Starve([&] { draw(mCanvas); }, [&] { clear(mCanvas); });
  EXPECT_EQ(mCanvas.Colors(), mWhole.Colors());
}

TEST_F(MemoryTest, ObjectsAreDeletedWithoutMemory) {
  std::vector<HGDIOBJ> objects;
  objects.reserve(300);
  Starve(
      [&] {
        while (objects.size() < 300)
          if (const HGDIOBJ object = CreateSolidBrush(0)) objects.push_back(object);
      },
      [&] {
        gAllocationsLeft = 0;
        for (const HGDIOBJ object : objects) DeleteObject(object);
        gAllocationsLeft = -1;
        objects.clear();
      });
}

}  // namespace
}  // namespace test
