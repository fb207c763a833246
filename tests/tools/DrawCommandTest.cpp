// orm draw: the pictures that it writes, and what it says when it cannot.
#include <gmock/gmock.h>
#include <png.h>
#include <sys/resource.h>
#include <win32.h>

#include <csignal>
#include <cstdint>

#include "RunOrm.h"

namespace orm::test {
namespace {

using testing::HasSubstr;

struct Image {
  unsigned width = 0, height = 0;
  std::vector<unsigned char> bytes;  // red, green, blue

  explicit Image(const std::string& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return;
    png.format = PNG_FORMAT_RGB;
    bytes.resize(PNG_IMAGE_SIZE(png));
    if (!png_image_finish_read(&png, nullptr, bytes.data(), 0, nullptr)) return;
    width = png.width;
    height = png.height;
  }
  unsigned At(unsigned x, unsigned y) const {
    const unsigned char* pixel = &bytes[(std::size_t{y} * width + x) * 3];
    return static_cast<unsigned>(pixel[0] << 16 | pixel[1] << 8 | pixel[2]);
  }
};

// A file of 24 bits: the left column magenta, the others by their place.
constexpr unsigned MAGENTA = 0xFF00FF;
unsigned Color(unsigned x, unsigned y) {
  return x == 0 ? MAGENTA : (x * 10) << 16 | (y * 20) << 8 | 0x40;
}

std::string WriteBitmap(int width, int height) {
  std::string file = "BM";
  const auto put = [&file](std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) file += static_cast<char>(value >> 8 * i);
  };
  put(0, 8);
  put(54, 4);
  put(40, 4);
  put(static_cast<unsigned>(width), 4);
  put(static_cast<unsigned>(height), 4);
  put(1, 2);
  put(24, 2);
  file.append(24, 0);
  for (int y = height; y-- > 0;) {
    for (int x = 0; x < width; ++x) put(Color(static_cast<unsigned>(x), static_cast<unsigned>(y)), 3);
    while ((file.size() - 54) % 4) put(0, 1);
  }
  return WriteFileBytes("in.bmp", file);
}

Image Draw(std::vector<std::string> arguments) {
  const std::string output = TestFile("out.png");
  std::filesystem::remove(output);
  arguments.insert(arguments.begin(), "draw");
  arguments.insert(arguments.end(), {"-o", output});
  const Outcome outcome = RunOrm(arguments);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  return Image(output);
}

TEST(DrawCommand, BitmapsPlainAndScaled) {
  const std::string file = WriteBitmap(16, 8);
  const Image plain = Draw({"bitmap", file});
  ASSERT_EQ(plain.width, 16u);
  ASSERT_EQ(plain.height, 8u);
  for (unsigned y = 0; y < 8; ++y)
    for (unsigned x = 0; x < 16; ++x) EXPECT_EQ(plain.At(x, y), Color(x, y));
  const Image scaled = Draw({"bitmap", file, "--scale", "120/96"});
  EXPECT_EQ(scaled.width, 20u);
  EXPECT_EQ(scaled.height, 10u);
  const Image system = Draw({"bitmap", file, "--scale", "2/1x3/1", "--system"});
  ASSERT_EQ(system.width, 32u);
  ASSERT_EQ(system.height, 24u);
  EXPECT_EQ(system.At(11, 7), Color(5, 2));
}

TEST(DrawCommand, TransparentAndRepeated) {
  const std::string file = WriteBitmap(10, 4);
  for (const char* key : {"first", "ff00ff"}) {
    const Image image = Draw({"bitmap", file, "--transparent", key});
    EXPECT_NE(image.At(0, 0), MAGENTA);
    EXPECT_EQ(image.At(1, 0), Color(1, 0));
  }
  const Image image = Draw({"bitmap", file, "--repeat", "20x4:4,2,1,0"});
  ASSERT_EQ(image.width, 20u);
  for (unsigned x = 0; x < 20; ++x)
    EXPECT_EQ(image.At(x, 1), Color(x < 6 ? x : x < 16 ? 4 + x % 2 : x - 10, 1)) << x;
}

TEST(DrawCommand, TextsAndTheSheet) {
  const Image text =
      Draw({"font", "DejaVu Sans;24;ffffff;700;0;1:2,2,000000", "Ready", "--background", "306090"});
  EXPECT_GT(text.width, 60u);
  EXPECT_EQ(text.At(0, 0), 0x306090u);
  bool hasWhite = false, hasBlack = false;
  for (unsigned y = 0; y < text.height; ++y)
    for (unsigned x = 0; x < text.width; ++x) {
      hasWhite |= text.At(x, y) == 0xFFFFFF;
      hasBlack |= text.At(x, y) == 0;
    }
  EXPECT_TRUE(hasWhite && hasBlack);
  EXPECT_LT(Draw({"font", "DejaVu Sans;24", "several words", "--width", "100"}).width, 180u);
  EXPECT_GT(Draw({"sheet"}).height, 500u);
}

TEST(DrawCommand, AnOldPictureStaysUntilTheNewOneIsWritten) {
  namespace fs = std::filesystem;
  Draw({"sheet"});
  const fs::path old = TestFile("out.png"), link = TestFile("link.png");
  fs::permissions(old, fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink("out.png", link);
  const std::string before = ReadFileBytes(old);
  const std::vector<std::string> command{"draw", "bitmap", WriteBitmap(16, 8), "-o", old};

  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  const rlimit small{16, usual.rlim_max};
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const Outcome full = RunOrm(command);
  setrlimit(RLIMIT_FSIZE, &usual);
  signal(SIGXFSZ, handler);
  EXPECT_EQ(full.code, 1);
  EXPECT_THAT(full.err, HasSubstr("cannot write " + old.string()));
  EXPECT_EQ(ReadFileBytes(old), before);
  for (const auto& entry : fs::directory_iterator(old.parent_path()))
    EXPECT_THAT(entry.path().string(), testing::Not(testing::EndsWith(".new")));

  EXPECT_EQ(RunOrm(command).code, 0);
  EXPECT_EQ(Image(old).width, 16u);
  EXPECT_EQ(fs::status(old).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(RunOrm({"draw", "sheet", "-o", link}).code, 0);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(ReadFileBytes(old), before) << "through the link";
  const fs::path second = TestFile("second.png");
  fs::create_hard_link(old, second);
  EXPECT_EQ(RunOrm(command).code, 0);
  EXPECT_EQ(ReadFileBytes(second), ReadFileBytes(old)) << "under both names";
  const std::string longest = TestFile(std::string(251, 'x') + ".png");
  for (int time = 0; time < 2; ++time) EXPECT_EQ(RunOrm({"draw", "sheet", "-o", longest}).code, 0);
}

TEST(DrawCommand, SaysWhatIsWrong) {
  const std::string file = WriteBitmap(16, 8);
  const std::string output = TestFile("refused.png");
  const struct {
    std::vector<std::string> arguments;
    int code;
    const char* reason;
  } cases[] = {
      {{"font", ";9", "x"}, 2, "is no font descriptor"},
      {{"font", "Sans;9", "\xD0\x96"}, 2, "code page"},
      {{"font", "Sans;9", "x", "--background", "red"}, 2, "is no colour"},
      {{"font", "Sans;9:2147483647,0,0", "x"}, 2, "1 to 16384 are possible"},
      {{"font", "Sans;9:-2147483648,0,0;2147483647,0,0", "x"}, 2, "the picture would have 4294967"},
      {{"font", "Sans;9:0,-2147483648,0:0,2147483647", "x"}, 2, "1 to 16384 are possible"},
      {{"font", "Sans;9::-2147483648,2147483647", "x", "--width", "8192"}, 2, "1 to 16384 are possible"},
      {{"font", "Sans;3000", "too wide to be drawn"}, 2, "1 to 16384 are possible"},
      {{"font", "Sans;4000", "."}, 2, "is a larger font than can be drawn"},
      {{"font", "Sans;2147483647", "."}, 2, "is a larger font than can be drawn"},
      {{"font", "Sans;-99999999999999999999", "."}, 2, "is a larger font than can be drawn"},
      {{"bitmap", "/dev/zero"}, 1, "is no bitmap file"},
      {{"bitmap", file, "--scale", "8"}, 2, "is no scale"},
      {{"bitmap", file, "--scale", "100000/1"}, 2, "pixels"},
      {{"bitmap", file, "--scale", "1/100000"}, 2, "pixels"},
      {{"bitmap", file, "--scale", "99999999999/1"}, 2, "is no scale"},
      {{"bitmap", file, "--scale", "2147483647/1"}, 2, "34359738352 x 17179869176 pixels"},
      {{"bitmap", file, "--repeat", "1x2147483647"}, 2, "1 to 16384 are possible"},
      {{"bitmap", file, "--repeat", "0x4"}, 2, "is no repetition"},
      {{"bitmap", file, "--repeat", "20x4:4,2,1,0,and so on"}, 2, "is no repetition"},
      {{"bitmap", WriteFileBytes("cut.bmp", ReadFileBytes(file).substr(0, 200))}, 1, "cut.bmp is cut short"},
      {{"bitmap", WriteFileBytes("text.bmp", "text")}, 1, "text.bmp is no bitmap file"},
      {{"bitmap", TestFile("none.bmp")}, 1, "cannot read"},
      {{"bitmap", TestFile("")}, 1, "is a folder"},
  };
  for (const auto& item : cases) {
    std::vector<std::string> arguments = item.arguments;
    arguments.insert(arguments.begin(), "draw");
    arguments.insert(arguments.end(), {"-o", output});
    const Outcome outcome = RunOrm(arguments);
    EXPECT_EQ(outcome.code, item.code) << item.reason;
    EXPECT_THAT(outcome.err, HasSubstr(item.reason));
    EXPECT_FALSE(std::filesystem::exists(output));
  }
  const Outcome nowhere = RunOrm({"draw", "bitmap", file, "-o", TestFile("no/such/folder.png")});
  EXPECT_EQ(nowhere.code, 1);
  EXPECT_THAT(nowhere.err, testing::EndsWith("folder.png: The system cannot find the path specified.\n"));
}

}  // namespace
}  // namespace orm::test
