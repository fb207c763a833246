// orm draw bitmap: loads a bitmap file the way a resource is loaded and draws it.
#include "DrawBitmap.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "BitmapFile.h"
#include "Picture.h"

namespace orm::draw {
namespace {

// Reads whole numbers and the marks between them from a text's front.
class Fields {
 public:
  explicit Fields(std::string_view text) : mPosition(text.data()), mEnd(text.data() + text.size()) {}

  bool ReadNumber(int& value) {
    const auto [rest, error] = std::from_chars(mPosition, mEnd, value);
    mPosition = rest;
    return error == std::errc();
  }
  bool ReadMark(char mark) {
    if (mPosition == mEnd || *mPosition != mark) return false;
    ++mPosition;
    return true;
  }
  bool ReadRatio(int& multiplier, int& divisor) {
    return ReadNumber(multiplier) && ReadMark('/') && ReadNumber(divisor) && multiplier > 0 && divisor > 0;
  }
  bool IsAtEnd() const { return mPosition == mEnd; }

 private:
  const char* mPosition;
  const char* mEnd;
};

StretchInfo ParseScale(const std::string& text) {
  if (text.empty()) return StretchInfo::GetNotChanging();
  StretchInfo scale{};
  Fields fields(text);
  if (fields.ReadRatio(scale.mMulX, scale.mDivX)) {
    scale.mMulY = scale.mMulX;
    scale.mDivY = scale.mDivX;
    if (fields.IsAtEnd()) return scale;
    if (fields.ReadMark('x') && fields.ReadRatio(scale.mMulY, scale.mDivY) && fields.IsAtEnd()) return scale;
  }
  throw std::invalid_argument("'" + text + "' is no scale: write 120/96, or 3/2x1/2 for width and height");
}

struct Repeat {
  SIZE size{};
  Bitmap::RepeatInfo info;
};

Repeat ParseRepeat(const std::string& text) {
  Repeat repeat;
  Bitmap::RepeatInfo& info = repeat.info;
  Fields fields(text);
  bool isRead =
      fields.ReadNumber(repeat.size.cx) && fields.ReadMark('x') && fields.ReadNumber(repeat.size.cy);
  char mark = ':';
  for (int* field : {&info.mStartX, &info.mLengthX, &info.mPeriodX, &info.mPhaseX, &info.mStartY,
                     &info.mLengthY, &info.mPeriodY, &info.mPhaseY}) {
    if (isRead && !fields.IsAtEnd()) isRead = fields.ReadMark(mark) && fields.ReadNumber(*field);
    mark = ',';
  }
  if (isRead && fields.IsAtEnd() && repeat.size.cx > 0 && repeat.size.cy > 0) {
    repeat.size = CheckSize(repeat.size.cx, repeat.size.cy);
    return repeat;
  }
  throw std::invalid_argument("'" + text +
                              "' is no repetition: write WIDTHxHEIGHT, then : and the start, length, period "
                              "and phase of the columns and of the rows");
}

// No more of it than a bitmap can need: what has no end is no file.
std::string ReadBitmapFile(const std::string& path) {
  constexpr std::size_t most = std::size_t{1} << 30;
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw std::runtime_error(path + " is a folder");
  std::ifstream file(path, std::ios::binary);
  std::string content;
  std::vector<char> part(std::size_t{1} << 16);
  do {
    file.read(part.data(), static_cast<std::streamsize>(part.size()));
    content.append(part.data(), static_cast<std::size_t>(file.gcount()));
    if (content.size() > most) throw std::runtime_error(path + " is larger than a bitmap can be");
  } while (file && content.starts_with("BM"));
  if (file.bad() || (content.empty() && !file.eof())) throw std::runtime_error("cannot read " + path);
  return content;
}

// Before it is loaded: a size that cannot be made is no reason for an assertion here.
void CheckScaledSize(const std::string& resource, const StretchInfo& scale) {
  BITMAPINFOHEADER header;
  std::memcpy(&header, resource.data(), sizeof header);
  const auto scaled = [](std::int64_t side, LONG multiplier, LONG divisor) {
    return (side * multiplier + divisor / 2) / divisor;
  };
  CheckSize(scaled(header.biWidth, scale.mMulX, scale.mDivX),
            scaled(std::abs(std::int64_t{header.biHeight}), scale.mMulY, scale.mDivY));
}

SIZE SizeOf(const Bitmap& bitmap) {
  BITMAP description{};
  GetObjectA(bitmap.GetHandle(), sizeof description, &description);
  return {description.bmWidth, description.bmHeight};
}

}  // namespace

COLORREF ParseColor(const std::string& text) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text.c_str(), &end, 16);
  if (text.size() != 6 || *end != 0) throw std::invalid_argument("'" + text + "' is no colour: write RRGGBB");
  return RGB(static_cast<BYTE>(value >> 16), static_cast<BYTE>(value >> 8), static_cast<BYTE>(value));
}

void DrawBitmapFile(const BitmapOptions& options) {
  const StretchInfo scale = ParseScale(options.scale);
  const std::optional<Repeat> repeat =
      options.repeat.empty() ? std::nullopt : std::optional(ParseRepeat(options.repeat));
  const bool first = options.transparent == "first";
  const COLORREF color = first || options.transparent.empty() ? 0 : ParseColor(options.transparent);
  std::string resource;
  try {
    resource = rc::ResourceFromBitmapFile(ReadBitmapFile(options.file));
  } catch (const std::invalid_argument& reason) {
    throw std::runtime_error(options.file + " " + reason.what());
  }
  CheckScaledSize(resource, scale);
  Bitmap bitmap;
  if (!bitmap.LoadData(resource.data(), resource.size(), scale, options.system) || !bitmap.GetHandle())
    throw std::runtime_error(options.file + " cannot be loaded");
  const SIZE size = repeat ? repeat->size : SizeOf(bitmap);
  const Picture picture(size.cx, size.cy);
  if (repeat) {
    bitmap.DrawRepeat(picture.GetContext(), {0, 0}, size, repeat->info, true);
  } else if (!options.transparent.empty()) {
    picture.FillCheckered({0, 0, size.cx, size.cy});
    bitmap.DrawTransparent(picture.GetContext(), {0, 0},
                           first ? Bitmap::TRANS_FIRSTPIXEL : Bitmap::TRANS_COLOR, color, {0, 0}, {0, 0});
  } else {
    bitmap.Draw(picture.GetContext(), {0, 0}, {0, 0}, {0, 0});
  }
  picture.Save(options.output);
}

}  // namespace orm::draw
