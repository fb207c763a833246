// Strings, archives and errors beside their peers.
#include <ormutil/Archive.h>
#include <ormutil/Error.h>

#include <cereal/archives/binary.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "harness/Rooms.h"

namespace {

using namespace orm;

constexpr const char* kText = "a text of sixty-four bytes, which is longer than any short form.";
constexpr size_t kRecords = 1000;
constexpr unsigned kBytes = 32;
constexpr unsigned kRoom = 64;  // of a record in a stream

void CopyStrings(size_t n) {
  static const String text(kText);
  while (n--) {
    const String copy(text);
    bench::Keep(copy);
  }
}

void CopyStandardStrings(size_t n) {
  static const std::string text(kText);
  while (n--) {
    const std::string copy(text);
    bench::Keep(copy);
  }
}

// In a process with threads the counters are interlocked. A process that has had a second thread never goes
// back, and later rows would be measured differently; clearing the word that tells asks for the same code.
void CopyStringsBesideThreads(size_t n) {
  const char known = __libc_single_threaded;
  __libc_single_threaded = 0;
  CopyStrings(n);
  __libc_single_threaded = known;
}

void CountUpAndDown(size_t n) {
  static LONG counter = 1;
  LONG* address = &counter;
  while (n--) {
    bench::Keep(address);
    InterlockedIncrement(address);
    if (InterlockedDecrement(address) == 0) std::abort();
  }
}

// The record of every archive row: a number, a string and 32 bytes. Each round makes its stream, with room
// for all records where the side can be told so, and reads into the same variables again.
const unsigned char kPayload[kBytes] = {1, 2, 3};

void ArchiveRecords(size_t n) {
  static const String text("record name");
  static const Binary payload(kPayload, kBytes);
  while (n--) {
    Binary stream;
    WriteArchive writer(stream);
    writer.Reserve(kRecords * kRoom);
    for (uint32_t i = 0; i < kRecords; ++i) writer << i << text << payload;
    ReadArchive reader(stream);
    uint32_t sum = 0, number = 0;
    String name;
    Binary bytes;
    for (size_t i = 0; i < kRecords; ++i) {
      reader >> number >> name >> bytes;
      sum += number + bytes.GetData()[1];
    }
    bench::Keep(sum);
  }
}

void CerealRecords(size_t n) {
  static const std::string text("record name");
  static const std::vector<unsigned char> payload(kPayload, kPayload + kBytes);
  while (n--) {
    std::stringstream stream;
    {
      cereal::BinaryOutputArchive writer(stream);
      for (uint32_t i = 0; i < kRecords; ++i) writer(i, text, payload);
    }
    cereal::BinaryInputArchive reader(stream);
    uint32_t sum = 0, number = 0;
    std::string name;
    std::vector<unsigned char> bytes;
    for (size_t i = 0; i < kRecords; ++i) {
      reader(number, name, bytes);
      sum += number + bytes[1];
    }
    bench::Keep(sum);
  }
}

// The peer by hand: the same layout, no checks, one allocation for the stream.
void CopyRecordsByHand(size_t n) {
  static const std::string text("record name");
  static const std::vector<unsigned char> payload(kPayload, kPayload + kBytes);
  const auto put = [](std::vector<unsigned char>& stream, const void* data, size_t size) {
    const size_t end = stream.size();
    stream.resize(end + size);
    std::memcpy(stream.data() + end, data, size);
  };
  const auto get = [](const unsigned char*& pos, void* data, size_t size) {
    std::memcpy(data, pos, size);
    pos += size;
  };
  while (n--) {
    std::vector<unsigned char> stream;
    stream.reserve(kRecords * kRoom);
    for (uint32_t i = 0; i < kRecords; ++i) {
      const uint32_t size = static_cast<uint32_t>(text.size() + 1), codePage = 1252, count = kBytes;
      put(stream, &i, 4);
      put(stream, &size, 4);
      put(stream, &codePage, 4);
      put(stream, text.c_str(), size);
      put(stream, &count, 4);
      put(stream, payload.data(), count);
    }
    const unsigned char* pos = stream.data();
    uint32_t sum = 0, number, size, codePage, count;
    std::string name;
    std::vector<unsigned char> bytes;
    for (size_t i = 0; i < kRecords; ++i) {
      get(pos, &number, 4);
      get(pos, &size, 4);
      get(pos, &codePage, 4);
      name.assign(reinterpret_cast<const char*>(pos), size - 1);
      pos += size;
      get(pos, &count, 4);
      bytes.assign(pos, pos + count);
      pos += count;
      bench::Keep(name);
      sum += number + bytes[1];
    }
    bench::Keep(sum);
  }
}

void ThrowLayers(size_t n) {
  static const String messages[] = {"the inmost failure", "layer one above it", "layer two above it",
                                    "layer three above it"};
  while (n--) {
    try {
      Error error(5, messages[0], true);
      for (int i = 1; i <= 3; ++i) error.AddLayer(ERROR_LAYER_BELOW, messages[i]);
      throw error;
    } catch (const Error& error) {
      const String text = error.Format();
      bench::Keep(text);
    }
  }
}

void RethrowLayers(size_t n) {
  static const String messages[] = {"the inmost failure", "layer one above it", "layer two above it",
                                    "layer three above it"};
  struct Thrower {
    static void Run(int depth) {
      if (depth == 0) throw Error(5, messages[0], true);
      try {
        Run(depth - 1);
      } catch (Error& error) {
        error.AddLayer(ERROR_LAYER_BELOW, messages[depth]);
        throw;
      }
    }
  };
  while (n--) {
    try {
      Thrower::Run(3);
    } catch (const Error& error) {
      const String text = error.Format();
      bench::Keep(text);
    }
  }
}

void NestExceptions(size_t n) {
  static const char* const messages[] = {"the inmost failure", "layer one above it", "layer two above it",
                                         "layer three above it"};
  struct Thrower {
    static void Run(int depth) {
      if (depth == 0) throw std::runtime_error(messages[0]);
      try {
        Run(depth - 1);
      } catch (...) {
        std::throw_with_nested(std::runtime_error(messages[depth]));
      }
    }
    static void Join(const std::exception& exception, std::string& text) {
      text += exception.what();
      text += '\n';
      try {
        std::rethrow_if_nested(exception);
      } catch (const std::exception& inner) {
        Join(inner, text);
      }
    }
  };
  while (n--) {
    try {
      Thrower::Run(3);
    } catch (const std::exception& exception) {
      std::string text;
      Thrower::Join(exception, text);
      bench::Keep(text);
    }
  }
}

}  // namespace

void AddBaseRows(bench::Table& table) {
  table.Add(bench::Row{.name = "copy and drop a 64-byte string",
                       .peer = "std::string",
                       .goal = 0.4,
                       .ours = CopyStrings,
                       .theirs = CopyStandardStrings,
                       .note = "in a process of one thread; with more, see the next row: the two interlocked "
                               "operations alone may cost as much as the peer"});
  table.Add(bench::Row{.name = "copy and drop a 64-byte string, beside other threads",
                       .peer = "one interlocked increment and one decrement",
                       .goal = 1.3,
                       .ours = CopyStringsBesideThreads,
                       .theirs = CountUpAndDown,
                       .note = "the peer is the physical limit of a counted copy"});
  table.Add(bench::Row{.name = "write and read 1,000 records through an archive",
                       .peer = "cereal, binary",
                       .goal = 0.3,
                       .ours = ArchiveRecords,
                       .theirs = CerealRecords,
                       .note = "a record is a number, a string and 32 bytes, read into the same three "
                               "variables; the peer writes into a stream of its own, as it is used"});
  table.Add(bench::Row{.name = "write and read 1,000 records through an archive, against the limit",
                       .peer = "memcpy into a reserved std::vector, by hand",
                       .goal = 2,
                       .ours = ArchiveRecords,
                       .theirs = CopyRecordsByHand,
                       .note = "the peer checks nothing; its strings fit their short form"});
  table.Add(bench::Row{.name = "throw, add three layers, catch, format",
                       .peer = "std::throw_with_nested, three levels, text joined",
                       .goal = 1.0,
                       .ours = RethrowLayers,
                       .theirs = NestExceptions,
                       .note = "a layer at each of three levels on the way up"});
  table.Add(bench::Row{.name = "throw an error with three layers, catch, format",
                       .peer = "std::throw_with_nested, three levels, text joined",
                       .goal = 1.0,
                       .ours = ThrowLayers,
                       .theirs = NestExceptions,
                       .note = "all layers are added before the one throw"});
}
