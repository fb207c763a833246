// A process that does everything that the library shares between processes, in random order, until it is
// killed or told to end: torture_worker ACCOUNT SEED. It ends with 3 and a message when something is wrong.
#include <dirent.h>
#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>
#include <ormutil/PersistentProperties.h>
#include <ormutil/Trace.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

#include "Ledger.h"
#include "Operations.h"
#include "classes/ErrorText.h"
#include "classes/fixtures/Fixture.h"
#include "support/BinaryBytes.h"

namespace torture {
namespace {

namespace fs = std::filesystem;
using orm::FacePtr;
using orm::GetClassMgr;
using orm::PersistentProperties;
using orm::String;

constinit orm::TraceArea area{"torture"};

[[noreturn]] void Fail(const std::string& text) {
  throw std::runtime_error(text);
}

void Require(bool condition, const std::string& text) {
  if (!condition) Fail(text);
}

unsigned CountEntries(const char* folder) {
  unsigned count = 0;
  DIR* open = opendir(folder);
  if (open == nullptr) return 0;
  while (readdir(open) != nullptr) ++count;
  closedir(open);
  return count;
}

// Mappings of files; the heap's come and go as it likes.
unsigned CountMappings() {
  unsigned count = 0;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) count += line.find('/') != std::string::npos;
  return count;
}

// Puts a copy of the fixture in the place of `target` in one step, with that time.
void Replace(const std::string& fixture, const std::string& target, time_t time) {
  const std::string temporary = target + ".new" + std::to_string(getpid());
  fs::copy_file(std::string(ORM_FIXTURES) + "/" + fixture + ".dll", temporary,
                fs::copy_options::overwrite_existing);
  const timespec times[2] = {{time, 0}, {time, 0}};
  utimensat(AT_FDCWD, temporary.c_str(), times, 0);
  fs::rename(temporary, target);
}

class Worker {
 public:
  Worker(unsigned account, unsigned seed)
      : mNumber(account), mLedger(Ledger::Open()), mrAccount(mLedger.accounts[account]), mRandom(seed) {}

  int Run() {
    HoldNamedObjects();
    mBag.Open(BagName(mNumber).c_str(), IsUserBag(mNumber));
    for (unsigned round = 1; mLedger.isClosing == 0; ++round) {
      Do(PickOperation());
      if (round % 64 == 0) Do(Operation::Measure);
    }
    mrAccount.operation = static_cast<unsigned>(Operation::End);
    return 0;
  }

 private:
  unsigned Below(unsigned limit) { return static_cast<unsigned>(mRandom()) % limit; }

  Operation PickOperation() {
    static constexpr Operation DICE[] = {Operation::WriteBag,  Operation::WriteBag, Operation::WriteBag,
                                         Operation::ReadBag,   Operation::ReadBag,  Operation::WriteLine,
                                         Operation::Lock,      Operation::Lock,     Operation::UseClasses,
                                         Operation::ReplaceOwn};
    return Below(40) == 0 ? Operation::ReplaceCommon : DICE[Below(std::size(DICE))];
  }

  void Do(Operation operation) {
    mrAccount.operation = static_cast<unsigned>(operation);
    ++mrAccount.operations;
    switch (operation) {
      case Operation::WriteBag:
        mrAccount.bag.Advance([this](uint32_t number) { WriteBag(number); });
        break;
      case Operation::ReadBag:
        ReadBag(Below(MOST_WORKERS));
        break;
      case Operation::WriteLine:
        mrAccount.line.Advance([this](uint32_t number) { WriteLine(number); });
        break;
      case Operation::UseClasses:
        UseClasses();
        break;
      case Operation::ReplaceCommon:
        Replace(Below(2) ? "alpha" : "alpha_renewed", CommonFolder() + "/changing.dll",
                FIRST_STAMP + static_cast<time_t>(Below(1'000'000)));
        break;
      case Operation::ReplaceOwn:
        mrAccount.stamp.Advance([this](uint32_t number) { ReplaceOwn(number); });
        break;
      case Operation::Lock:
        Lock();
        break;
      default:
        Measure();
    }
    mrAccount.operation = 0;
  }

  void HoldNamedObjects() {
    const unsigned incarnation = mrAccount.incarnation;
    const HANDLE mutex = CreateMutexA(nullptr, TRUE, OwnMutexName(mNumber, incarnation).c_str());
    const HANDLE section = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65536,
                                              OwnSectionName(mNumber, incarnation).c_str());
    Require(mutex != nullptr && section != nullptr, "cannot make named objects");
    void* view = MapViewOfFile(section, FILE_MAP_ALL_ACCESS, 0, 0, 0);
    Require(view != nullptr, "cannot map its section");
    std::memset(view, static_cast<int>(mNumber), 65536);
    mCommon = CreateMutexA(nullptr, FALSE, "torture/common");
    Require(mCommon != nullptr, "cannot make the common mutex");
  }

  // Text, bytes, number, in this order: a reader that finds a number finds the others at least as new.
  void WriteBag(uint32_t number) {
    const std::string text = ValueText(number);
    mBag.SetString("text", text.c_str());
    mBag.SetBinary("bytes", test::BinaryOf(text));
    mBag.SetNumber("number", number);
    if (number % 8 == 0) {
      mBag.SetNumber("passing", number);
      mBag.Delete("passing");
    }
  }

  static void ReadBag(unsigned account) {
    PersistentProperties bag;
    bag.Open(BagName(account).c_str(), IsUserBag(account));
    const DWORD number = bag.GetNumber("number", 0);
    const std::string text = bag.GetString("text", "").GetBegin();
    if (!text.empty()) {
      const auto value = static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
      Require(text == ValueText(value), "a torn text: " + text);
      Require(value >= number, "a text that is older than its number");
    }
    for (const String& name : bag.EnumProperties()) {
      const std::string found = name.GetBegin();
      Require(found == "number" || found == "text" || found == "bytes" || found == "passing",
              "a property that nobody set: " + found);
    }
  }

  void WriteLine(uint32_t number) {
    const std::string padding(Below(150), 'x');
    orm::TraceWrite(area, orm::TRACE_WARNING, false, "Worker.cpp", 1, "w%u n%u %s.", mNumber, number,
                    padding.c_str());
  }

  void UseClasses() {
    const DWORD cookie = GetClassMgr()->Register(ToPath(CommonFolder()).c_str());
    std::vector<String> ids;
    GetClassMgr()->EnumClasses(Numbered::FACE_ID, ids);
    Require(!ids.empty(), "no class of the common folder is registered");
    const String id = ids[Below(static_cast<unsigned>(ids.size()))];
    {
      const FacePtr<Numbered> object(id, "");
      const int number = object->GetNumber();
      const bool isAlpha = std::strcmp(id.GetBegin(), "CID_Alpha") == 0;
      Require(number >= 1 && number <= (isAlpha ? 2 : 10), "an object with a wrong number");
    }
    if (Below(4) == 0) GetClassMgr()->UnloadLibraries(true);
    GetClassMgr()->Unregister(cookie);
  }

  // A new version of the library that only this worker touches, known to the cache when this returns.
  void ReplaceOwn(uint32_t number) {
    const unsigned version = number % 3;
    const char* fixtures[] = {"plain9", "forty", "plain10"};
    const char* classes[] = {"CID_Plain9", "CID_Forty0039", "CID_Plain10"};
    Replace(fixtures[version], OwnLibrary(mNumber), FIRST_STAMP + static_cast<time_t>(number));
    const DWORD cookie = GetClassMgr()->Register(ToPath(OwnLibrary(mNumber)).c_str());
    Require(GetClassMgr()->IsClassRegistered(classes[version]),
            "the class of a new version is not registered");
    GetClassMgr()->Unregister(cookie);
  }

  void Lock() {
    const DWORD wait = WaitForSingleObject(mCommon, INFINITE);
    Require(wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED, "a wait that failed");
    const uint32_t former = mLedger.owner.exchange(Signature());
    // Only a dead owner leaves its signature, and then the wait tells of it.
    Require(former == 0 || wait == WAIT_ABANDONED, "two owners of one mutex");
    for (unsigned spin = Below(2000); spin > 0; --spin) asm volatile("");
    Require(mLedger.owner.exchange(0) == Signature(), "somebody else came into the common mutex");
    Require(ReleaseMutex(mCommon), "a mutex that cannot be released");
  }

  uint32_t Signature() const { return (mrAccount.incarnation + 1) * MOST_WORKERS + mNumber; }

  // With nothing in use: descriptors and mappings must be as many as before, once all has been used.
  void Measure() {
    GetClassMgr()->UnloadLibraries(true);
    const unsigned descriptors = CountEntries("/proc/self/fd"), mappings = CountMappings();
    if (++mMeasurements <= 4) {
      mDescriptors = std::max(mDescriptors, descriptors);
      mMappings = std::max(mMappings, mappings);
      return;
    }
    Require(descriptors <= mDescriptors, "its descriptors grew from " + std::to_string(mDescriptors) +
                                             " to " + std::to_string(descriptors));
    Require(mappings <= mMappings, "its mappings of files grew from " + std::to_string(mMappings) + " to " +
                                       std::to_string(mappings));
  }

  const unsigned mNumber;
  Ledger& mLedger;
  Account& mrAccount;
  std::mt19937 mRandom;
  PersistentProperties mBag;
  HANDLE mCommon = nullptr;
  unsigned mMeasurements = 0, mDescriptors = 0, mMappings = 0;
};

}  // namespace
}  // namespace torture

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const auto account = static_cast<unsigned>(std::atoi(arguments[1]));
  std::string fault;
  try {
    return torture::Worker(account, static_cast<unsigned>(std::strtoul(arguments[2], nullptr, 10))).Run();
  } catch (const orm::Error& error) {
    fault = Layers(error);
  } catch (const std::exception& exception) {
    fault = exception.what();
  }
  std::fprintf(stderr, "worker %u: %s\n", account, fault.c_str());
  return 3;
}
