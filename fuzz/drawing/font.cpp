// Font descriptors of any bytes; a text follows after the first zero byte.
#include <ormutil/Font.h>

#include <string>

using orm::Font;
using orm::String;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string descriptor = input.c_str();
  const String text = size > descriptor.size() ? input.c_str() + descriptor.size() + 1 : "x";
  Font font;
  if (!font.Create(descriptor.c_str()) || !font.GetHandle()) return 0;
  LOGFONTA description{};
  GetObjectA(font.GetHandle(), sizeof description, &description);
  if (description.lfHeight < -200 || description.lfHeight > 200 || font.GetLayers().size() > 20)
    return 0;  // only slow
  const HDC screen = GetDC(nullptr);
  font.Draw(screen, 10, 10, text);
  font.DrawFormatted(screen, RECT{10, 10, 90, 70}, text, DT_WORDBREAK | DT_EXPANDTABS | DT_END_ELLIPSIS);
  font.GetSize(screen, text);
  font.GetSize(screen, RECT{10, 10, 90, 70}, text, DT_SINGLELINE | DT_PATH_ELLIPSIS);
  ReleaseDC(nullptr, screen);
  return 0;
}
