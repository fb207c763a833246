// Random archives against an encoder of the test's own, in both byte orders.
#include <ormutil/Archive.h>

#include <random>
#include <string>
#include <variant>
#include <vector>

#include "AssertionLog.h"
#include "support/BinaryBytes.h"

using namespace orm;

namespace {

using Item = std::variant<bool, uint8_t, uint16_t, uint32_t, uint64_t, Binary, String>;

std::string RandomBytes(std::mt19937& rRandom, unsigned lowest) {
  std::string bytes(rRandom() % 4 == 0 ? 0 : rRandom() % 300, '\0');
  for (char& byte : bytes) byte = static_cast<char>(lowest + rRandom() % (256 - lowest));
  return bytes;
}

Item RandomItem(std::mt19937& rRandom) {
  const uint64_t number = (uint64_t{rRandom()} << 32 | rRandom()) >> rRandom() % 64;
  const std::string bytes = RandomBytes(rRandom, 0);
  switch (rRandom() % 7) {
    case 0:
      return number % 2 != 0;
    case 1:
      return static_cast<uint8_t>(number);
    case 2:
      return static_cast<uint16_t>(number);
    case 3:
      return static_cast<uint32_t>(number);
    case 4:
      return number;
    case 5:
      return test::BinaryOf(bytes);
    default:
      return String(RandomBytes(rRandom, 1).c_str());
  }
}

std::string Number(uint64_t value, size_t width, bool isBig) {
  std::string bytes(width, '\0');
  for (size_t i = 0; i < width; ++i) bytes[isBig ? width - 1 - i : i] = static_cast<char>(value >> i * 8);
  return bytes;
}

struct Encoder {
  bool isBig;

  template <class T>
  std::string operator()(T value) const {
    return Number(value, sizeof value, isBig);
  }
  std::string operator()(const Binary& data) const {
    const auto* begin = reinterpret_cast<const char*>(data.GetData());
    return Number(data.GetSize(), 4, isBig) +
           std::string(begin, data.IsEmpty() ? begin : begin + data.GetSize());
  }
  // Its count, which takes in the closing zero, and its code page are little-endian in every archive.
  std::string operator()(const String& text) const {
    if (text.IsEmpty()) return Number(0, 4, false);
    const std::string bytes = text.GetBegin();
    return Number(bytes.size() + 1, 4, false) + Number(1252, 4, false) + bytes + '\0';
  }
};

void ExpectItems(const std::string& bytes, const std::vector<Item>& items) {
  const Binary input(bytes.data(), static_cast<unsigned>(bytes.size()));
  ReadArchive reader(input);
  for (const Item& item : items) {
    std::visit(
        [&]<class T>(const T& expected) {
          T value{};
          reader >> value;
          ASSERT_EQ(value, expected) << "a value of kind " << item.index();
        },
        item);
  }
  ASSERT_TRUE(reader.IsEof());
}

}  // namespace

TEST(Archive, AnyValuesReadBackInBothByteOrders) {
  std::mt19937 random(16);
  for (int round = 0; round < 3'000 && !testing::Test::HasFatalFailure(); ++round) {
    std::vector<Item> items;
    for (auto count = 1 + random() % 20; count > 0; --count) items.push_back(RandomItem(random));
    Binary stream;
    WriteArchive writer(stream);
    std::string little("\0\x13\x48\x5B", 4), big("\x10\x13\x48\x5B", 4);
    for (const Item& item : items) {
      std::visit([&](const auto& value) { writer << value; }, item);
      little += std::visit(Encoder{false}, item);
      big += std::visit(Encoder{true}, item);
    }
    ASSERT_EQ(stream.RawCompare(little.data(), static_cast<unsigned>(little.size())), 0);
    ExpectItems(little, items);
    ExpectItems(big, items);
  }
}
