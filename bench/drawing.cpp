// Resampling, block transfers and text beside their peers: the plain walk over all pieces, pixman, memcpy,
// cairo.
#include <cairo.h>
#include <ormutil/Bitmap.h>
#include <ormutil/Font.h>
#include <pixman.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "drawing/ResampleReference.h"
#include "harness/Rooms.h"

#ifdef ORM_BENCH_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using orm::Bitmap;
using orm::Font;
using orm::StretchInfo;
using orm::String;

constexpr int kSide = 512;

struct Size {
  int width, height;
};
constexpr Size kLarge{1920, 1080};
constexpr Size kSmall{1280, 720};

// Rows of 24 bits with smooth and rough parts.
const std::vector<BYTE>& Photo() {
  static const std::vector<BYTE> rows = [] {
    std::mt19937 random(1);
    std::vector<BYTE> bytes(static_cast<size_t>(test::RowStride(kLarge.width) * kLarge.height) + 4);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<BYTE>(i / 64 + random() % 32);
    return bytes;
  }();
  return rows;
}

// A picture as resource data.
std::vector<BYTE> MakeResource(int width, int height, const std::vector<BYTE>& rows) {
  const auto size = static_cast<size_t>(test::RowStride(width) * height);
  std::vector<BYTE> bytes(40 + size);
  const auto put = [&bytes](size_t at, int value) { std::memcpy(bytes.data() + at, &value, sizeof value); };
  put(0, 40);
  put(4, width);
  put(8, height);
  put(12, 1 | 24 << 16);
  std::memcpy(bytes.data() + 40, rows.data(), size);
  return bytes;
}

// Loading scales: what is measured contains the conversion of the resource, which the note says.
void LoadScaled(size_t n) {
  static const std::vector<BYTE> resource = MakeResource(kLarge.width, kLarge.height, Photo());
  while (n--) {
    Bitmap bitmap;
    bitmap.LoadData(resource.data(), resource.size(),
                    {kSmall.width, kLarge.width, kSmall.height, kLarge.height}, false);
    bench::Keep(bitmap.GetHandle());
  }
}

void ResamplePlainly(size_t n) {
  while (n--)
    bench::Keep(
        test::ResamplePlainly({Photo().data(), kLarge.width, kLarge.height, kSmall.width, kSmall.height})
            .data());
}

void ScaleWithPixman(size_t n) {
  static const std::vector<BYTE> source = Photo();
  pixman_image_t* const from = pixman_image_create_bits(
      PIXMAN_r8g8b8, kLarge.width, kLarge.height,
      reinterpret_cast<std::uint32_t*>(const_cast<BYTE*>(source.data())), test::RowStride(kLarge.width));
  std::vector<std::uint32_t> target(static_cast<size_t>(test::RowStride(kSmall.width) * kSmall.height) / 4);
  pixman_image_t* const to = pixman_image_create_bits(PIXMAN_r8g8b8, kSmall.width, kSmall.height,
                                                      target.data(), test::RowStride(kSmall.width));
  pixman_transform_t transform;
  const pixman_fixed_t factor = pixman_double_to_fixed(static_cast<double>(kLarge.width) / kSmall.width);
  pixman_transform_init_scale(&transform, factor, factor);
  pixman_image_set_transform(from, &transform);
  int count = 0;
  pixman_fixed_t* const kernel = pixman_filter_create_separable_convolution(
      &count, factor, factor, PIXMAN_KERNEL_LINEAR, PIXMAN_KERNEL_LINEAR, PIXMAN_KERNEL_BOX,
      PIXMAN_KERNEL_BOX, 4, 4);
  pixman_image_set_filter(from, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, kernel, count);
  while (n--)
    pixman_image_composite32(PIXMAN_OP_SRC, from, nullptr, to, 0, 0, 0, 0, 0, 0, kSmall.width, kSmall.height);
  bench::Keep(target.data());
  std::free(kernel);
  pixman_image_unref(from);
  pixman_image_unref(to);
}

#ifdef ORM_BENCH_OPENCV
void ScaleWithOpenCv(size_t n) {
  cv::setNumThreads(1);
  const cv::Mat from(kLarge.height, kLarge.width, CV_8UC3, const_cast<BYTE*>(Photo().data()),
                     static_cast<size_t>(test::RowStride(kLarge.width)));
  cv::Mat to;
  while (n--) cv::resize(from, to, cv::Size(kSmall.width, kSmall.height), 0, 0, cv::INTER_AREA);
  bench::Keep(to.data);
}
#endif

// A memory context with a bitmap like the screen's, 32 bits.
struct Target {
  HDC context = CreateCompatibleDC(nullptr);
  HBITMAP bitmap;
  HGDIOBJ previous;

  Target(int width, int height) {
    const HDC screen = GetDC(nullptr);
    bitmap = CreateCompatibleBitmap(screen, width, height);
    ReleaseDC(nullptr, screen);
    previous = SelectObject(context, bitmap);
  }
  ~Target() {
    SelectObject(context, previous);
    DeleteObject(bitmap);
    DeleteDC(context);
  }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
};

// The same on a section of 24 bits, as the loaded bitmap itself is.
struct SectionTarget {
  HDC context = CreateCompatibleDC(nullptr);
  HBITMAP bitmap;
  HGDIOBJ previous;

  SectionTarget(int width, int height) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    void* bits = nullptr;
    bitmap = CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    previous = SelectObject(context, bitmap);
  }
  ~SectionTarget() {
    SelectObject(context, previous);
    DeleteObject(bitmap);
    DeleteDC(context);
  }
  SectionTarget(const SectionTarget&) = delete;
  SectionTarget& operator=(const SectionTarget&) = delete;
};

const Bitmap& Square(int side) {
  static Bitmap large, small;
  Bitmap& bitmap = side == kSide ? large : small;
  if (!bitmap.GetHandle()) {
    const std::vector<BYTE> resource = MakeResource(side, side, Photo());
    bitmap.LoadData(resource.data(), resource.size(), StretchInfo::GetNotChanging(), false);
  }
  return bitmap;
}

void DrawPlainly(size_t n) {
  const SectionTarget target(kSide, kSide);
  while (n--) Square(kSide).Draw(target.context, {0, 0}, {0, 0}, {0, 0});
}

void CopyRows(size_t n) {
  const auto stride = static_cast<size_t>(test::RowStride(kSide));
  std::vector<BYTE> target(stride * kSide);
  while (n--) {
    for (size_t y = 0; y < kSide; ++y)
      std::memcpy(target.data() + y * stride, Photo().data() + y * stride, kSide * 3);
    bench::Keep(target.data());
  }
}

void DrawTransparent(size_t n) {
  const Target target(kSide, kSide);
  while (n--)
    Square(kSide).DrawTransparent(target.context, {0, 0}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
}

void CompositeWithPixman(size_t n) {
  std::vector<std::uint32_t> target(kSide * kSide), mask(kSide * kSide / 4, 0xFF00FFFF);
  pixman_image_t* const from = pixman_image_create_bits(
      PIXMAN_r8g8b8, kSide, kSide, reinterpret_cast<std::uint32_t*>(const_cast<BYTE*>(Photo().data())),
      test::RowStride(kSide));
  pixman_image_t* const alpha = pixman_image_create_bits(PIXMAN_a8, kSide, kSide, mask.data(), kSide);
  pixman_image_t* const to =
      pixman_image_create_bits(PIXMAN_x8r8g8b8, kSide, kSide, target.data(), kSide * 4);
  while (n--) pixman_image_composite32(PIXMAN_OP_OVER, from, alpha, to, 0, 0, 0, 0, 0, 0, kSide, kSide);
  bench::Keep(target.data());
  for (pixman_image_t* image : {from, alpha, to}) pixman_image_unref(image);
}

constexpr Size kPanel{1024, 768};

void DrawRepeated(size_t n) {
  const Target target(kPanel.width, kPanel.height);
  const Bitmap::RepeatInfo bands{10, 12, 1, 0, 10, 12, 1, 0};
  while (n--) Square(32).DrawRepeat(target.context, {0, 0}, {kPanel.width, kPanel.height}, bands, false);
}

void CopyPanel(size_t n) {
  const size_t size = static_cast<size_t>(kPanel.width) * static_cast<size_t>(kPanel.height) * 4;
  const std::vector<BYTE> source(size, 1);
  std::vector<BYTE> target(size);
  while (n--) {
    std::memcpy(target.data(), source.data(), size);
    bench::Keep(target.data());
  }
}

constexpr const char* kLine =
    "Eighty characters are a line that a terminal shows, and a label seldom has them.";

void DrawLayers(size_t n) {
  const Target target(800, 40);
  Font font;
  font.Create("DejaVu Sans;10;ffffff;400;0;1:1,1,000000;-1,-1,808080");
  const String line(kLine);
  while (n--) font.Draw(target.context, 5, 5, line);
}

void ShowThreeTimes(size_t n) {
  cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 800, 40);
  cairo_t* const context = cairo_create(surface);
  cairo_select_font_face(context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(context, 13);
  const struct { double x, y, gray; } layers[] = {{6, 18, 0}, {4, 16, 0.5}, {5, 17, 1}};
  while (n--)
    for (const auto& layer : layers) {
      cairo_set_source_rgb(context, layer.gray, layer.gray, layer.gray);
      cairo_move_to(context, layer.x, layer.y);
      cairo_show_text(context, kLine);
    }
  cairo_destroy(context);
  cairo_surface_destroy(surface);
}

}  // namespace

void AddDrawingRows(bench::Table& table) {
  constexpr const char* whole = "ours loads the bitmap: conversion and two copies are contained";
  table.Add(bench::Row{.name = "resample 1920 x 1080 to 1280 x 720, 24 bits, beside the plain walk",
                       .peer = "the plain walk over all pieces",
                       .goal = 0.2,
                       .ours = LoadScaled,
                       .theirs = ResamplePlainly,
                       .note = whole,
                       .heavy = true});
  table.Add(bench::Row{.name = "resample 1920 x 1080 to 1280 x 720, 24 bits, beside pixman",
                       .peer = "pixman, separable convolution",
                       .goal = 1.0,
                       .ours = LoadScaled,
                       .theirs = ScaleWithPixman,
                       .note = whole,
                       .heavy = true});
#ifdef ORM_BENCH_OPENCV
  table.Add(bench::Row{.name = "resample 1920 x 1080 to 1280 x 720, 24 bits, beside OpenCV",
                       .peer = "OpenCV INTER_AREA, one thread",
                       .goal = 2,
                       .ours = LoadScaled,
                       .theirs = ScaleWithOpenCv,
                       .note = whole,
                       .heavy = true});
#endif
  table.Add(bench::Row{.name = "Draw, 512 x 512",
                       .peer = "memcpy by rows",
                       .goal = 1.2,
                       .ours = DrawPlainly,
                       .theirs = CopyRows,
                       .note = "onto a surface of the bitmap's depth"});
  table.Add(bench::Row{.name = "DrawTransparent, 512 x 512",
                       .peer = "pixman composite, a8 mask",
                       .goal = 2,
                       .ours = DrawTransparent,
                       .theirs = CompositeWithPixman,
                       .note = "24 bits onto 32"});
  table.Add(bench::Row{.name = "DrawRepeat of 32 x 32 to 1024 x 768",
                       .peer = "memcpy of the result",
                       .goal = 2,
                       .ours = DrawRepeated,
                       .theirs = CopyPanel});
  table.Add(bench::Row{.name = "80 characters, three layers",
                       .peer = "cairo show_text three times",
                       .goal = 1.0,
                       .ours = DrawLayers,
                       .theirs = ShowThreeTimes});
}
