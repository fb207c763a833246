// Layered errors: display text, layers, sharing, and the archived form.
#include <ormutil/Error.h>

#include <functional>
#include <random>
#include <string>

#include "AssertionLog.h"
#include "support/BinaryBytes.h"
#include "support/ScarceMemory.h"

using namespace orm;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

namespace {

std::string Text(const Error& error) {
  return error.Format().GetBegin();
}

Error ImportError(const Binary& data) {
  try {
    Error::Import(data);
  } catch (const Error& error) {
    return error;
  }
  return Error();
}

constexpr const char* kImportFailed = "Failed to deserialize error description from external data.";
constexpr const char* kMixed = "Make sure that you are not mixing incompatible versions of this software.";

}  // namespace

TEST(Error, FormatsItsTopItsMarkAndItsSuggestion) {
  struct Layer {
    DWORD code;
    const char* message;
    bool mark;
  };
  struct Row {
    std::vector<Layer> layers;
    const char* suggestion;
    const char* text;
  };
  const Row table[] = {
      {{}, "", ""},
      {{}, "advice", ""},
      {{{5, "", false}}, "", "00000005"},
      {{{0xE7230001, "", false}}, "C", "e7230001\n\nSuggestion: C"},
      {{{0, "", false}}, "C", ""},
      {{{ERROR_SILENT, "", false}}, "C", ""},
      {{{ERROR_SILENT, "A", false}}, "", "A"},
      {{{1, "B", false}, {1, "A", false}}, "", "A"},
      {{{1, "B", true}, {1, "A", false}}, "C", "A\nB\n\nSuggestion: C"},
      {{{1, "B", false}, {1, "A", true}}, "C", "A\n\nSuggestion: C"},
      {{{1, "B", true}, {1, "A", true}}, "", "A"},
      // A marked layer is shown even when nothing stands above it to show.
      {{{1, "B", true}, {5, "", false}}, "", "\nB"},
      {{{5, "", true}}, "C", "\nSuggestion: C"},
  };
  for (const Row& row : table) {
    Error error;
    for (const Layer& layer : row.layers) error.AddLayer(layer.code, layer.message, layer.mark);
    error.SetSuggestion(row.suggestion);
    EXPECT_EQ(Text(error), row.text);
  }
}

TEST(Error, LayersCountFromTheTop) {
  Error error(2, "first");
  error.AddLayer(ERROR_LAYER_BELOW, "second");
  error.AddLayer(0xE7210001, "third", true);
  error.AddLayer(ERROR_LAYER_BELOW, error.GetMessage(2), false);
  EXPECT_EQ(error.GetLayerCount(), 4u);
  const std::pair<DWORD, const char*> layers[] = {
      {0xE7210001, "first"}, {0xE7210001, "third"}, {2, "second"}, {2, "first"}, {0, ""}};
  for (unsigned i = 0; i < std::size(layers); ++i) {
    EXPECT_EQ(error.GetCode(i), layers[i].first) << i;
    EXPECT_EQ(error.GetMessage(i), layers[i].second) << i;
  }
  EXPECT_EQ(error.GetCode(0xFFFFFFFF), 0u);
  EXPECT_EQ(error.GetMarkedLayer(), 2);
  EXPECT_TRUE(error.HasCode(2));
  EXPECT_FALSE(error.HasCode(3));
  EXPECT_FALSE(Error().HasCode(0));

  test::AssertionLog log;
  Error none;
  none.AddLayer(ERROR_LAYER_BELOW, "on nothing");
  EXPECT_THAT(log.Take(), ElementsAre(test::Failure("src/shared/Error", 97, "!mpData->mLayers.empty()")));
  EXPECT_EQ(none.GetCode(), 0u);
  EXPECT_EQ(Text(none), "on nothing");
}

TEST(Error, CopiesAreIndependent) {
  Error error(5, "shared", true);
  error.SetSuggestion("advice");
  Error cleared = error, extended = error, advised = error;
  cleared.Clear();
  extended.AddLayer(6, "more");
  advised.SetSuggestion("other");
  EXPECT_TRUE(cleared.IsEmpty());
  EXPECT_EQ(Text(extended), "more\nshared\n\nSuggestion: advice");
  EXPECT_EQ(Text(error), "shared\n\nSuggestion: advice");
  error.SetData(Binary("x", 1));
  error.Clear();
  EXPECT_EQ(error.GetMarkedLayer(), -1);
  EXPECT_TRUE(error.GetSuggestion().IsEmpty());
  EXPECT_EQ(error.GetData().GetSize(), 1u) << "the data outlive the layers";
  error = std::move(extended);
  EXPECT_EQ(Text(error), "more\nshared\n\nSuggestion: advice");
}

TEST(Error, SystemErrorsCarryTheSystemsText) {
  String text;
  text.SetSystemError(ERROR_FILE_NOT_FOUND, nullptr);
  const Error plain = MakeSystemError(ERROR_FILE_NOT_FOUND, String(), true);
  EXPECT_EQ(plain.GetLayerCount(), 1u);
  EXPECT_EQ(plain.GetMessage(), text);
  EXPECT_EQ(plain.GetMarkedLayer(), 0);
  Error error(9, "replaced", true);
  error.MakeSystemError(ERROR_FILE_NOT_FOUND, "Cannot open it.", false);
  EXPECT_EQ(error.GetLayerCount(), 2u);
  EXPECT_EQ(error.GetCode(0), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(error.GetMessage(1), text);
  EXPECT_EQ(Text(error), "Cannot open it.");
}

TEST(Error, ExportsFixedBytes) {
  EXPECT_TRUE(Error().Export().IsEmpty());
  EXPECT_TRUE(Error::Import(Binary()).IsEmpty());
  Error error(0x01020304, "A", true);
  error.SetData(Binary("zz", 2));
  const std::string expected =
      "\0\x13\x48\x5B\1\2\0\0\0\2\0\0\0zz\0\0\0\0\0\0\0\0\1\0\0\0\4\3\2\1\2\0\0\0\xE4\x04\0\0A\0"s;
  const Binary data = error.Export();
  EXPECT_EQ(test::BytesOf(data), expected);
  Binary stream;
  WriteArchive writer(stream);
  writer << Error() << uint8_t{7};
  EXPECT_EQ(stream.GetSize(), 6u);
}

TEST(Error, ImportGivesBackWhatWasExported) {
  Error error(5, "first", false);
  error.AddLayer(ERROR_LAYER_BELOW, "", true);
  error.AddLayer(0xE7210001, "top");
  error.SetSuggestion("advice");
  error.SetData(Binary("data", 4));
  const Error read = Error::Import(error.Export());
  EXPECT_EQ(read.GetLayerCount(), 3u);
  for (unsigned i = 0; i < 3; ++i) {
    EXPECT_EQ(read.GetCode(i), error.GetCode(i));
    EXPECT_EQ(read.GetMessage(i), error.GetMessage(i));
  }
  EXPECT_EQ(read.GetMarkedLayer(), 1);
  EXPECT_EQ(Text(read), Text(error));
  EXPECT_EQ(read.Export(), error.Export());
}

TEST(Error, ARecordWithoutLayersBringsItsData) {
  Binary stream;
  WriteArchive writer(stream);
  writer << true << uint32_t{2} << Binary("zz", 2) << "advice" << int32_t{-1} << uint32_t{0};
  const Error read = Error::Import(stream);
  EXPECT_TRUE(read.IsEmpty());
  EXPECT_EQ(read.GetData().GetSize(), 2u);
  EXPECT_EQ(read.GetSuggestion(), "advice");
  EXPECT_EQ(Text(read), "");
  EXPECT_TRUE(read.Export().IsEmpty());
}

TEST(Error, ImportNamesWhatIsWrong) {
  const Binary valid = Error(5, "x", true).Export();
  struct Row {
    unsigned offset;
    unsigned char byte;
    DWORD code;
    const char* message;
  };
  const Row table[] = {
      {5, 3, ERROR_IMPORT_VERSION, "Incompatible version (0x3) of external data was detected."},
      {0, 1, ERROR_ARCHIVE_INVALID, "The data are not valid archive data."},
      {9, 99, ERROR_ARCHIVE_END, "End of data reached during archive operation."},
      // A marked layer that is not there, and more layers than bytes.
      {17, 1, ERROR_ARCHIVE_INVALID, "The data are not valid archive data."},
      {20, 0x80, ERROR_ARCHIVE_INVALID, "The data are not valid archive data."},
      {24, 0x7F, ERROR_ARCHIVE_END, "End of data reached during archive operation."},
  };
  for (const Row& row : table) {
    Binary damaged = valid;
    damaged.Set(row.byte, row.offset, 1);
    const Error error = ImportError(damaged);
    EXPECT_EQ(error.GetLayerCount(), 2u) << row.offset;
    EXPECT_EQ(error.GetCode(0), row.code) << row.offset;
    EXPECT_EQ(error.GetCode(1), row.code) << row.offset;
    EXPECT_EQ(error.GetMessage(0), kImportFailed);
    EXPECT_EQ(error.GetMessage(1), row.message) << row.offset;
    EXPECT_EQ(error.GetMarkedLayer(), 1);
    EXPECT_EQ(error.GetSuggestion(), kMixed);
    // The target of a failed read has no layers; its copies keep theirs.
    Error target(1, "old");
    const Error copy = target;
    ReadArchive reader(damaged);
    EXPECT_THROW(reader >> target, Error);
    EXPECT_TRUE(target.IsEmpty());
    EXPECT_EQ(Text(copy), "old");
  }
}

// Nothing is left over, and the errors that were there are as they were.
TEST(Error, WantOfMemoryLosesNothing) {
  test::AssertionLog log;  // a refused string asserts
  Error error(5, "first", true);
  for (const char* layer : {"second", "third", "fourth"}) error.AddLayer(ERROR_LAYER_BELOW, layer);
  error.SetSuggestion("advice");
  error.SetData(Binary("data", 4));
  const std::string text = Text(error);
  const Binary bytes = error.Export();
  Binary damaged = bytes;
  damaged.Set(3, 5, 1);
  const std::pair<const char*, std::function<void()>> table[] = {
      {"shared layers", [&] { Error(error).AddLayer(ERROR_LAYER_BELOW, "fifth"); }},
      {"own layers",
       [&] {
         Error own = Error::Import(bytes);
         try {
           own.AddLayer(ERROR_LAYER_BELOW, "fifth", true);
         } catch (const std::bad_alloc&) {
           EXPECT_EQ(own.Export(), bytes);
           throw;
         }
       }},
      {"suggestion", [&] { Error(error).SetSuggestion("other"); }},
      {"data", [&] { Error(error).SetData(Binary("other", 5)); }},
      {"system error", [&] { Error().MakeSystemError(5, "context", true); }},
      {"text", [&] { Text(error); }},
      {"export", [&] { error.Export(); }},
      {"import", [&] { EXPECT_EQ(Text(Error::Import(bytes)), text); }},
      {"refused import", [&] { EXPECT_EQ(ImportError(damaged).GetCode(), ERROR_IMPORT_VERSION); }},
  };
  for (const auto& [what, operation] : table) {
    EXPECT_GT(test::RefuseEachAllocation(operation,
                                         [&] {
                                           log.Take();
                                           EXPECT_EQ(Text(error), text);
                                         }),
              0)
        << what;
  }
}

TEST(Error, SurvivesRandomMutations) {
  test::AssertionLog log;      // a string that announces more than there is asserts
  test::refusedSize = 0x4000;  // no count makes anything of that size
  Error error(5, "first", true);
  error.AddLayer(0xE7210001, "top");
  error.SetSuggestion("advice");
  error.SetData(Binary("data", 4));
  const Binary valid = error.Export();
  std::mt19937 random(23);
  int refused = 0;
  for (int round = 0; round < 20000; ++round) {
    Binary data = valid;
    for (auto changes = 1 + random() % 3; changes > 0; --changes) {
      data.Set(static_cast<unsigned char>(random()), static_cast<unsigned>(random()) % data.GetSize(), 1);
    }
    if (random() % 4 == 0) data.SetSize(1 + static_cast<unsigned>(random()) % data.GetSize(), true);
    try {
      // What was taken in is an error like any other.
      const Error read = Error::Import(data);
      const Binary again = read.Export();
      ASSERT_EQ(Error::Import(again).Export(), again);
      ASSERT_LT(read.GetMarkedLayer(), static_cast<int>(read.GetLayerCount()) + (read.IsEmpty() ? 1 : 0));
      Text(read);
    } catch (const Error& failure) {
      ++refused;
      ASSERT_EQ(failure.GetMessage(0), kImportFailed);
      ASSERT_EQ(failure.GetLayerCount(), 2u);
    }
    log.Take();
  }
  EXPECT_GT(refused, 5000);
  EXPECT_LT(refused, 20000);
}
