// Several threads draw at once: on surfaces of their own, and on the screen.
#include <atomic>
#include <thread>

#include "gdi/Canvas.h"
#include "support/Child.h"
#include "support/Sanitizers.h"

namespace test {
namespace {

using ThreadTest = GdiTest;

TEST_F(ThreadTest, ContextsDrawAtOnce) {
  const HBITMAP shared = CreateBitmap(8, 8, 1, 32, nullptr);
  LOGFONTA description{};
  description.lfHeight = -12;
  const HFONT font = CreateFontIndirectA(&description);
  std::vector<std::thread> threads;
  for (int n = 0; n < 4; ++n)
    threads.emplace_back([font, n] {
      for (int round = 0; round < 50; ++round) {
        const HDC screen = GetDC(nullptr);
        {
          const Canvas canvas(20, 20);
          const HGDIOBJ previous = SelectObject(canvas.context, font);
          const char text[] = {static_cast<char>('a' + round % 26), static_cast<char>('A' + n)};
          TextOutA(canvas.context, 1, 1, text, 2);
          BitBlt(screen, n * 7, 3, 20, 20, canvas.context, 0, 0, SRCCOPY);
          BitBlt(canvas.context, 0, 0, 20, 20, screen, (n + 1) * 7, 3, SRCPAINT);
          SelectObject(canvas.context, previous);
        }
        ReleaseDC(nullptr, screen);
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(DeleteObject(shared));
  EXPECT_TRUE(DeleteObject(font));
}

// Whatever other threads are making or drawing at a fork, the child can draw too.
TEST_F(ThreadTest, AForkedChildDraws) {
  std::atomic<bool> ends{false};
  const auto draw = [](HFONT font) {
    const Canvas canvas(20, 20, 8), other(20, 20);
    const HGDIOBJ previous = SelectObject(canvas.context, font);
    TextOutA(canvas.context, 1, 1, "ag\xE9", 3);
    SelectObject(canvas.context, previous);
    const HDC screen = GetDC(nullptr);
    BitBlt(screen, 0, 0, 20, 20, canvas.context, 0, 0, SRCCOPY);
    BitBlt(other.context, 0, 0, 20, 20, screen, 0, 0, SRCINVERT);
    ReleaseDC(nullptr, screen);
  };
  LOGFONTA description{};
  description.lfHeight = -12;
  const HFONT shared = CreateFontIndirectA(&description);
  const auto drawAll = [&] {
    const HFONT font = CreateFontIndirectA(&description);  // without a character yet
    draw(font);
    draw(shared);
    DeleteObject(font);
    DeleteObject(CreateBitmap(200, 200, 1, 32, nullptr));  // of pixels that are kept
  };
  std::vector<std::thread> threads;
  for (int n = 0; n < 2; ++n)
    threads.emplace_back([&] {
      while (!ends) drawAll();
    });
  EXPECT_TRUE(ForkSome(100, drawAll));
  ends = true;
  for (std::thread& thread : threads) thread.join();
  DeleteObject(shared);
}

// Each time in a process that has drawn nothing yet.
TEST(FirstDrawing, IsDoneByAForkedChildToo) {
  if (IS_ADDRESS_SANITIZED) GTEST_SKIP() << "the sanitizer's locks are not held over a fork";
  EXPECT_TRUE(ForkSome(40, [] {
    std::atomic<bool> begins{false};
    std::thread other([&] {
      begins = true;
      GetDC(nullptr);
    });
    while (!begins) std::this_thread::yield();
    if (!ForkSome(1, [] {
          const Canvas canvas(9, 9);
          if (!TextOutA(canvas.context, 0, 0, "x", 1) || !GetDC(nullptr)) std::abort();
        }))
      std::abort();
    other.join();
  }));
}

}  // namespace
}  // namespace test
