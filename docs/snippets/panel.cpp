// A window that paints a bitmap as its background.
#include <ormutil/Bitmap.h>

#include <cassert>

using namespace orm;

class Panel : public BitmapBackground {
 public:
  HPALETTE GetPalette() override { return mBitmap.GetPalette(); }
  const Bitmap* GetBitmap() override { return &mBitmap; }
  void GetPlacement(POINT& to, SIZE& size, POINT& from) override {
    to = from = {0, 0};
    size = {0, 0};  // all of it
  }

  Bitmap mBitmap;
};

static Panel* panel;

static LRESULT Procedure(HWND window, UINT message, WPARAM first, LPARAM second) {
  LONG result = 0;
  if (panel && panel->ProcessWindowMessage(window, message, first, second, result, 0)) return result;
  return DefWindowProcA(window, message, first, second);
}

int main() {
  // A resource of two pixels, blue and green. Programs load theirs: Load(IDB_PANEL, instance, ...).
  struct {
    BITMAPINFOHEADER header{};
    DWORD pixels[2] = {0x0000FF, 0x00FF00};
  } picture;
  picture.header.biSize = sizeof picture.header;
  picture.header.biWidth = 2;
  picture.header.biHeight = picture.header.biPlanes = 1;
  picture.header.biBitCount = 32;
  Panel window;
  assert(window.mBitmap.LoadData(&picture, sizeof picture, StretchInfo::GetNotChanging(), false));
  panel = &window;

  WNDCLASSA panelClass{};
  panelClass.lpszClassName = "panel";
  panelClass.lpfnWndProc = &Procedure;
  RegisterClassA(&panelClass);
  const HWND handle = CreateWindowExA(0, "panel", "", 0, 10, 10, 64, 32, nullptr, nullptr, nullptr, nullptr);
  InvalidateRect(handle, nullptr, TRUE);
  PAINTSTRUCT paint;
  const HDC context = BeginPaint(handle, &paint);  // asks the window to erase its background
  assert(GetPixel(context, 1, 0) == RGB(0, 255, 0));
  EndPaint(handle, &paint);
  DestroyWindow(handle);
  panel = nullptr;
}
