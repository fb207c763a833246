// orm draw sheet: descriptors, formatted text, scaling, the three ways to draw a bitmap, and depths.
#include "DrawSheet.h"

#include <ormutil/Bitmap.h>
#include <ormutil/Font.h>

#include <cmath>
#include <functional>
#include <vector>

#include "Picture.h"

namespace orm::draw {
namespace {

constexpr int sheetWidth = 1000;
constexpr int sheetHeight = 1010;
constexpr int left = 20;
constexpr COLORREF rule = RGB(0xB0, 0xB8, 0xC8);

// Resource data of a picture with 24 bits; color(x, y) gives 0x00RRGGBB.
std::vector<BYTE> MakeResource(int width, int height, const std::function<DWORD(int, int)>& color) {
  const std::size_t stride = (static_cast<std::size_t>(width) * 24 + 31) / 32 * 4;
  std::vector<BYTE> bytes(40 + stride * static_cast<std::size_t>(height));
  const auto put = [&bytes](std::size_t at, DWORD value) {
    for (int i = 0; i < 4; ++i) bytes[at++] = static_cast<BYTE>(value >> 8 * i);
  };
  put(0, 40);
  put(4, static_cast<DWORD>(width));
  put(8, static_cast<DWORD>(height));
  put(12, 1 | 24 << 16);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      BYTE* pixel = bytes.data() + 40 + stride * static_cast<std::size_t>(height - 1 - y) +
                    static_cast<std::size_t>(x) * 3;
      for (int c = 0; c < 3; ++c) pixel[c] = static_cast<BYTE>(color(x, y) >> 8 * c);
    }
  return bytes;
}

// A shaded ball on magenta.
DWORD Ball(int x, int y) {
  constexpr double center = 23.5, radius = 22;
  const double dx = x - center, dy = y - center;
  if (dx * dx + dy * dy > radius * radius) return 0xFF00FF;
  const double light = std::max(0.0, 1.0 - std::hypot(x - 16, y - 14) / 38);
  const auto channel = [light](int dark, int bright) {
    return static_cast<DWORD>(dark + (bright - dark) * light * light);
  };
  return channel(20, 255) << 16 | channel(60, 240) << 8 | channel(120, 255);
}

// A frame with round corners of 10 pixels and a patterned middle.
DWORD Frame(int x, int y) {
  const int edge = std::min(std::min(x, y), std::min(31 - x, 31 - y));
  const double corner =
      std::hypot(std::max(0, std::max(9 - x, x - 22)), std::max(0, std::max(9 - y, y - 22)));
  if (corner > 9.5) return 0xF4F6FA;
  if (corner > 7.5 || edge < 2) return 0x305080;
  if (edge < 5) return 0x90B0E0;
  return (x + y) % 4 == 0 ? 0xD8E4F8 : 0xEEF4FF;
}

class Sheet {
 public:
  Sheet() : mPicture(sheetWidth, sheetHeight) {
    mPicture.FillAll(RGB(0xF4, 0xF6, 0xFA));
    mLabel.Create("DejaVu Sans;7;605040");
    mTitle.Create("DejaVu Sans;11;382820;700");
  }

  void Draw() {
    Descriptors(15);
    Formatted(225);
    Scaling(440);
    Drawing(630);
    Depths(850);
  }
  void Save(const std::string& output) const { mPicture.Save(output); }

 private:
  HDC Context() const { return mPicture.GetContext(); }

  void Title(int y, const char* text) {
    mTitle.Draw(Context(), left, y, text);
    mPicture.Fill({left, y + 20, sheetWidth - left, y + 21}, rule);
  }
  void Label(int x, int y, const char* text) { mLabel.Draw(Context(), x, y, text); }

  void Descriptors(int y) {
    Title(y, "Font descriptors");
    constexpr const char* descriptors[] = {
        "DejaVu Sans;18",
        "DejaVu Sans;18;0000c0;700",
        "DejaVu Serif;18;206020;400;1",
        "DejaVu Sans Mono;16;802000;400;2",
        "DejaVu Sans;18;404040;400;4",
        "DejaVu Sans;18;ffffff;700;0;1:2,2,a08060",
        "DejaVu Sans;18;ffffff;700;0;1:-1,0,804000;1,0,804000;0,-1,804000;0,1,804000",
        "DejaVu Sans;18;30c0ff;700;3;1:3,3,d8d0c8;2,2,b0a898;1,1,404040:-1,-1",
    };
    for (int i = 0; i < 8; ++i) {
      const int x = left + i % 2 * 490, top = y + 30 + i / 2 * 43;
      Font font;
      font.Create(descriptors[i]);
      font.Draw(Context(), x, top - 3, "Sphinx of quartz");
      Label(x, top + 26, descriptors[i]);
    }
  }

  void Formatted(int y) {
    Title(y, "Formatted text");
    const struct {
      const char* label;
      const char* text;
      UINT format;
    } cells[] = {
        {"left, top", "Left", DT_SINGLELINE},
        {"centre", "Centre", DT_SINGLELINE | DT_CENTER | DT_VCENTER},
        {"right, bottom", "Right", DT_SINGLELINE | DT_RIGHT | DT_BOTTOM},
        {"broken at words", "How vexingly quick daft zebras jump", DT_WORDBREAK},
        {"broken, centred", "How vexingly quick daft zebras jump", DT_WORDBREAK | DT_CENTER},
        {"tabs", "a\tone\nbb\ttwo\nccc\tthree", DT_EXPANDTABS},
        {"prefixes", "&Open\nSave && &close", 0},
        {"ellipsis at the end", "A line that is longer than its box",
         DT_SINGLELINE | DT_END_ELLIPSIS | DT_VCENTER},
        {"ellipsis in a path", "c:\\windows\\system32\\spool\\a.dll",
         DT_SINGLELINE | DT_PATH_ELLIPSIS | DT_VCENTER},
        {"clipped", "Text beyond the\nrectangle's edge\nis cut\noff", 0},
    };
    Font font;
    font.Create("DejaVu Sans;10;382820");
    for (int i = 0; i < 10; ++i) {
      const int x = left + i % 5 * 194, top = y + 30 + i / 5 * 88;
      const RECT box{x, top, x + 180, top + 60};
      mPicture.Fill({box.left - 1, box.top - 1, box.right + 1, box.bottom + 1}, rule);
      mPicture.Fill(box, RGB(255, 255, 255));
      font.DrawFormatted(Context(), box, cells[i].text, cells[i].format);
      Label(x, top + 63, cells[i].label);
    }
  }

  void Scaling(int y) {
    Title(y, "Scaling when a bitmap is loaded: the own resampler above, the system's stretching below");
    const struct {
      const char* label;
      StretchInfo scale;
      int x;
    } cells[] = {{"1", {1, 1, 1, 1}, 0},      {"1/2", {1, 2, 1, 2}, 80},
                 {"3/4", {3, 4, 3, 4}, 140},  {"120/96", {120, 96, 120, 96}, 210},
                 {"2, 1", {2, 1, 1, 1}, 300}, {"1, 3/2", {1, 1, 3, 2}, 430},
                 {"5/3", {5, 3, 5, 3}, 520}};
    const std::vector<BYTE> ball = MakeResource(48, 48, Ball);
    const std::vector<BYTE> text = MakeTextResource();
    for (int row = 0; row < 2; ++row) {
      const int top = y + 30 + row * 76;
      for (const auto& cell : cells) {
        Bitmap bitmap;
        bitmap.LoadData(ball.data(), ball.size(), cell.scale, row == 1);
        bitmap.Draw(Context(), {left + cell.x, top}, {0, 0}, {0, 0});
      }
      int x = left + 640;
      for (const StretchInfo& scale :
           {StretchInfo{1, 1, 1, 1}, StretchInfo{3, 4, 3, 4}, StretchInfo{5, 4, 5, 4}}) {
        Bitmap bitmap;
        bitmap.LoadData(text.data(), text.size(), scale, row == 1);
        bitmap.Draw(Context(), {x, top}, {0, 0}, {0, 0});
        x += 100 * scale.mMulX / scale.mDivX + 12;
      }
    }
  }

  // Hard-edged text as a picture: what stretching without weighing does to thin lines.
  static std::vector<BYTE> MakeTextResource() {
    const Picture picture(96, 40);
    picture.FillAll(RGB(255, 255, 255));
    Font font;
    font.Create("DejaVu Sans;9;000000");
    font.DrawFormatted(picture.GetContext(), RECT{4, 2, 96, 40}, "Fine print,\nthin strokes", 0);
    return MakeResource(96, 40, [&picture](int x, int y) {
      const COLORREF color = GetPixel(picture.GetContext(), x, y);
      return static_cast<DWORD>(GetRValue(color)) << 16 | static_cast<DWORD>(GetGValue(color)) << 8 |
             GetBValue(color);
    });
  }

  void Drawing(int y) {
    Title(y, "Draw, DrawTransparent, DrawRepeat");
    const std::vector<BYTE> ball = MakeResource(48, 48, Ball);
    const std::vector<BYTE> frame = MakeResource(32, 32, Frame);
    Bitmap ballBitmap, frameBitmap;
    ballBitmap.LoadData(ball.data(), ball.size(), StretchInfo::GetNotChanging(), false);
    frameBitmap.LoadData(frame.data(), frame.size(), StretchInfo::GetNotChanging(), false);
    const int top = y + 32;
    mPicture.FillCheckered({left, top, left + 330, top + 64});
    ballBitmap.Draw(Context(), {left + 8, top + 8}, {0, 0}, {0, 0});
    ballBitmap.Draw(Context(), {left + 72, top + 8}, {24, 48}, {24, 0});
    ballBitmap.DrawTransparent(Context(), {left + 120, top + 8}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
    ballBitmap.DrawTransparent(Context(), {left + 150, top + 8}, Bitmap::TRANS_COLOR, RGB(255, 0, 255),
                               {0, 0}, {0, 0});
    ballBitmap.DrawTransparent(Context(), {left + 216, top + 8}, Bitmap::TRANS_COLOR, RGB(255, 0, 255),
                               {24, 48}, {0, 0});
    Label(left, top + 68, "whole and in part; transparent by its first pixel, by a colour, in part");
    frameBitmap.Draw(Context(), {left, top + 96}, {0, 0}, {0, 0});
    Label(left, top + 132, "the frame");

    Bitmap::RepeatInfo bands;
    bands.mStartX = bands.mStartY = 12;
    bands.mLengthX = bands.mLengthY = 8;
    frameBitmap.DrawRepeat(Context(), {left + 60, top + 90}, {270, 70}, bands, true);
    Label(left + 60, top + 164, "to 270 x 70, its columns and rows 12 to 19 repeated");
    frameBitmap.DrawRepeat(Context(), {left + 360, top}, {150, 160}, bands, true);
    frameBitmap.DrawRepeat(Context(), {left + 530, top}, {150, 32}, bands, true);
    frameBitmap.DrawRepeat(Context(), {left + 530, top + 44}, {32, 116}, bands, true);
    Bitmap::RepeatInfo aligned = bands;
    aligned.mPeriodX = 16;
    aligned.mPhaseX = 4;
    frameBitmap.DrawRepeat(Context(), {left + 580, top + 44}, {100, 50}, aligned, true);
    Label(left + 580, top + 98, "period 16, phase 4");
    frameBitmap.DrawRepeat(Context(), {left + 580, top + 116}, {100, 44}, Bitmap::RepeatInfo(), true);
    Label(left + 580, top + 164, "the last pixel only");
    frameBitmap.DrawRepeat(Context(), {left + 710, top}, {250, 160}, bands, true);
    Font inside;
    inside.Create("DejaVu Sans;20;ffffff;700;0;1:2,2,a06830;1,1,805020");
    inside.DrawFormatted(Context(), RECT{left + 710, top, left + 960, top + 160}, "a panel",
                         DT_SINGLELINE | DT_CENTER | DT_VCENTER);
  }

  void Depths(int y) {
    Title(y, "The same picture on surfaces of 1, 8, 16, 24 and 32 bits per pixel");
    const std::vector<BYTE> frame = MakeResource(32, 32, Frame);
    const std::vector<BYTE> ball = MakeResource(48, 48, Ball);
    Bitmap frameBitmap, ballBitmap;
    frameBitmap.LoadData(frame.data(), frame.size(), StretchInfo::GetNotChanging(), false);
    ballBitmap.LoadData(ball.data(), ball.size(), StretchInfo::GetNotChanging(), false);
    Bitmap::RepeatInfo bands;
    bands.mStartX = bands.mStartY = 12;
    bands.mLengthX = bands.mLengthY = 8;
    Font font;
    font.Create("DejaVu Sans;16;2040c0;700;0;1:1,1,ffffff");
    int x = left;
    for (const int bits : {1, 8, 16, 24, 32}) {
      const Picture picture(180, 100, bits);
      picture.FillAll(RGB(0xA0, 0xC0, 0xA0));
      frameBitmap.DrawRepeat(picture.GetContext(), {6, 6}, {168, 88}, bands, true);
      ballBitmap.DrawTransparent(picture.GetContext(), {20, 26}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
      const String text = String::FormatInserts("%1!d! bits", bits);
      font.DrawFormatted(picture.GetContext(), RECT{70, 6, 174, 94}, text, DT_SINGLELINE | DT_VCENTER);
      BitBlt(Context(), x, y + 34, 180, 100, picture.GetContext(), 0, 0, SRCCOPY);
      x += 194;
    }
  }

  Picture mPicture;
  Font mLabel;
  Font mTitle;
};

}  // namespace

void DrawSheet(const std::string& output) {
  Sheet sheet;
  sheet.Draw();
  sheet.Save(output);
}

}  // namespace orm::draw
