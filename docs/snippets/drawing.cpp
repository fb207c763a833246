// Text with a shadow on a surface in memory.
#include <ormutil/Font.h>

#include <cassert>

using namespace orm;

int main() {
  const HDC screen = GetDC(nullptr);
  const HDC context = CreateCompatibleDC(screen);
  const HBITMAP surface = CreateCompatibleBitmap(screen, 200, 40);
  const HGDIOBJ before = SelectObject(context, surface);
  const RECT all{0, 0, 200, 40};
  FillRect(context, &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));

  Font font;
  assert(font.Create("DejaVu Sans;12;ff0000;700;0;1:1,1,c0c0c0"));  // blue and bold, a grey copy at 1,1
  const SIZE room = font.GetSize(context, "Ready");                 // the shadow's pixel included
  font.Draw(context, 8, 8, "Ready");

  bool blue = false;
  for (int y = 8; y < 8 + room.cy; ++y) {
    for (int x = 8; x < 8 + room.cx; ++x) blue |= GetPixel(context, x, y) == 0xFF0000;
  }
  assert(blue);
  SelectObject(context, before);
  DeleteObject(surface);
  DeleteDC(context);
  ReleaseDC(nullptr, screen);
}
