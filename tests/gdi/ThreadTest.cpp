// Several threads draw at once: on surfaces of their own, and on the screen.
#include <thread>

#include "gdi/Canvas.h"

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

}  // namespace
}  // namespace test
