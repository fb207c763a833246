// Resampling, block transfers and text beside their peers: the plain walk over all pieces, pixman, memcpy,
// cairo.
#include <cairo.h>
#include <ormutil/Bitmap.h>
#include <ormutil/Font.h>
#include <pixman.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "BitmapResampler.h"
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

bench::Operation PrepareResampler() {
  struct Memory {
    std::vector<BYTE> target =
        std::vector<BYTE>(static_cast<size_t>(test::RowStride(kSmall.width)) * kSmall.height);
    std::vector<float> sums = std::vector<float>(orm::ResampleJob::Pad(kSmall.width) * 3);
    std::vector<float> pieces = std::vector<float>(kLarge.width + kSmall.width);
  };
  return [memory = std::make_shared<Memory>()](size_t n) {
    while (n--) {
      orm::Resample({.source = Photo().data(),
                     .sourceWidth = kLarge.width,
                     .sourceHeight = kLarge.height,
                     .sourceStride = test::RowStride(kLarge.width),
                     .target = memory->target.data(),
                     .targetWidth = kSmall.width,
                     .targetHeight = kSmall.height,
                     .targetStride = test::RowStride(kSmall.width),
                     .sums = memory->sums.data(),
                     .pieces = memory->pieces.data()});
      bench::Keep(memory->target.data());
    }
  };
}

// Loading scales, too: this is what a caller waits for.
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

// An image of pixman over a caller's pixels.
using PixmanImage =
    std::unique_ptr<pixman_image_t, decltype([](pixman_image_t* image) { pixman_image_unref(image); })>;

PixmanImage View(pixman_format_code_t format, Size size, const void* pixels, int stride) {
  auto* const words = static_cast<std::uint32_t*>(const_cast<void*>(pixels));
  return PixmanImage(pixman_image_create_bits(format, size.width, size.height, words, stride));
}

bench::Operation PreparePixmanScaling() {
  struct Scaling {
    std::vector<std::uint32_t> pixels =
        std::vector<std::uint32_t>(static_cast<size_t>(test::RowStride(kSmall.width)) * kSmall.height / 4);
    PixmanImage from = View(PIXMAN_r8g8b8, kLarge, Photo().data(), test::RowStride(kLarge.width));
    PixmanImage to = View(PIXMAN_r8g8b8, kSmall, pixels.data(), test::RowStride(kSmall.width));
  };
  const auto scaling = std::make_shared<Scaling>();
  pixman_transform_t transform;
  const pixman_fixed_t factor = pixman_double_to_fixed(static_cast<double>(kLarge.width) / kSmall.width);
  pixman_transform_init_scale(&transform, factor, factor);
  pixman_image_set_transform(scaling->from.get(), &transform);
  int count = 0;
  pixman_fixed_t* const kernel = pixman_filter_create_separable_convolution(
      &count, factor, factor, PIXMAN_KERNEL_LINEAR, PIXMAN_KERNEL_LINEAR, PIXMAN_KERNEL_BOX,
      PIXMAN_KERNEL_BOX, 4, 4);
  pixman_image_set_filter(scaling->from.get(), PIXMAN_FILTER_SEPARABLE_CONVOLUTION, kernel, count);
  std::free(kernel);
  return [scaling](size_t n) {
    while (n--)
      pixman_image_composite32(PIXMAN_OP_SRC, scaling->from.get(), nullptr, scaling->to.get(), 0, 0, 0, 0, 0,
                               0, kSmall.width, kSmall.height);
    bench::Keep(scaling->pixels.data());
  };
}

#ifdef ORM_BENCH_OPENCV
bench::Operation PrepareOpenCvScaling() {
  cv::setNumThreads(1);
  return [to = std::make_shared<cv::Mat>()](size_t n) {
    const cv::Mat from(kLarge.height, kLarge.width, CV_8UC3, const_cast<BYTE*>(Photo().data()),
                       static_cast<size_t>(test::RowStride(kLarge.width)));
    while (n--) cv::resize(from, *to, cv::Size(kSmall.width, kSmall.height), 0, 0, cv::INTER_AREA);
    bench::Keep(to->data);
  };
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

bench::Sides PrepareDraw() {
  const auto stride = static_cast<size_t>(test::RowStride(kSide));
  return {[target = std::make_shared<SectionTarget>(kSide, kSide)](size_t n) {
            while (n--) Square(kSide).Draw(target->context, {0, 0}, {0, 0}, {0, 0});
          },
          [target = std::make_shared<std::vector<BYTE>>(stride * kSide)](size_t n) {
            // A length that the compiler does not know: it has memcpy called, not replaced.
            const size_t length = target->size() / kSide;
            while (n--) {
              for (size_t at = 0; at < target->size(); at += length)
                std::memcpy(target->data() + at, Photo().data() + at, length);
              bench::Keep(target->data());
            }
          }};
}

bench::Operation PrepareTransparent() {
  return [target = std::make_shared<Target>(kSide, kSide)](size_t n) {
    while (n--)
      Square(kSide).DrawTransparent(target->context, {0, 0}, Bitmap::TRANS_FIRSTPIXEL, 0, {0, 0}, {0, 0});
  };
}

bench::Operation PrepareComposite() {
  struct Images {
    std::vector<std::uint32_t> pixels = std::vector<std::uint32_t>(kSide * kSide);
    std::vector<std::uint32_t> coverage = std::vector<std::uint32_t>(kSide * kSide / 4, 0xFF00FFFF);
    PixmanImage from = View(PIXMAN_r8g8b8, {kSide, kSide}, Photo().data(), test::RowStride(kSide));
    PixmanImage mask = View(PIXMAN_a8, {kSide, kSide}, coverage.data(), kSide);
    PixmanImage to = View(PIXMAN_x8r8g8b8, {kSide, kSide}, pixels.data(), kSide * 4);
  };
  return [images = std::make_shared<Images>()](size_t n) {
    while (n--)
      pixman_image_composite32(PIXMAN_OP_OVER, images->from.get(), images->mask.get(), images->to.get(), 0, 0,
                               0, 0, 0, 0, kSide, kSide);
    bench::Keep(images->pixels.data());
  };
}

constexpr Size kPanel{1024, 768};
constexpr Bitmap::RepeatInfo kBands{10, 12, 1, 0, 10, 12, 1, 0};

bench::Sides PrepareRepeat() {
  constexpr size_t kBytes = size_t{kPanel.width} * kPanel.height * 4;
  return {[target = std::make_shared<Target>(kPanel.width, kPanel.height)](size_t n) {
            while (n--)
              Square(32).DrawRepeat(target->context, {0, 0}, {kPanel.width, kPanel.height}, kBands, false);
          },
          [from = std::make_shared<std::vector<BYTE>>(kBytes, BYTE{1}),
           to = std::make_shared<std::vector<BYTE>>(kBytes)](size_t n) {
            while (n--) {
              std::memcpy(to->data(), from->data(), kBytes);
              bench::Keep(to->data());
            }
          }};
}

constexpr const char* kLine =
    "Eighty characters are a line that a terminal shows, and a label seldom has them.";

bench::Operation PrepareLayers() {
  struct Label {
    Target target{800, 40};
    Font font;
    String line{kLine};
  };
  const auto label = std::make_shared<Label>();
  label->font.Create("DejaVu Sans;10;ffffff;400;0;1:1,1,000000;-1,-1,808080");
  return [label](size_t n) {
    while (n--) label->font.Draw(label->target.context, 5, 5, label->line);
  };
}

// The same face, size and places.
bench::Operation PrepareShowText() {
  using Surface =
      std::unique_ptr<cairo_surface_t, decltype([](cairo_surface_t* s) { cairo_surface_destroy(s); })>;
  using Context = std::unique_ptr<cairo_t, decltype([](cairo_t* c) { cairo_destroy(c); })>;
  struct Label {
    Surface surface{cairo_image_surface_create(CAIRO_FORMAT_RGB24, 800, 40)};
    Context context{cairo_create(surface.get())};
  };
  const auto label = std::make_shared<Label>();
  cairo_select_font_face(label->context.get(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(label->context.get(), 13);
  return [label](size_t n) {
    constexpr struct { double x, y, gray; } kLayers[] = {{6, 18, 0}, {4, 16, 0.5}, {5, 17, 1}};
    cairo_t* const context = label->context.get();
    while (n--)
      for (const auto& layer : kLayers) {
        cairo_set_source_rgb(context, layer.gray, layer.gray, layer.gray);
        cairo_move_to(context, layer.x, layer.y);
        cairo_show_text(context, kLine);
      }
  };
}

// A square of this many pixels made half as wide and high.
bench::Operation PrepareShrinking(size_t pixels) {
  const int side = static_cast<int>(std::lround(std::sqrt(static_cast<double>(pixels))));
  struct Picture {
    std::vector<BYTE> source, target;
    std::vector<float> sums, pieces;
  };
  const auto picture = std::make_shared<Picture>();
  picture->source.resize(static_cast<size_t>(test::RowStride(side)) * static_cast<size_t>(side) +
                         orm::ResampleJob::SOURCE_SPARE);
  picture->target.resize(static_cast<size_t>(test::RowStride(side / 2)) * static_cast<size_t>(side / 2));
  picture->sums.resize(orm::ResampleJob::Pad(static_cast<size_t>(side) / 2) * 3);
  picture->pieces.resize(static_cast<size_t>(side) + static_cast<size_t>(side) / 2);
  return [picture, side](size_t n) {
    const auto area = static_cast<size_t>(side) * static_cast<size_t>(side);
    for (size_t done = 0; done < n; done += area)
      orm::Resample({.source = picture->source.data(),
                     .sourceWidth = side,
                     .sourceHeight = side,
                     .sourceStride = test::RowStride(side),
                     .target = picture->target.data(),
                     .targetWidth = side / 2,
                     .targetHeight = side / 2,
                     .targetStride = test::RowStride(side / 2),
                     .sums = picture->sums.data(),
                     .pieces = picture->pieces.data()});
  };
}

void AddResamplerRows(bench::Table& table) {
  const auto add = [&table](const char* name, const char* peer, double goal, bench::Operation (*prepare)()) {
    table.Add(bench::Row{.name = name,
                         .peer = peer,
                         .goal = goal,
                         .prepare =
                             [prepare] {
                               return bench::Sides{PrepareResampler(), prepare()};
                             },
                         .heavy = true});
  };
  const auto walk = []() -> bench::Operation { return ResamplePlainly; };
  add("resample 1920 x 1080 to 1280 x 720, 24 bits", "the plain walk over all pieces", 0.2, walk);
  add("resample 1920 x 1080 to 1280 x 720, 24 bits, beside pixman", "pixman, separable convolution", 1.0,
      PreparePixmanScaling);
#ifdef ORM_BENCH_OPENCV
  add("resample 1920 x 1080 to 1280 x 720, 24 bits, beside OpenCV", "OpenCV INTER_AREA, one thread", 2,
      PrepareOpenCvScaling);
#endif
  table.Add(bench::Row{
      .name = "load a bitmap of 1920 x 1080 scaled to 1280 x 720",
      .peer = "pixman, separable convolution",
      .goal = 1.0,
      .prepare =
          [] {
            return bench::Sides{LoadScaled, PreparePixmanScaling()};
          },
      .note = "ours contains the resource's conversion and the making of two bitmaps, the peer only scales",
      .heavy = true});
  table.Add(bench::Growth{.name = "bitmap: resample to half the size",
                          .unit = "pixels",
                          .sizes = {100, 1'024, 10'000, 102'400, 1'000'000},
                          .prepare = PrepareShrinking,
                          .operation = "pixel",
                          .wholePasses = true});
}

}  // namespace

void AddDrawingRows(bench::Table& table) {
  AddResamplerRows(table);
  table.Add(bench::Row{.name = "Draw, 512 x 512",
                       .peer = "memcpy by rows",
                       .goal = 1.2,
                       .prepare = PrepareDraw,
                       .note = "onto a surface of the bitmap's depth"});
  table.Add(bench::Row{.name = "DrawTransparent, 512 x 512",
                       .peer = "pixman composite, a8 mask",
                       .goal = 2,
                       .prepare =
                           [] {
                             return bench::Sides{PrepareTransparent(), PrepareComposite()};
                           },
                       .note = "24 bits onto 32"});
  table.Add(bench::Row{.name = "DrawRepeat of 32 x 32 to 1024 x 768",
                       .peer = "memcpy of the result",
                       .goal = 2,
                       .prepare = PrepareRepeat});
  table.Add(bench::Row{.name = "80 characters, three layers",
                       .peer = "cairo show_text three times",
                       .goal = 1.0,
                       .prepare = [] {
                         return bench::Sides{PrepareLayers(), PrepareShowText()};
                       }});
}
