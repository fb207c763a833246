// One bag and many processes: writers that are killed, a bag that changes under a reader, a disk that is
// full.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/PersistentProperties.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>

#include "kernel/Machine.h"
#include "support/Child.h"
#include "support/ErrorLayers.h"

using namespace orm;
using namespace test;

namespace {

std::string TemporaryPath(const char* name) {
  return std::string(std::getenv("ORM_MACHINE")) + "/" + name;
}

}  // namespace

// Eight writers of one bag, one of them killed every 50 ms: whatever a call that returned has set is there,
// and no lock stays with the dead. Takes some seconds, with ORM_LONG_TESTS=1 a minute.
TEST(SharedBag, WritersAreKilled) {
  constexpr unsigned kWriters = 8;
  const auto duration = std::chrono::seconds(std::getenv("ORM_LONG_TESTS") ? 60 : 4);
  const std::string file = TemporaryPath("numbers");
  const int fd = open(file.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(ftruncate(fd, 4096), 0);
  auto* words = static_cast<volatile uint32_t*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fd, 0));
  ASSERT_NE(words, MAP_FAILED);

  std::vector<std::unique_ptr<Child>> writers(kWriters);
  const auto start = [&](unsigned index) {
    writers[index] = std::make_unique<Child>(
        std::vector<std::string>{Sibling("bag_writer"), "storm", "Storm", std::to_string(index), file});
  };
  for (unsigned i = 0; i < kWriters; ++i) start(i);

  PersistentProperties bag;
  bag.Open("Storm", true);
  const auto check = [&](unsigned index) {
    const uint32_t noted = words[index];
    const DWORD stored = bag.GetNumber(("w" + std::to_string(index)).c_str(), 0);
    EXPECT_GE(stored, noted);
    EXPECT_LE(stored, noted + 2) << "the number that the call in flight has set, or the next writer's first";
  };
  std::mt19937 random(8);
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the pace of the kills is part of the test
    const unsigned victim = random() % kWriters;
    writers[victim]->Kill();
    writers[victim]->Finish();
    check(victim);
    start(victim);
  }
  // Everyone still gets on.
  std::vector<uint32_t> before(words, words + kWriters);
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (unsigned i = 0; i < kWriters; ++i) {
    while (words[i] == before[i] && std::chrono::steady_clock::now() < patience) std::this_thread::yield();
    EXPECT_NE(words[i], before[i]) << "writer " << i << " hangs";
  }
  for (unsigned i = 0; i < kWriters; ++i) {
    writers[i].reset();
    check(i);
  }
  EXPECT_EQ(bag.EnumProperties().size(), kWriters);
  munmap(const_cast<uint32_t*>(words), 4096);
  close(fd);
}

// A bag that another process changes between the listing of its names and the reading of their values.
TEST(SharedBag, ChangedBeforeItIsRead) {
  PersistentProperties bag;
  bag.Open("Served", true);
  for (const char* name : {"deleted", "retyped", "same"}) bag.SetNumber(name, 1);
  const std::vector<String> names = bag.EnumProperties();
  ASSERT_EQ(names.size(), 3u);

  Child server({Sibling("bag_writer"), "serve", "Served"});
  for (const char* command : {"delete deleted", "text retyped"}) {
    server.WriteLine(command);
    ASSERT_EQ(server.ReadLine(), "done");
  }
  const DWORD expected[] = {0xE7220002, 0xE7220001, 0};
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(ErrorOf([&] { bag.GetNumber(names[i]); }).GetCode(), expected[i]) << names[i].GetBegin();
  }
  EXPECT_EQ(bag.GetType(names[0]), Properties::TYPE_NONE);
  EXPECT_EQ(bag.GetString(names[1]), "abc");
}

// The same at full speed: the reader gets the values or an error that tells what is amiss, and never
// something else.
TEST(SharedBag, ChangesUnderAReader) {
  Child churn({Sibling("bag_writer"), "churn", "Churn"});
  ASSERT_EQ(churn.ReadLine(), "ready");
  PersistentProperties bag;
  bag.Open("Churn", true);
  bag.SetNumber("stays", 1);
  for (int i = 0; i < 2'000; ++i) {
    MemoryProperties copy;
    for (const String& name : bag.EnumProperties()) {
      const Error error = ErrorOf([&] {
        if (bag.GetType(name) == Properties::TYPE_NUMBER) {
          copy.SetNumber(name, bag.GetNumber(name));
        } else {
          copy.SetString(name, bag.GetString(name));
        }
      });
      const DWORD code = error.GetCode();
      ASSERT_TRUE(code == 0 || code == 0xE7220001 || code == 0xE7220002 || code == 234)
          << error.Format().GetBegin();
    }
    ASSERT_EQ(copy.GetNumber("stays"), 1u);
  }
  churn.CloseInput();
  EXPECT_EQ(churn.Finish().status, 0);
}

TEST(SharedBag, FullDisk) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may mount a small disk";
  const std::string disk = TemporaryPath("disk");
  mkdir(disk.c_str(), 0700);
  if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=8m") != 0) GTEST_SKIP() << "no disk can be mounted here";
  const ChildResult result =
      RunProgram({"/usr/bin/env", "ORM_MACHINE=" + disk, Sibling("bag_writer"), "fill", "Full"});
  umount2(disk.c_str(), MNT_DETACH);
  EXPECT_EQ(result.output.substr(0, 45), "00000070 Failed to set the value of property.");
  EXPECT_NE(result.output.find("Failed to set registry value 'HKEY_CURRENT_USER\\SOFTWARE\\Full\\f"),
            std::string::npos)
      << result.output;
  EXPECT_NE(result.output.find("\nall there\nusable\n"), std::string::npos) << result.output;
}

TEST(SharedBag, DeniedMachineBag) {
  if (!test::OthersMayRunPrograms()) GTEST_SKIP() << "needs root, and programs that others may run";
  PersistentProperties bag;
  bag.Open("Denied", false);
  bag.SetNumber("x", 5);
  ASSERT_EQ(orm::platform::ShareMachine(), 0);
  const ChildResult result = RunProgram({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                         "--clear-groups", Sibling("bag_writer"), "set", "Denied"});
  const std::string systemText = MakeSystemError(5, String(), false).GetMessage(0).GetBegin();
  EXPECT_EQ(result.output,
            "e7220004 Failed to set the value of property.\n"
            "00000005 Failed to open registry key 'HKEY_LOCAL_MACHINE\\SOFTWARE\\Denied'. \n"
            "00000005 " +
                systemText + "\n");
  EXPECT_EQ(bag.GetNumber("x"), 5u);
}
