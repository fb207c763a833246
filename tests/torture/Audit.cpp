#include "Audit.h"

#include <ormutil/Error.h>
#include <ormutil/PersistentProperties.h>
#include <win32/registryx.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "ClassCacheBlock.h"
#include "ClassRecord.h"
#include "classes/ErrorText.h"

namespace torture {
namespace {

constexpr DWORD PATIENCE = 30'000;  // milliseconds; what takes longer hangs, on however slow a machine

void Require(bool condition, const std::string& text) {
  if (!condition) throw Fault(text);
}

std::string Worker(unsigned account) {
  return "worker " + std::to_string(account) + ": ";
}

// A handle that closes itself.
struct Handle {
  explicit Handle(HANDLE opened) : value(opened), error(GetLastError()) {}
  ~Handle() {
    if (value != nullptr) CloseHandle(value);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  const HANDLE value;
  const DWORD error;
};

// The block as it is between two uses, in memory of this process.
std::vector<BYTE> CopyBlock() {
  const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, "zr41_clsmgr_mtx"));
  const Handle mapping(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, "zr41_clsmgr_map"));
  Require(mutex.value != nullptr && mapping.value != nullptr, "the class cache is not available");
  auto* view = static_cast<BYTE*>(MapViewOfFile(mapping.value, FILE_MAP_ALL_ACCESS, 0, 0, 0));
  Require(view != nullptr, "the class cache cannot be mapped");
  const DWORD wait = WaitForSingleObject(mutex.value, PATIENCE);
  Require(wait != WAIT_TIMEOUT, "the class cache's mutex stays locked");
  // As any process of the library does that gets the mutex from a dead owner.
  if (wait == WAIT_ABANDONED) orm::CacheBlock(view).RepairIfDamaged();
  std::vector<BYTE> bytes(view, view + orm::CacheBlock::SIZE);
  ReleaseMutex(mutex.value);
  UnmapViewOfFile(view);
  return bytes;
}

uint64_t StampOf(uint32_t number) {
  return (static_cast<uint64_t>(FIRST_STAMP) + number + 11'644'473'600ULL) * 10'000'000ULL;
}

}  // namespace

void Audit::Dead(unsigned account) {
  Names(account);
  Bag(account);
}

void Audit::Machine() {
  Cache();
  Log();
  if (mRounds++ % 16 == 0) Registry();
}

void Audit::Registry() {
  for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
    std::string faults;
    const auto report = [](void* context, const char* fault) {
      *static_cast<std::string*>(context) += std::string("; ") + fault;
    };
    const LSTATUS code = OrmRegCheckStore(root, report, &faults);
    Require(code == ERROR_SUCCESS, "the registry's check says " + std::to_string(code) + faults);
  }
}

void Audit::Names(unsigned account) {
  const unsigned incarnation = mrLedger.accounts[account].incarnation;
  const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, OwnMutexName(account, incarnation).c_str()));
  const Handle section(
      OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, OwnSectionName(account, incarnation).c_str()));
  Require(mutex.value == nullptr && mutex.error == ERROR_FILE_NOT_FOUND,
          Worker(account) + "its mutex outlived it");
  Require(section.value == nullptr && section.error == ERROR_FILE_NOT_FOUND,
          Worker(account) + "its section outlived it");
}

void Audit::Bag(unsigned account) {
  const Series& series = mrLedger.accounts[account].bag;
  if (series.acknowledged == 0) return;
  try {
    orm::PersistentProperties bag;
    bag.Open(BagName(account).c_str(), IsUserBag(account));
    const uint32_t number = bag.GetNumber("number");
    const std::string text = bag.GetString("text").GetBegin();
    const orm::Binary bytes = bag.GetBinary("bytes");
    const auto value = static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
    const std::string found(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
    const auto middle = static_cast<uint32_t>(std::strtoul(found.c_str(), nullptr, 10));
    Require(series.Allows(number) && series.Allows(value) && value >= middle && middle >= number,
            Worker(account) + "it acknowledged " + std::to_string(series.acknowledged) + ", the bag has " +
                std::to_string(number) + ", " + std::to_string(middle) + ", " + std::to_string(value));
    Require(text == ValueText(value) && found == ValueText(middle), Worker(account) + "a torn value");
  } catch (const orm::Error& error) {
    throw Fault(Worker(account) + "its bag cannot be read: " + Layers(error));
  }
}

// Every complete line that has come since the last look is one that somebody wrote as a whole, and every line
// that was acknowledged is there. The end of the file may be half a line while its writer, dead or alive, has
// no successor yet.
void Audit::Log() {
  std::vector<uint32_t> acknowledged;
  for (const Account& account : mrLedger.accounts) acknowledged.push_back(account.line.acknowledged);
  std::ifstream file(std::string(std::getenv("ORM_MACHINE")) + "/drives/c:/Windows/Temp/torture.log",
                     std::ios::binary);
  file.seekg(static_cast<std::streamoff>(mrLedger.logChecked.load()));
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  size_t begin = 0;
  for (size_t end; (end = content.find('\n', begin)) != std::string::npos; begin = end + 1) {
    Require(end > begin && content[end - 1] == '\r', "a log line without its ending");
    Line(content.substr(begin, end - 1 - begin));
  }
  mrLedger.logChecked += begin;
  for (unsigned i = 0; i < MOST_WORKERS; ++i) {
    Require(mrLedger.accounts[i].seenLine >= acknowledged[i],
            Worker(i) + "the log lacks its line " + std::to_string(acknowledged[i]));
  }
}

void Audit::Line(const std::string& line) {
  const std::string fault = "a strange line in the log: " + line;
  Require(!line.empty(), fault);
  if (line.compare(0, 8, "ormutil|") == 0) return;  // the library's own, cut where they are too long
  unsigned number = 0;
  uint32_t count = 0;
  int end = 0;
  Require(std::sscanf(line.c_str(), "torture_worker|w%u n%u %n", &number, &count, &end) == 2 && end > 0 &&
              number < MOST_WORKERS && line.back() == '.' &&
              line.find_first_not_of('x', static_cast<size_t>(end)) == line.size() - 1,
          fault);
  const uint32_t before = mrLedger.accounts[number].seenLine.exchange(count);
  Require(count == before + 1,
          Worker(number) + "line " + std::to_string(count) + " follows line " + std::to_string(before));
}

void Audit::Cache() {
  std::vector<uint32_t> before;
  for (const Account& account : mrLedger.accounts) before.push_back(account.stamp.acknowledged);
  std::vector<BYTE> bytes = CopyBlock();
  const orm::CacheBlock block(bytes.data());
  Require(block.HasMagic() && orm::CacheDirectory(orm::CacheBytes(bytes.data())).Load(),
          "the class cache is damaged");
  for (unsigned i = 0; i < MOST_WORKERS; ++i) {
    const auto place = block.Find(orm::CacheKey(ToPath(OwnLibrary(i)).c_str()));
    if (before[i] == 0) continue;
    const uint32_t now = mrLedger.accounts[i].stamp.intended;
    if (!place.found) {
      // Only the record that is being replaced may be missing for that time.
      Require(now != before[i], Worker(i) + "the cache lost its library");
      continue;
    }
    const uint64_t stamp = place.record.stamp;
    Require((stamp >= StampOf(before[i]) && stamp <= StampOf(now)) ||
                (stamp == orm::CacheRecord::UNFINISHED && now != before[i]),
            Worker(i) + "the cache has an old version of its library");
    if (stamp == orm::CacheRecord::UNFINISHED) continue;
    try {
      Require(!ReadClassList(block.ReadPayload(place, 1)).empty(), Worker(i) + "the cache's list is empty");
    } catch (const orm::Error& error) {
      throw Fault(Worker(i) + "the cache's list is damaged: " + Layers(error));
    }
  }
}

}  // namespace torture
