// Named objects between processes: who finds what, what a killed process leaves behind, what a fork does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "kernel/CodePage.h"
#include "kernel/Handle.h"
#include "kernel/Machine.h"
#include "kernel/NamedHelper.h"
#include "win32/kernel.h"

namespace {

using orm::test::Handle;
using namespace test;

std::filesystem::path NamedFolder() {
  return std::filesystem::path(getenv("ORM_MACHINE")) / "named";
}

size_t NamedFiles() {
  if (!std::filesystem::exists(NamedFolder())) return 0;
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(NamedFolder()), {}));
}

TEST(Named, LivesFromItsFirstToItsLastHandle) {
  const char* const names[] = {"plain", "c:/logs/a b.logph:tdbg_trace:fileprotect", "..", "%2F/\\\xE9\x01",
                               ""};
  for (const char* name : names) {
    if (*name == '\0') continue;
    EXPECT_EQ("2", Ask("open-mutex", name)) << name;
    Handle first(CreateMutexA(nullptr, FALSE, name));
    ASSERT_TRUE(first) << name;
    EXPECT_EQ(ERROR_SUCCESS, GetLastError());
    Handle second(CreateMutexA(nullptr, FALSE, (std::string("Global\\") + name).c_str()));
    EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError()) << name;
    first.reset();
    EXPECT_EQ("open", Ask("open-mutex", name)) << name;
    second.reset();
    EXPECT_EQ("2", Ask("open-mutex", name)) << name;
  }
  EXPECT_EQ(0u, NamedFiles());
}

// A file that somebody has removed takes no newer object of the name with it.
TEST(Named, TheLastHolderLeavesANewerObjectOfItsName) {
  Handle removed(CreateMutexA(nullptr, FALSE, "replaced"));
  ASSERT_TRUE(std::filesystem::remove(NamedFolder() / "n-replaced"));
  Child child = Helper("hold-mutex", "replaced");
  ASSERT_EQ("0", child.ReadLine());
  removed.reset();
  EXPECT_EQ("open", Ask("open-mutex", "replaced"));
}

TEST(Named, NamesThatAreHardToTellApartAreDifferent) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(1253));
  const std::string longName(400, '/');
  const std::string names[] = {longName + "1", longName + "2", "?",
                               "\xD2",         "\xFF",         "\xD2\xFF"};  // no characters
  std::vector<Handle> objects;
  for (const std::string& name : names) {
    objects.emplace_back(CreateMutexA(nullptr, FALSE, name.c_str()));
    EXPECT_TRUE(objects.back());
    EXPECT_EQ(ERROR_SUCCESS, GetLastError()) << name;
  }
}

TEST(Named, OneNameIsOneKind) {
  const Handle mutex(CreateMutexA(nullptr, FALSE, "kind"));
  const Handle section(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, "kind"));
  EXPECT_FALSE(section);
  EXPECT_EQ(ERROR_INVALID_HANDLE, GetLastError());
}

TEST(Named, OnlyANullAccessListOpensTheObjectToOthers) {
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, FALSE};
  const auto modeOf = [](SECURITY_ATTRIBUTES* security) -> mode_t {
    const Handle mutex(CreateMutexA(security, FALSE, "access"));
    struct stat status {};
    return stat((NamedFolder() / "n-access").c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
  };
  EXPECT_EQ(0600u, modeOf(&attributes)) << "on a machine without others";
  ASSERT_EQ(0, orm::platform::ShareMachine());
  EXPECT_EQ(0600u, modeOf(nullptr));
  EXPECT_EQ(0666u, modeOf(&attributes));
}

// A handle that is copied while it is closed is a handle to an object with a name, or none at all.
TEST(Named, NoCopyOfAClosedHandleOutlivesTheName) {
  for (int i = 0; i < 1000; ++i) {
    const HANDLE mutex = CreateMutexA(nullptr, FALSE, "copied");
    std::atomic<bool> begun{false};
    std::thread closer([&] {
      begun = true;
      CloseHandle(mutex);
    });
    while (!begun) std::this_thread::yield();
    Handle copy;
    const BOOL isCopied = DuplicateHandle(GetCurrentProcess(), mutex, GetCurrentProcess(), copy.put(), 0,
                                          FALSE, DUPLICATE_SAME_ACCESS);
    closer.join();
    const Handle opened(OpenMutexA(SYNCHRONIZE, FALSE, "copied"));
    ASSERT_EQ(isCopied != FALSE, static_cast<bool>(opened)) << "round " << i;
  }
}

TEST(Named, ANameDiesWithItsKilledLastHolder) {
  const size_t before = NamedFiles();
  Child mutex = Helper("hold-mutex", "gone");
  Child section = Helper("make-section", "gone too");
  ASSERT_EQ("0", mutex.ReadLine());
  ASSERT_EQ("0", section.ReadLine());
  mutex.Kill();
  section.Kill();
  mutex.Finish();
  section.Finish();
  EXPECT_EQ(before + 2, NamedFiles()) << "killed processes remove nothing";
  const Handle again(CreateMutexA(nullptr, FALSE, "gone"));
  EXPECT_EQ(ERROR_SUCCESS, GetLastError());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(again.get(), 0)) << "the dead owner owns a new mutex";
  EXPECT_TRUE(ReleaseMutex(again.get()));
  const Handle sectionAgain(OpenFileMappingA(FILE_MAP_READ, FALSE, "gone too"));
  EXPECT_FALSE(sectionAgain);
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
}

// A child made by fork holds what its parent holds, each for itself, and owns nothing of it.
TEST(Named, AForkedChildIsAHolderOfItsOwn) {
  const auto say = [](const std::string& line) {
    EXPECT_LT(0, write(1, (line + "\n").data(), line.size() + 1));
  };
  const auto look = [] { return Ask("open-mutex", "forked") + ' ' + Ask("open-section", "forked too"); };
  for (const bool parentGoesFirst : {true, false}) {
    Handle mutex(CreateMutexA(nullptr, TRUE, "forked"));
    Handle section(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, "forked too"));
    Child child = Child::Forked([&] {
      const auto take = [&](DWORD milliseconds) {
        const DWORD result = WaitForSingleObject(mutex.get(), milliseconds);
        say(std::to_string(result) + (ReleaseMutex(mutex.get()) ? " owned" : ""));
      };
      take(0);
      char order;
      if (read(0, &order, 1) != 1) return 1;
      take(INFINITE);
      if (read(0, &order, 1) != 1) return 1;
      mutex.reset();
      section.reset();
      say("closed");
      return read(0, &order, 1) == 1 ? 0 : 1;
    });
    EXPECT_EQ("258", child.ReadLine()) << "the parent owns it";
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    child.WriteLine("");
    EXPECT_EQ("0 owned", child.ReadLine());
    const auto closeOne = [&](bool parents) {
      if (parents) {
        mutex.reset();
        section.reset();
      } else {
        child.WriteLine("");
        EXPECT_EQ("closed", child.ReadLine());
      }
    };
    closeOne(parentGoesFirst);
    EXPECT_EQ("open ", look()) << parentGoesFirst;
    closeOne(!parentGoesFirst);
    EXPECT_EQ("2 2", look()) << parentGoesFirst;
    child.WriteLine("");
    EXPECT_EQ(0, child.Finish().status);
  }
}

// Whatever the other threads are doing at a fork, be it for the first time, the child can do it too.
TEST(Named, AForkLeavesNoLockTaken) {
  const auto useAll = [](const std::string& name) {
    const Handle mutex(CreateMutexA(nullptr, FALSE, name.c_str()));
    const Handle section(
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, (name + "s").c_str()));
    void* const view = MapViewOfFile(section.get(), FILE_MAP_READ, 0, 0, 0);
    const DWORD slot = TlsAlloc();
    return WaitForSingleObject(mutex.get(), INFINITE) == WAIT_OBJECT_0 && ReleaseMutex(mutex.get()) &&
           UnmapViewOfFile(view) && TlsFree(slot);
  };
  std::atomic<bool> ends{false};
  std::vector<std::thread> others;
  for (const char* name : {"busy one", "busy two"}) {
    others.emplace_back([&, name] {
      while (!ends) EXPECT_TRUE(useAll(name));
    });
  }
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(0, Child::Forked([&] { return useAll("child's") ? 0 : 1; }).Finish().status) << "round " << i;
  }
  ends = true;
  for (std::thread& other : others) other.join();
}

// A child that was begun without the handlers of a fork has copies of whatever is open at that moment, and
// keeps no lock with them.
TEST(Named, AnotherProcessesCopiesLockNothing) {
  std::atomic<bool> ends{false};
  std::thread busy([&] {
    while (!ends) Handle(CreateMutexA(nullptr, FALSE, "made and closed"));
  });
  int gate[2];
  ASSERT_EQ(0, pipe(gate));
  std::vector<pid_t> children(50);
  for (pid_t& child : children) {
    child = _Fork();
    if (child != 0) continue;
    close(gate[1]);
    char byte;
    _exit(static_cast<int>(read(gate[0], &byte, 1)));
  }
  ends = true;
  busy.join();
  EXPECT_TRUE(Handle(CreateMutexA(nullptr, FALSE, "made and closed")));
  close(gate[0]);
  close(gate[1]);
  for (const pid_t child : children) EXPECT_EQ(child, waitpid(child, nullptr, 0));
}

// What a maker that was killed has left is no object. A file that somebody holds is one; when it does not
// hold what it should, that is an error and not a crash.
TEST(Named, FilesThatAreNotWholeAreRefused) {
  using namespace std::string_literals;
  const std::string mutex = "omnamed1\x01\0\0\0\0\0\0\0"s;
  const std::string section = "omnamed1\x02\0\0\0\0\0\0\0"s;
  const std::string contents[] = {"",
                                  "omna",
                                  mutex,
                                  mutex + std::string(4079, '\0'),
                                  section,
                                  section + std::string(100, '\0'),
                                  section + std::string(9000, '\0'),
                                  section + std::string(9000, '\xFF'),
                                  std::string(9000, '\xFF')};
  const Handle anyMutex(CreateMutexA(nullptr, FALSE, "makes the folder"));
  const std::filesystem::path path = NamedFolder() / "n-torn";
  const auto write = [&](const std::string& content) { std::ofstream(path, std::ios::binary) << content; };
  const auto openBoth = [] {
    const bool found = OpenMutexA(SYNCHRONIZE, FALSE, "torn") != nullptr;
    const DWORD error = GetLastError();
    if (found || OpenFileMappingA(FILE_MAP_READ, FALSE, "torn") != nullptr) return DWORD{ERROR_SUCCESS};
    return error == ERROR_INVALID_HANDLE ? GetLastError() : error;  // of the other kind
  };
  for (const std::string& content : contents) {
    const std::string length = std::to_string(content.size()) + " bytes";
    write(content);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, openBoth()) << length;
    EXPECT_FALSE(std::filesystem::exists(path)) << length;
    write(content);
    {
      const Handle made(CreateMutexA(nullptr, TRUE, "torn"));
      EXPECT_EQ(ERROR_SUCCESS, GetLastError()) << length;
      EXPECT_TRUE(ReleaseMutex(made.get())) << length;
    }
    write(content);
    const int holder = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(holder, LOCK_SH));
    EXPECT_EQ(ERROR_INVALID_DATA, openBoth()) << length;
    EXPECT_FALSE(Handle(CreateMutexA(nullptr, TRUE, "torn"))) << length;
    close(holder);
  }
}

}  // namespace
