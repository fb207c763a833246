// Random errors and their archived form: all of an error comes back, nothing that is cut short is taken for
// one.
#include <ormutil/Error.h>

#include <random>
#include <string>

#include "AssertionLog.h"

using namespace orm;

namespace {

String RandomText(std::mt19937& rRandom) {
  std::string text(rRandom() % 3 == 0 ? 0 : rRandom() % 40, '\0');
  for (char& c : text) c = static_cast<char>(1 + rRandom() % 255);
  return text.c_str();
}

Error RandomError(std::mt19937& rRandom) {
  // The lowest layer has none below whose code it could take over.
  Error error(static_cast<DWORD>(rRandom()), RandomText(rRandom), rRandom() % 3 == 0);
  for (auto layers = rRandom() % 6; layers > 0; --layers) {
    const DWORD code = rRandom() % 3 == 0 ? ERROR_LAYER_BELOW : static_cast<DWORD>(rRandom());
    error.AddLayer(code, RandomText(rRandom), rRandom() % 3 == 0);
  }
  if (rRandom() % 2 == 0) error.SetSuggestion(RandomText(rRandom));
  const String data = RandomText(rRandom);
  if (rRandom() % 2 == 0) error.SetData(Binary(data.GetBegin(), static_cast<unsigned>(data.GetLength())));
  return error;
}

void ExpectSame(const Error& read, const Error& error) {
  ASSERT_EQ(read.GetLayerCount(), error.GetLayerCount());
  for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
    ASSERT_EQ(read.GetCode(i), error.GetCode(i));
    ASSERT_EQ(read.GetMessage(i), error.GetMessage(i));
  }
  ASSERT_EQ(read.GetMarkedLayer(), error.GetMarkedLayer());
  ASSERT_EQ(read.GetSuggestion(), error.GetSuggestion());
  ASSERT_EQ(read.GetData(), error.GetData());
  ASSERT_EQ(read.Format(), error.Format());
  ASSERT_EQ(read.Export(), error.Export());
}

}  // namespace

TEST(Error, AnyErrorSurvivesItsArchive) {
  test::AssertionLog log;  // a string that ends early asserts
  std::mt19937 random(8);
  for (int round = 0; round < 5'000 && !testing::Test::HasFatalFailure(); ++round) {
    const Error error = RandomError(random);
    const Binary exported = error.Export();
    ExpectSame(Error::Import(exported), error);
    const Binary cut(exported.GetData(), 1 + static_cast<unsigned>(random()) % (exported.GetSize() - 1));
    ASSERT_THROW(Error::Import(cut), Error) << "cut to " << cut.GetSize() << " of " << exported.GetSize();
  }
}
