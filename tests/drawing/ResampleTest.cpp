// The resampler: the known figures, and equality with the plain walk over all pieces.
#include "BitmapResampler.h"
#include "drawing/Drawing.h"
#include "drawing/ResampleReference.h"

namespace test {
namespace {

class ResampleTest : public DrawingTest {
 protected:
  // A line of gray values, scaled along one direction, in buffer order.
  std::vector<unsigned> ScaleLine(const std::vector<unsigned>& line, int newLength, bool downwards) {
    const int length = static_cast<int>(line.size());
    const auto gray = [&](int x, int y) {
      // Rows are stored from the bottom.
      const unsigned value = line[static_cast<size_t>(downwards ? length - 1 - y : x)];
      return value << 16 | value << 8 | value;
    };
    const Resource resource =
        downwards ? Resource::Picture(1, length, gray) : Resource::Picture(length, 1, gray);
    const orm::StretchInfo scale =
        downwards ? orm::StretchInfo{3, 1, newLength, length} : orm::StretchInfo{newLength, length, 3, 1};
    orm::Bitmap bitmap;
    EXPECT_TRUE(Load(bitmap, resource, scale));
    const Pixels pixels(bitmap);
    std::vector<unsigned> result;
    for (int i = 0; i < newLength; ++i)
      result.push_back((downwards ? pixels.At(1, newLength - 1 - i) : pixels.At(i, 1)) & 0xFF);
    return result;
  }
};

TEST_F(ResampleTest, KnownLines) {
  const std::vector<unsigned> line{0, 100, 200, 250};
  for (const bool downwards : {false, true}) {
    EXPECT_THAT(ScaleLine(line, 8, downwards),
                testing::ElementsAre(50u, 100u, 150u, 200u, 225u, 250u, 250u, 250u));
    EXPECT_THAT(ScaleLine(line, 2, downwards), testing::ElementsAre(150u, 250u));
    EXPECT_THAT(ScaleLine(line, 4, downwards), testing::ElementsAre(100u, 200u, 250u, 250u))
        << "a factor of 1 beside another one moves the picture by a pixel";
  }
}

void ExpectEqualToReference(int W, int H, int w, int h, std::mt19937& random, int contents) {
  const auto stride = static_cast<size_t>(RowStride(W));
  std::vector<std::uint8_t> source(stride * static_cast<size_t>(H) + orm::ResampleJob::SOURCE_SPARE);
  for (std::uint8_t& byte : source)
    byte = static_cast<std::uint8_t>(contents == 0   ? random()
                                     : contents == 1 ? 255
                                     : contents == 2 ? random() % 2 * 255
                                                     : 0);
  const std::vector<std::uint8_t> expected = ResamplePlainly({source.data(), W, H, w, h});
  const size_t pieceCount = static_cast<size_t>(W) + static_cast<size_t>(w);
  for (const size_t lanes : {2u, 4u, 8u}) {
    std::vector<std::uint8_t> target(expected.size());
    std::vector<float> sums(orm::ResampleJob::Pad(static_cast<size_t>(w)) * 3), pieces(pieceCount);
    orm::Resample(
        {source.data(), W, H, RowStride(W), target.data(), w, h, RowStride(w), sums.data(), pieces.data()},
        lanes);
    ASSERT_EQ(target, expected) << W << "x" << H << " to " << w << "x" << h << ", contents " << contents
                                << ", " << lanes << " lanes";
  }
}

TEST_F(ResampleTest, EqualsThePlainWalkToTheByte) {
  std::mt19937 random(8);
  const auto upTo = [&](unsigned most) { return 1 + static_cast<int>(random() % most); };
  for (int round = 0; round < 2000; ++round) {
    int W = upTo(60), H = upTo(40), w = upTo(60), h = upTo(40);
    switch (round % 8) {
      case 0:
        W = 1;
        break;
      case 1:
        H = 1, w = 1;
        break;
      case 2:
        w = W;
        break;
      case 3:
        h = H;
        break;
      case 4:
        W = upTo(5), w = upTo(900);
        break;
      case 5:
        H = upTo(900), h = upTo(5);
        break;
      case 6:
        W = w * upTo(4), H = h * upTo(4);
        break;
      default:
        break;
    }
    ExpectEqualToReference(W, H, w, h, random, round % 5 ? 0 : round / 5 % 4);
    if (HasFatalFailure()) return;
  }
}

TEST_F(ResampleTest, HugeFactors) {
  std::mt19937 random(9);
  ExpectEqualToReference(20000, 1, 3, 1, random, 0);
  ExpectEqualToReference(3, 2, 20000, 3, random, 0);
  ExpectEqualToReference(1, 20000, 1, 7, random, 0);
  ExpectEqualToReference(7, 1, 1, 5000, random, 0);
  ExpectEqualToReference(1, 1, 1000, 300, random, 0);
  ExpectEqualToReference(9973, 3, 9967, 2, random, 0);
}

// Through the bitmap: what is put into the section is what the walk gives.
TEST_F(ResampleTest, LoadedBitmapsAreResampled) {
  const auto color = [](int x, int y) {
    return static_cast<std::uint32_t>(x * 0x051301 + y * 0x020B1D) & 0xFFFFFF;
  };
  const Resource resource = Resource::Picture(33, 17, color);
  orm::Bitmap bitmap;
  ASSERT_TRUE(Load(bitmap, resource, {120, 96, 3, 2}));
  const Pixels pixels(bitmap);
  ASSERT_EQ(pixels.width, 41);
  ASSERT_EQ(pixels.height, 26);
  EXPECT_EQ(bitmap.GetWidth(), 33) << "the resource's size is kept";
  EXPECT_EQ(bitmap.GetHeight(), 17);
  const std::vector<std::uint8_t> expected = ResamplePlainly({resource.bytes.data() + 40, 33, 17, 41, 26});
  for (int y = 0; y < 26; ++y)
    for (int x = 0; x < 41; ++x) {
      const std::uint8_t* pixel = expected.data() + (25 - y) * RowStride(41) + x * 3;
      ASSERT_EQ(pixels.At(x, y), pixel[0] | static_cast<std::uint32_t>(pixel[1]) << 8 |
                                     static_cast<std::uint32_t>(pixel[2]) << 16);
    }
}

}  // namespace
}  // namespace test
