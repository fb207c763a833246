// What the workers have done and are about to do, in memory that outlives them: a number is intended before a
// call and acknowledged after it has returned, so that whoever finds the worker killed knows what must be
// there and what may be.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace torture {

constexpr unsigned MOST_WORKERS = 8;

// A series of writes of which each one carries the next number.
struct Series {
  std::atomic<uint32_t> intended{0};
  std::atomic<uint32_t> acknowledged{0};

  template <class Write>
  void Advance(Write&& write) {
    const uint32_t next = intended.load() + 1;
    intended = next;
    write(next);
    acknowledged = next;
  }
  // Whether a number that was found is one that the series may have left. Processes that were killed in the
  // middle of a write leave numbers that were never acknowledged.
  bool Allows(uint32_t found) const { return found >= acknowledged && found <= intended; }
};

struct alignas(64) Account {
  std::atomic<uint32_t> incarnation{0};  // counts the processes of this account
  std::atomic<uint32_t> operation{0};    // what it is doing, see Operations.h
  std::atomic<uint64_t> operations{0};   // begun so far
  Series bag;                            // a property bag of the registry
  Series line;                           // lines of the common log
  Series stamp;                          // versions of a component library
  std::atomic<uint32_t> seenLine{0};     // the last of its lines that was found in the log
};

struct Ledger {
  Account accounts[MOST_WORKERS];
  std::atomic<uint32_t> owner{0};       // of the common mutex: account and incarnation
  std::atomic<uint32_t> isClosing{0};   // the workers are to end by themselves
  std::atomic<uint64_t> logChecked{0};  // bytes of the log that were found good

  static std::string GetPath() { return std::string(std::getenv("ORM_MACHINE")) + "/ledger"; }

  // Maps the file, which is made on first use; ends the process when it cannot.
  static Ledger& Open() {
    const int file = open(GetPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, sizeof(Ledger)) != 0) std::abort();
    void* view = mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (view == MAP_FAILED) std::abort();
    return *static_cast<Ledger*>(view);  // zeros are its first state
  }
};

// The names under which things are found by both sides.
inline std::string OwnMutexName(unsigned account, unsigned incarnation) {
  return "torture/" + std::to_string(account) + "/" + std::to_string(incarnation) + "/mutex";
}
inline std::string OwnSectionName(unsigned account, unsigned incarnation) {
  return "torture/" + std::to_string(account) + "/" + std::to_string(incarnation) + "/section";
}
inline std::string OwnLibrary(unsigned account) {
  return std::string(std::getenv("ORM_MACHINE")) + "/own/library" + std::to_string(account) + ".dll";
}
inline std::string CommonFolder() {
  return std::string(std::getenv("ORM_MACHINE")) + "/common";
}
inline bool IsUserBag(unsigned account) {
  return account % 2 == 1;
}
inline std::string BagName(unsigned account) {
  return "Torture\\Bag" + std::to_string(account / 2);
}
// A value of that number whose every part tells whether it is whole.
inline std::string ValueText(uint32_t number) {
  std::string text;
  const std::string unit = std::to_string(number) + ".";
  for (uint32_t i = 0; i <= number % 97; ++i) text += unit;
  return text;
}
constexpr time_t FIRST_STAMP = 1'600'000'000;

// The class manager's way of writing an absolute Unix path.
inline std::string ToPath(const std::string& path) {
  std::string text = "z:" + path;
  for (char& c : text) c = c == '/' ? '\\' : c;
  return text;
}

}  // namespace torture
