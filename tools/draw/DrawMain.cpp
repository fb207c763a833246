// The command line of orm draw.
#include "DrawMain.h"

#include <ormutil/Font.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "DrawBitmap.h"
#include "DrawSheet.h"
#include "Picture.h"

namespace orm::draw {
namespace {

struct FontOptions {
  std::string descriptor;
  std::string text;
  std::string output;
  std::string background = "ffffff";
  int width = 0;
};

struct Options {
  FontOptions font;
  BitmapOptions bitmap;
  std::string sheet;
};

constexpr int margin = 8;
constexpr int bothMargins = 2 * margin;

// Fonts have a largest size, which takes the place of all beyond it; and a size may have no height at all.
void CheckFontSize(const FontOptions& options, HDC context, HFONT font) {
  const HGDIOBJ previous = SelectObject(context, font);
  LOGFONTA wanted{};
  TEXTMETRICA given{};
  GetObjectA(font, sizeof wanted, &wanted);
  GetTextMetricsA(context, &given);
  SelectObject(context, previous);
  const std::size_t mark = options.descriptor.find(';');
  const double points =
      mark == std::string::npos
          ? 0
          : static_cast<double>(std::strtoll(options.descriptor.c_str() + mark + 1, nullptr, 10));
  constexpr double mostPointsPerPixel = 3;  // of the coarsest screen
  const double pixels = std::abs(static_cast<double>(wanted.lfHeight));
  const bool overflowed = std::abs(points) > (pixels + 1) * mostPointsPerPixel;
  const bool isCut =
      given.tmInternalLeading > 0 && given.tmHeight - given.tmInternalLeading < -wanted.lfHeight;
  if (overflowed || isCut)
    throw std::invalid_argument("'" + options.descriptor + "' is a larger font than can be drawn");
}

void DrawFont(const FontOptions& options) {
  Font font;
  if (!font.Create(FromUtf8(options.descriptor)) || !font.GetHandle())
    throw std::invalid_argument(
        "'" + options.descriptor +
        "' is no font descriptor: write face;size;colour;weight;style;charset:layers:x,y");
  const COLORREF background = ParseColor(options.background);
  const String text = FromUtf8(options.text);
  const unsigned format = DT_NOPREFIX | DT_EXPANDTABS | (options.width > 0 ? DT_WORDBREAK : 0);
  const Picture probe(1, 1);
  CheckFontSize(options, probe.GetContext(), font.GetHandle());
  // Measured from 0,0: layers to the left and above are at negative places.
  const RECT room = font.GetSize(probe.GetContext(), RECT{0, 0, std::max(options.width, 0), 0}, text, format);
  // The offsets of layers may be as far apart as numbers go.
  const SIZE size = CheckSize(std::int64_t{room.right} - room.left + bothMargins,
                              std::int64_t{room.bottom} - room.top + bothMargins);
  const Picture picture(size.cx, size.cy);
  picture.FillAll(background);
  const LONG left = margin - room.left;
  const LONG top = margin - room.top;
  font.DrawFormatted(picture.GetContext(),
                     RECT{left, top, left + std::max(room.right, options.width), top + room.bottom}, text,
                     format | DT_NOCLIP);
  picture.Save(options.output);
}

void AddOutput(CLI::App& command, std::string& output) {
  command.add_option("-o,--output", output, "the PNG file to write")->required()->type_name("FILE.png");
}

void AddFont(CLI::App& app, FontOptions& options) {
  CLI::App* command = app.add_subcommand("font", "Draw a text in the font of a descriptor");
  command->add_option("descriptor", options.descriptor, "face;size;colour;weight;style;charset:layers:x,y")
      ->required();
  command->add_option("text", options.text, "the text; tabs and line ends count")->required();
  command->add_option("--background", options.background, "RRGGBB, white unless given");
  command->add_option("--width", options.width, "break lines at this many pixels")
      ->check(CLI::Range(1, 8192));
  AddOutput(*command, options.output);
  command->footer(
      "Examples:\n"
      "  orm draw font 'DejaVu Sans;24' Ready -o ready.png\n"
      "  orm draw font 'DejaVu Sans;24;ffffff;700;0;1:2,2,000000' Ready --background 306090 -o ready.png\n");
  command->callback([&options] { DrawFont(options); });
}

void AddBitmap(CLI::App& app, BitmapOptions& options) {
  CLI::App* command = app.add_subcommand("bitmap", "Load a bitmap file as a resource would be, and draw it");
  command->add_option("file", options.file, "the bitmap file")->required();
  command->add_option("--scale", options.scale, "factor, 120/96; or width x height, 3/2x1/2");
  command->add_flag("--system", options.system, "scale by the system's stretching, not the own resampler");
  CLI::Option* transparent =
      command->add_option("--transparent", options.transparent, "first, or the colour RRGGBB");
  command
      ->add_option("--repeat", options.repeat,
                   "WxH:startX,lengthX,periodX,phaseX,startY,lengthY,periodY,phaseY")
      ->excludes(transparent);
  AddOutput(*command, options.output);
  command->footer(
      "Examples:\n"
      "  orm draw bitmap logo.bmp --scale 120/96 -o logo.png\n"
      "  orm draw bitmap button.bmp --transparent first -o button.png\n"
      "  orm draw bitmap frame.bmp --repeat 320x200:8,16,1,0,8,16,1,0 -o frame.png\n");
  command->callback([&options] { DrawBitmapFile(options); });
}

void AddSheet(CLI::App& app, std::string& output) {
  CLI::App* command = app.add_subcommand("sheet", "Show every drawing feature in one picture");
  AddOutput(*command, output);
  command->footer("Examples:\n  orm draw sheet -o sheet.png\n");
  command->callback([&output] { DrawSheet(output); });
}

constexpr char description[] = "Draw texts and bitmaps into PNG files";

void AddCommands(CLI::App& app, Options& options) {
  app.require_subcommand(1);
  AddFont(app, options.font);
  AddBitmap(app, options.bitmap);
  AddSheet(app, options.sheet);
  app.footer(
      "Examples:\n"
      "  orm draw font 'DejaVu Sans;24;ffffff;700;0;1:2,2,000000' Ready --background 306090 -o ready.png\n"
      "  orm draw sheet -o sheet.png\n");
}

}  // namespace

void DescribeCommandLine(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  AddCommands(app, *options);
  app.description(description);
  app.callback([options] {});  // which keeps them
}

int DrawMain(int argc, char** argv) {
  CLI::App app(description, "orm draw");
  Options options;
  AddCommands(app, options);
  try {
    app.parse(argc, argv);
    return 0;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "orm draw: %s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orm draw: %s\n", error.what());
    return 1;
  }
}

}  // namespace orm::draw
