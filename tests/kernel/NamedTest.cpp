// Named mutexes and mappings between processes: who finds what, what a killed process leaves behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "kernel/CodePage.h"
#include "kernel/Handle.h"
#include "kernel/Machine.h"
#include "support/Child.h"
#include "win32/files.h"
#include "win32/kernel.h"

namespace {

using orm::test::Handle;
using test::Child;

std::string Helper() {
  return test::Sibling("kernel_helper");
}

std::string Ask(const char* order, const char* name) {
  return Child({Helper(), order, name}).ReadLine();
}

size_t NamedFiles() {
  const std::filesystem::path folder = std::filesystem::path(getenv("ORM_MACHINE")) / "named";
  if (!std::filesystem::exists(folder)) return 0;
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
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
  ASSERT_TRUE(std::filesystem::remove(std::filesystem::path(getenv("ORM_MACHINE")) / "named/n-replaced"));
  Child child({Helper(), "hold-mutex", "replaced"});
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
    const std::string path = std::string(getenv("ORM_MACHINE")) + "/named/n-access";
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
  };
  EXPECT_EQ(0600u, modeOf(&attributes)) << "on a machine without others";
  ASSERT_EQ(0, orm::platform::ShareMachine());
  EXPECT_EQ(0600u, modeOf(nullptr));
  EXPECT_EQ(0666u, modeOf(&attributes));
}

TEST(Named, AMutexIsHandedOnByAnotherProcess) {
  Child child({Helper(), "hold-mutex", "handed"});
  ASSERT_EQ("0", child.ReadLine());
  const Handle mutex(CreateMutexA(nullptr, TRUE, "handed"));
  EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(mutex.get(), 0));
  EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(mutex.get(), 5));
  std::thread waiter([&] {
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_FALSE(ReleaseMutex(mutex.get()));
  });
  child.WriteLine("");
  EXPECT_EQ("released", child.ReadLine());
  waiter.join();
}

// Nobody comes between the making of a mutex and its first owner.
TEST(Named, WhoMakesAMutexOwnsItFromItsBeginning) {
  Child child({Helper(), "snatch", "snatched"});
  ASSERT_EQ("running", child.ReadLine());
  // How often it is made here and not there is up to the scheduler.
  for (int round = 0, made = 0; made < 200 && round < 20'000; ++round) {
    const Handle mutex(CreateMutexA(nullptr, TRUE, "snatched"));
    ASSERT_TRUE(mutex);
    const bool isMade = GetLastError() == ERROR_SUCCESS;
    made += isMade;
    ASSERT_EQ(isMade, ReleaseMutex(mutex.get()) != FALSE) << "round " << round;
  }
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

TEST(Named, AKilledOwnerLeavesTheMutexToTheNextWaiterOnce) {
  Child child({Helper(), "hold-mutex", "killed"});
  ASSERT_EQ("0", child.ReadLine());
  const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, "killed"));
  ASSERT_TRUE(mutex);
  std::thread waiter([&] {
    EXPECT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex.get(), INFINITE));
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
  });
  child.Kill();
  waiter.join();
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(mutex.get(), 0));
  EXPECT_TRUE(ReleaseMutex(mutex.get()));
}

TEST(Named, ANameDiesWithItsKilledLastHolder) {
  const size_t before = NamedFiles();
  Child mutex({Helper(), "hold-mutex", "gone"});
  Child section({Helper(), "make-section", "gone too"});
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

// Processes that are killed at any moment of locking and unlocking leave the mutex usable.
TEST(Named, KilledAtAnyMoment) {
  const Handle mutex(CreateMutexA(nullptr, FALSE, "hammer"));
  for (int round = 0; round < 20; ++round) {
    Child first({Helper(), "hammer", "hammer"});
    Child second({Helper(), "hammer", "hammer"});
    ASSERT_EQ("running", first.ReadLine());
    ASSERT_EQ("running", second.ReadLine());
    for (int i = 0; i < 50; ++i) {
      ASSERT_LE(WaitForSingleObject(mutex.get(), 60000), WAIT_ABANDONED);
      ReleaseMutex(mutex.get());
    }
    first.Kill();
    second.Kill();
    ASSERT_LE(WaitForSingleObject(mutex.get(), 60000), WAIT_ABANDONED) << "locked out after a kill";
    ReleaseMutex(mutex.get());
  }
}

// A named mutex among other objects, with and without the system's call for several words.
TEST(Named, AMutexTogetherWithOtherObjects) {
  for (const bool fallback : {false, true}) {
    if (fallback) setenv("ORM_WAIT_FALLBACK", "1", 1);
    Child child({Helper(), "hold-mutex", "together"});
    ASSERT_EQ("0", child.ReadLine());
    const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, "together"));
    const Handle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    const HANDLE objects[] = {event.get(), mutex.get()};
    EXPECT_EQ(WAIT_TIMEOUT, WaitForMultipleObjects(2, objects, FALSE, 5));
    std::thread setter([&] { SetEvent(event.get()); });
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, objects, FALSE, INFINITE));
    setter.join();
    std::thread killer([&] { child.Kill(); });
    EXPECT_EQ(WAIT_ABANDONED_0 + 1, WaitForMultipleObjects(2, objects, FALSE, INFINITE));
    killer.join();
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
    SetEvent(event.get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(2, objects, FALSE, INFINITE));
    EXPECT_FALSE(ReleaseMutex(mutex.get())) << "an object behind the first was taken";
  }
}

// The event ends the wait while the owner of the mutex ends: whoever takes the mutex next is told of that.
TEST(Named, AWaitThatIsOverLeavesAMutexAbandoned) {
  const Handle mutex(CreateMutexA(nullptr, FALSE, "ended"));
  const Handle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
  const HANDLE objects[] = {event.get(), mutex.get()};
  for (int i = 0; i < 1000; ++i) {
    std::atomic<bool> owned{false}, go{false};
    std::thread owner([&] {
      WaitForSingleObject(mutex.get(), INFINITE);
      owned = true;
      while (!go) std::this_thread::yield();
      SetEvent(event.get());
    });
    while (!owned) std::this_thread::yield();
    go = true;
    const DWORD result = WaitForMultipleObjects(2, objects, FALSE, INFINITE);
    owner.join();
    ASSERT_EQ(WAIT_OBJECT_0, result) << "round " << i;
    ASSERT_EQ(WAIT_ABANDONED, WaitForSingleObject(mutex.get(), INFINITE)) << "round " << i;
    ReleaseMutex(mutex.get());
  }
}

// Two mutexes are released one after the other while a wait names both. Those between them make a look long.
TEST(Named, LowestIndexWinsWhileMutexesAreBeingReleased) {
  constexpr int kRounds = 500;
  constexpr DWORD kMutexes = 50;  // the thread sanitizer knows no thread with 64 locks
  for (const DWORD milliseconds : {DWORD{0}, DWORD{INFINITE}}) {
    std::vector<Handle> mutexes;
    std::vector<HANDLE> raw;
    for (DWORD i = 0; i < kMutexes; ++i) {
      mutexes.emplace_back(CreateMutexA(nullptr, FALSE, ("lowest" + std::to_string(i)).c_str()));
      raw.push_back(mutexes.back().get());
    }
    std::atomic<int> held{0}, wanted{0}, released{0};
    std::thread owner([&] {
      for (const HANDLE mutex : raw) WaitForSingleObject(mutex, INFINITE);
      for (int i = 1; i <= kRounds; ++i) {
        held = i;
        while (wanted != i) std::this_thread::yield();
        ReleaseMutex(raw.front());
        ReleaseMutex(raw.back());
        released = i;
        while (wanted != -i) std::this_thread::yield();
        WaitForSingleObject(raw.front(), INFINITE);
        WaitForSingleObject(raw.back(), INFINITE);
      }
    });
    int late = 0;
    for (int i = 1; i <= kRounds; ++i) {
      while (held != i) std::this_thread::yield();
      wanted = i;
      DWORD result;
      do {
        result = WaitForMultipleObjects(kMutexes, raw.data(), FALSE, milliseconds);
      } while (result == WAIT_TIMEOUT);
      late += result != WAIT_OBJECT_0;
      while (released != i) std::this_thread::yield();
      ReleaseMutex(raw[result - WAIT_OBJECT_0]);
      wanted = -i;
    }
    owner.join();
    EXPECT_EQ(0, late) << "time-out " << milliseconds;
  }
}

TEST(Mapping, TwoProcessesShareItsBytes) {
  const Handle section(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0x10000, "shared"));
  ASSERT_TRUE(section);
  auto* const view = static_cast<char*>(MapViewOfFile(section.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
  ASSERT_NE(nullptr, view);
  EXPECT_EQ('\0', view[0xFFFF]);
  strcpy(view, "question");
  Child child({Helper(), "open-section", "shared"});
  EXPECT_EQ("question", child.ReadLine());
  EXPECT_EQ("written", child.ReadLine());
  EXPECT_STREQ("answer", view);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(ERROR_INVALID_ADDRESS, GetLastError());
}

// A named mapping over a file: the file grows, other processes reach it by name, the view alone keeps the
// name.
TEST(Mapping, OverAFile) {
  const std::string path = std::string(getenv("ORM_MACHINE")) + "/backing";
  std::string ansi = "Z:" + path;
  Handle file(CreateFileA(ansi.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          nullptr, CREATE_ALWAYS, 0, nullptr));
  ASSERT_NE(INVALID_HANDLE_VALUE, file.get());
  EXPECT_EQ(nullptr, CreateFileMappingA(file.get(), nullptr, PAGE_READWRITE, 0, 0, nullptr));
  EXPECT_EQ(ERROR_FILE_INVALID, GetLastError());
  Handle section(CreateFileMappingA(file.get(), nullptr, PAGE_READWRITE, 0, 0x10000, "backed"));
  ASSERT_TRUE(section);
  EXPECT_EQ(0x10000u, std::filesystem::file_size(path));
  auto* const view = static_cast<char*>(MapViewOfFile(section.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
  ASSERT_NE(nullptr, view);
  file.reset();
  section.reset();
  strcpy(view, "in the file");
  {
    Child child({Helper(), "open-section", "backed"});
    EXPECT_EQ("in the file", child.ReadLine());
    EXPECT_EQ("written", child.ReadLine());
  }
  EXPECT_STREQ("answer", view);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_EQ("2", Ask("open-section", "backed"));
}

TEST(Mapping, BadRequestsAreRefused) {
  const Handle section(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READONLY, 0, 0x20000, nullptr));
  struct {
    DWORD access, offset;
    SIZE_T bytes;
    DWORD error;
  } const cases[] = {
      {FILE_MAP_ALL_ACCESS, 0, 0, ERROR_ACCESS_DENIED},
      {FILE_MAP_READ, 4096, 0, ERROR_INVALID_PARAMETER},
      {FILE_MAP_READ, 0x20000, 0, ERROR_INVALID_PARAMETER},
      {FILE_MAP_READ, 0x10000, 0x10001, ERROR_INVALID_PARAMETER},
      {FILE_MAP_READ, 0, ~SIZE_T{0}, ERROR_INVALID_PARAMETER},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(nullptr, MapViewOfFile(section.get(), one.access, 0, one.offset, one.bytes));
    EXPECT_EQ(one.error, GetLastError());
  }
  EXPECT_EQ(nullptr, CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0, nullptr));
  EXPECT_EQ(nullptr,
            CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0xFFFFFFFF, 0, nullptr));
}

// A damaged file of a name that somebody holds is an error, not a crash.
TEST(Named, DamagedFilesAreRefused) {
  Child child({Helper(), "make-section", "damaged"});
  ASSERT_EQ("0", child.ReadLine());
  const std::string path = std::string(getenv("ORM_MACHINE")) + "/named/n-damaged";
  const int descriptor = open(path.c_str(), O_RDWR);
  ASSERT_GE(descriptor, 0);
  const uint64_t huge = ~uint64_t{0};
  ASSERT_EQ(8, pwrite(descriptor, &huge, sizeof(huge), 64));
  EXPECT_EQ(nullptr, OpenFileMappingA(FILE_MAP_READ, FALSE, "damaged"));
  EXPECT_EQ(ERROR_INVALID_DATA, GetLastError());
  ASSERT_EQ(8, pwrite(descriptor, &huge, sizeof(huge), 0));
  EXPECT_EQ(nullptr, OpenMutexA(SYNCHRONIZE, FALSE, "damaged"));
  EXPECT_EQ(ERROR_INVALID_DATA, GetLastError());
  close(descriptor);
}

}  // namespace
