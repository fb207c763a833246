// A process that works on a registry bag for SharedBagTest.
//
//   storm BAG INDEX FILE  sets "w<INDEX>" to one number after the other until it is killed, and after each
//   call
//                         that returned notes the number in the file's INDEX-th word
//   churn BAG             adds, changes and deletes properties until its input ends
//   serve BAG             carries out "delete NAME" and "text NAME" from its input and answers each with a
//   line fill BAG              sets properties until that fails; prints the error and what is left set BAG
//   sets one property of the machine-wide bag; prints the error
#include <fcntl.h>
#include <ormutil/Error.h>
#include <ormutil/PersistentProperties.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

using namespace orm;

namespace {

String Name(const char* prefix, unsigned index) {
  String name;
  name.Format("%s%u", prefix, index);
  return name;
}

void Print(const Error& error) {
  for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
    std::printf("%08x %s\n", error.GetCode(i), error.GetMessage(i).GetBegin());
  }
}

int Storm(PersistentProperties& bag, unsigned index, const char* file) {
  const int fd = open(file, O_RDWR);
  auto* words =
      static_cast<volatile uint32_t*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  if (words == MAP_FAILED) return 2;
  const String name = Name("w", index);
  for (uint32_t next = words[index] + 2;; ++next) {
    bag.SetNumber(name, next);
    words[index] = next;
  }
}

int Churn(PersistentProperties& bag) {
  std::puts("ready");
  std::fflush(stdout);
  pollfd input{0, POLLIN, 0};
  for (unsigned round = 0; poll(&input, 1, 0) == 0; ++round) {
    const String name = Name("p", round % 8);
    bag.SetNumber(name, round);
    bag.SetString(name, "text that takes the place of a number");
    bag.Delete(name);
  }
  return 0;
}

int Serve(PersistentProperties& bag) {
  std::string command, name;
  while (std::cin >> command >> name) {
    if (command == "delete") {
      bag.Delete(name.c_str());
    } else {
      bag.SetString(name.c_str(), "abc");
    }
    std::cout << "done" << std::endl;
  }
  return 0;
}

int Fill(PersistentProperties& bag) {
  const std::string bytes(16 * 1024, 'x');
  unsigned count = 0;
  try {
    for (;; ++count)
      bag.SetBinary(Name("f", count), Binary(bytes.data(), static_cast<unsigned>(bytes.size())));
  } catch (const Error& error) {
    Print(error);
  }
  bool whole = count > 0;
  for (unsigned i = 0; i < count; ++i) whole &= bag.GetBinary(Name("f", i)).GetSize() == bytes.size();
  std::printf("%s\n", whole && bag.EnumProperties().size() == count ? "all there" : "lost something");
  bag.Clear();
  bag.SetNumber("after", 1);
  std::printf("%s\n", bag.GetNumber("after") == 1 ? "usable" : "unusable");
  return 0;
}

}  // namespace

int main(int count, char** arguments) try {
  if (count < 3) return 2;
  const std::string command = arguments[1];
  PersistentProperties bag;
  bag.Open(arguments[2], command != "set");
  if (command == "storm" && count == 5) {
    return Storm(bag, static_cast<unsigned>(std::atoi(arguments[3])), arguments[4]);
  }
  if (command == "churn") return Churn(bag);
  if (command == "serve") return Serve(bag);
  if (command == "fill") return Fill(bag);
  if (command == "set") {
    bag.SetNumber("x", 1);
    return 0;
  }
  return 2;
} catch (const Error& error) {
  Print(error);
  return 1;
}
