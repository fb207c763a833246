// Text in the font of a descriptor: at a point, in another colour, and broken into lines.
#include <ormutil/Font.h>

#include <cassert>

using namespace orm;

int main() {
  const HDC screen = GetDC(nullptr);
  Font font;
  assert(font.Create("DejaVu Sans;18;ffffff;700;0;1:2,2,a08060"));
  assert(!Font().Create(";18"));  // malformed: no face

  font.Draw(screen, 20, 20, "Ready");
  font.Draw(screen, 20, 60, "Failed", RGB(255, 0, 0));  // the layers keep their colours
  const RECT page{20, 100, 220, 220};
  font.DrawFormatted(screen, page, "Several words that take more than a line", DT_WORDBREAK | DT_CENTER);

  const SIZE room = font.GetSize(screen, "Ready");  // with the room of the layers
  assert(room.cx > 2 && room.cy > 18);
  ReleaseDC(nullptr, screen);
}
