// Pictures: a section in a memory context.
#include "Picture.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace orm::draw {
namespace {

constexpr int mostPixels = 16384;  // of a side

// Drive z: is the root of the file system.
String PlatformPath(const std::string& path) {
  std::string absolute = "z:" + std::filesystem::absolute(path).string();
  std::replace(absolute.begin(), absolute.end(), '/', '\\');
  return FromUtf8(absolute);
}

}  // namespace

SIZE CheckSize(std::int64_t width, std::int64_t height) {
  const auto isPossible = [](std::int64_t side) { return side >= 1 && side <= mostPixels; };
  if (isPossible(width) && isPossible(height)) return {static_cast<LONG>(width), static_cast<LONG>(height)};
  throw std::invalid_argument("the picture would have " + std::to_string(width) + " x " +
                              std::to_string(height) + " pixels; 1 to " + std::to_string(mostPixels) +
                              " are possible");
}

String FromUtf8(const std::string& text) {
  std::vector<WCHAR> units(text.size() + 1);
  const int size = static_cast<int>(units.size());
  if (MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, units.data(), size) == 0) return String();
  std::vector<char> bytes(units.size() * 3);
  BOOL lost = FALSE;
  BOOL* const pLost = GetACP() == CP_UTF8 ? nullptr : &lost;  // which has all characters
  if (WideCharToMultiByte(CP_ACP, 0, units.data(), -1, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                          pLost) == 0)
    return String();
  if (lost)
    throw std::invalid_argument("'" + text + "' has characters that the code page of the machine lacks");
  return String(bytes.data());
}

Picture::Picture(int width, int height, int bitsPerPixel)
    : mWidth(width), mHeight(height), mContext(CreateCompatibleDC(nullptr)) {
  struct {
    BITMAPINFOHEADER header;
    RGBQUAD colors[256];
  } info{};
  info.header.biSize = sizeof info.header;
  info.header.biWidth = width;
  info.header.biHeight = -height;
  info.header.biPlanes = 1;
  info.header.biBitCount = static_cast<WORD>(bitsPerPixel);
  for (int i = 0; i < 256; ++i) {  // 8 bits: three of red and green, two of blue; 1 bit: black and white
    const auto channel = [i](int shift, int most) {
      return static_cast<BYTE>((i >> shift & most) * 255 / most);
    };
    info.colors[i] = {channel(0, 3), channel(2, 7), channel(5, 7), 0};
  }
  if (bitsPerPixel == 1) info.colors[1] = {255, 255, 255, 0};
  void* bits = nullptr;
  mBitmap =
      CreateDIBSection(mContext, reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS, &bits, nullptr, 0);
  if (!mBitmap) {
    DeleteDC(mContext);
    throw std::runtime_error("a picture of " + std::to_string(width) + " x " + std::to_string(height) +
                             " is not possible");
  }
  mPrevious = SelectObject(mContext, mBitmap);
}

Picture::~Picture() {
  SelectObject(mContext, mPrevious);
  DeleteObject(mBitmap);
  DeleteDC(mContext);
}

void Picture::Fill(const RECT& rect, COLORREF color) const {
  const HBRUSH brush = CreateSolidBrush(color);
  FillRect(mContext, &rect, brush);
  DeleteObject(brush);
}

void Picture::FillCheckered(const RECT& rect) const {
  constexpr int size = 8;
  Fill(rect, RGB(0xE8, 0xE8, 0xE8));
  for (int y = rect.top; y < rect.bottom; y += size)
    for (int x = rect.left + (y - rect.top) / size % 2 * size; x < rect.right; x += 2 * size)
      Fill({x, y, std::min(x + size, static_cast<int>(rect.right)),
            std::min(y + size, static_cast<int>(rect.bottom))},
           RGB(0xC4, 0xC4, 0xC4));
}

void Picture::Save(const std::string& path) const {
  if (OrmSaveSurfaceA(mContext, PlatformPath(path).GetBegin())) return;
  String reason;
  reason.SetSystemError(GetLastError(), nullptr);
  std::string text = reason.GetBegin();
  text.erase(text.find_last_not_of(" \r\n") + 1);
  throw std::runtime_error("cannot write " + path + ": " + text);
}

}  // namespace orm::draw
