// Loading, freeing and replacing libraries, and telling them of threads.
#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libintl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <thread>

#include "kernel/Export.h"
#include "kernel/Handle.h"
#include "support/Sanitizers.h"
#include "win32/kernel.h"
#include "win32/modules.h"
#include "win32/nls.h"

namespace {

namespace fs = std::filesystem;

const fs::path kParts = KERNEL_PARTS;

std::string Ansi(const fs::path& path) {
  return "Z:" + path.string();
}

std::string Maps() {
  std::ifstream file("/proc/self/maps");
  return {std::istreambuf_iterator<char>(file), {}};
}

int Number(HMODULE module) {
  return orm::test::ExportOf<int (*)()>(module, "PartNumber")();
}

int Reasons(HMODULE module, unsigned reason) {
  return orm::test::ExportOf<int (*)(unsigned)>(module, "PartReasons")(reason);
}

// A folder below the machine's, with one library in it.
fs::path CopyOf(const char* part, const char* as) {
  const fs::path copy = fs::path(getenv("ORM_MACHINE")) / as;
  fs::copy_file(kParts / part, copy, fs::copy_options::overwrite_existing);
  return copy;
}

// There is no way back through the loader, which would keep its lock.
TEST(Modules, AThrowingInitialiserEndsTheProcessWithItsReason) {
  EXPECT_DEATH(LoadLibraryA(Ansi(kParts / "throwing.dll").c_str()),
               "throwing.dll: a static initialiser threw: no use");
}

TEST(Modules, TenLibrariesInTurnLeaveNoMapping) {
  for (int i = 0; i < 10; ++i) {
    const fs::path path = kParts / ("part" + std::to_string(i) + ".dll");
    const HMODULE module = LoadLibraryExA(Ansi(path).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    ASSERT_NE(nullptr, module) << GetLastError();
    EXPECT_EQ(i, Number(module));
    EXPECT_NE(std::string::npos, Maps().find(path.filename()));
    ASSERT_TRUE(FreeLibrary(module));
    EXPECT_EQ(std::string::npos, Maps().find(path.filename())) << "still mapped";
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, GetLastError());
  }
}

TEST(Modules, CountsAndNames) {
  const fs::path path = kParts / "part3.dll";
  const HMODULE module = LoadLibraryA(Ansi(path).c_str());
  EXPECT_EQ(module, LoadLibraryA(Ansi(path).c_str()));
  EXPECT_TRUE(FreeLibrary(module));
  EXPECT_EQ(3, Number(module));
  EXPECT_EQ(module, GetModuleHandleA("PART3.dll"));
  EXPECT_EQ(module, GetModuleHandleA(Ansi(path).c_str()));
  char name[MAX_PATH];
  const DWORD length = GetModuleFileNameA(module, name, sizeof(name));
  EXPECT_TRUE(length > 9 && strcmp(name + length - 9, "part3.dll") == 0) << name;
  EXPECT_EQ(5u, GetModuleFileNameA(module, name, 5));
  EXPECT_EQ(4u, strlen(name));
  EXPECT_NE(0u, GetModuleFileNameA(nullptr, name, sizeof(name)));
  EXPECT_NE(nullptr, strstr(name, "test_"));
  MEMORY_BASIC_INFORMATION information;
  VirtualQuery(reinterpret_cast<const void*>(GetProcAddress(module, "PartNumber")), &information,
               sizeof(information));
  EXPECT_EQ(module, information.AllocationBase);
  // An export of a library that the module uses is not the module's.
  EXPECT_EQ(nullptr, GetProcAddress(module, "GetTickCount"));
  EXPECT_EQ(ERROR_PROC_NOT_FOUND, GetLastError());
  EXPECT_TRUE(FreeLibrary(module));
  EXPECT_EQ(nullptr, GetModuleHandleA("part3.dll"));
}

TEST(Modules, NamesOutsideAsciiAreFoundWithoutRegardToCase) {
  const fs::path path = CopyOf("part4.dll", "\xC3\x84rger.dll");
  const HMODULE module = LoadLibraryA((Ansi(path.parent_path()) + "\\\xE4RGER.dll").c_str());
  ASSERT_NE(nullptr, module);
  EXPECT_EQ(module, GetModuleHandleA("\xE4rger.DLL"));
  EXPECT_TRUE(FreeLibrary(module));
}

TEST(Modules, ThePlatformAnswersToItsNames) {
  const struct {
    const char* name;
    const char* exported;
  } cases[] = {{"USER32.DLL", "MessageBoxA"},
               {"user32.dll", "MessageBoxA"},
               {"Kernel32.dll", "MessageBoxA"},
               {"gdi32.dll", "CreateCompatibleDC"},
               {"GDI32", "CreateCompatibleDC"}};
  for (const auto& [name, exported] : cases) {
    const HMODULE module = LoadLibraryExA(name, nullptr, 0);
    for (int i = 0; i < 2; ++i) {
      EXPECT_NE(nullptr, GetProcAddress(module, exported)) << name;
      EXPECT_TRUE(FreeLibrary(module)) << name;
    }
  }
}

TEST(Modules, WhatCannotBeLoadedSaysWhy) {
  const fs::path cut = CopyOf("part1.dll", "cut.dll");
  fs::resize_file(cut, 5000);  // the headers are whole, the segments are not
  const fs::path empty = fs::path(getenv("ORM_MACHINE")) / "empty.dll";
  std::ofstream(empty).close();
  const fs::path text = fs::path(getenv("ORM_MACHINE")) / "text.dll";
  std::ofstream(text) << "This is no library, whatever its name says, and long enough to hold a header.";
  const fs::path pipe = fs::path(getenv("ORM_MACHINE")) / "pipe.dll";
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const struct {
    fs::path path;
    DWORD error;
  } cases[] = {
      {kParts / "absent.dll", ERROR_MOD_NOT_FOUND},
      {cut, ERROR_BAD_EXE_FORMAT},
      {empty, ERROR_BAD_EXE_FORMAT},
      {text, ERROR_BAD_EXE_FORMAT},
      {pipe, ERROR_ACCESS_DENIED},  // and nobody waits for a writer
      {kParts, ERROR_ACCESS_DENIED},
      {"/proc/self/exe", ERROR_BAD_EXE_FORMAT},
      {kParts / "needy.dll", ERROR_PROC_NOT_FOUND},
      {kParts / "refuses.dll", ERROR_DLL_INIT_FAILED},
  };
  for (const auto& one : cases) {
    SetLastError(0);
    EXPECT_EQ(nullptr, LoadLibraryExA(Ansi(one.path).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH))
        << one.path;
    EXPECT_EQ(one.error, GetLastError()) << one.path;
  }
  EXPECT_EQ(std::string::npos, Maps().find("refuses.dll"));
}

// A copy that wants more memory than there are addresses.
fs::path Oversized() {
  const fs::path path = CopyOf("part1.dll", "oversized.dll");
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  Elf64_Ehdr header;
  file.read(reinterpret_cast<char*>(&header), sizeof(header));
  std::streamoff last = 0;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    const auto place = static_cast<std::streamoff>(header.e_phoff + i * sizeof(Elf64_Phdr));
    Elf64_Phdr segment;
    file.seekg(place).read(reinterpret_cast<char*>(&segment), sizeof(segment));
    if (segment.p_type == PT_LOAD) last = place;
  }
  const uint64_t size = uint64_t{1} << 47;
  file.seekp(last + static_cast<std::streamoff>(offsetof(Elf64_Phdr, p_memsz)));
  file.write(reinterpret_cast<const char*>(&size), sizeof(size));
  return path;
}

// Texts of the C library in another language: one message, in the format of GNU gettext's catalogues.
void TranslateMapping() {
  constexpr char message[] = "failed to map segment from shared object";
  constexpr char other[] = "kein Platz";
  const uint32_t catalogue[] = {
      0x950412DE, 0, 1, 28, 36, 0, 44, sizeof(message) - 1, 44, sizeof(other) - 1, 44 + sizeof(message)};
  const fs::path folder = getenv("ORM_MACHINE");
  fs::create_directories(folder / "xx/LC_MESSAGES");
  std::ofstream file(folder / "xx/LC_MESSAGES/libc.mo", std::ios::binary);
  file.write(reinterpret_cast<const char*>(catalogue), sizeof(catalogue));
  file.write(message, sizeof(message)).write(other, sizeof(other));
  bindtextdomain("libc", folder.c_str());
  setenv("LANGUAGE", "xx", 1);
  ASSERT_NE(nullptr, setlocale(LC_ALL, "C.UTF-8"));
}

TEST(Modules, WantOfMemoryIsToldInAnyLanguage) {
  const fs::path path = Oversized();
  for (const char* text : {"failed to map segment", "kein Platz"}) {
    EXPECT_EQ(nullptr, LoadLibraryA(Ansi(path).c_str()));
    EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
    EXPECT_EQ(nullptr, dlopen(path.c_str(), RTLD_NOW));
    EXPECT_NE(nullptr, strstr(dlerror(), text)) << "what this program itself is told";
    TranslateMapping();
  }
}

// Somebody else may hold the image when the load that ran its entry point has failed.
TEST(Modules, WhatRefusedIsRefusedForAsLongAsItIsMapped) {
  const fs::path path = CopyOf("refuses_and_stays.dll", "refusing.dll");
  for (int i = 0; i < 2; ++i) {
    SetLastError(0);
    EXPECT_EQ(nullptr, LoadLibraryA(Ansi(path).c_str()));
    EXPECT_EQ(ERROR_DLL_INIT_FAILED, GetLastError());
  }
  const HMODULE held = GetModuleHandleA("refusing.dll");
  ASSERT_NE(nullptr, held);
  EXPECT_TRUE(FreeLibrary(held));
  EXPECT_EQ(std::string::npos, Maps().find("refusing.dll"));
  fs::rename(CopyOf("part5.dll", "next.dll"), path);
  const HMODULE next = LoadLibraryA(Ansi(path).c_str());  // mostly at the same address
  ASSERT_NE(nullptr, next);
  EXPECT_EQ(5, Number(next));
  FreeLibrary(next);
}

// Cut at every length of its headers and at many others, a library is refused or loads, and never kills.
TEST(Modules, CutAnywhere) {
  const fs::path whole = kParts / "part2.dll";
  const auto size = fs::file_size(whole);
  for (uintmax_t length = 0; length < size; length += length < 1024 ? 8 : 977) {
    const fs::path cut = CopyOf("part2.dll", "some.dll");
    fs::resize_file(cut, length);
    if (const HMODULE module = LoadLibraryA(Ansi(cut).c_str())) {
      EXPECT_EQ(2, Number(module)) << length;
      FreeLibrary(module);
    }
  }
}

TEST(Modules, AReplacedFileLoadsOnceTheOldOneIsFree) {
  const fs::path path = CopyOf("part4.dll", "changing.dll");
  const HMODULE old = LoadLibraryA(Ansi(path).c_str());
  ASSERT_EQ(4, Number(old));
  fs::rename(CopyOf("part5.dll", "next.dll"), path);
  EXPECT_EQ(old, LoadLibraryA(Ansi(path).c_str()));
  EXPECT_EQ(4, Number(old));
  FreeLibrary(old);
  FreeLibrary(old);
  const HMODULE next = LoadLibraryA(Ansi(path).c_str());
  EXPECT_EQ(5, Number(next));
  FreeLibrary(next);
}

TEST(Modules, HearOfThreadsThatTheLayerMadeAndOfTheEndOfOthers) {
  const HMODULE module = LoadLibraryA(Ansi(kParts / "part6.dll").c_str());
  const auto run = [](void*) -> DWORD { return 0; };
  const orm::test::Handle made(CreateThread(nullptr, 0, run, nullptr, 0, nullptr));
  WaitForSingleObject(made.get(), INFINITE);
  EXPECT_EQ(1, Reasons(module, DLL_THREAD_ATTACH));
  EXPECT_EQ(1, Reasons(module, DLL_THREAD_DETACH)) << "detach comes before the handle is signalled";
  const orm::test::Handle never(CreateThread(nullptr, 0, run, nullptr, CREATE_SUSPENDED, nullptr));
  TerminateThread(never.get(), 0);
  std::thread([] {}).join();
  EXPECT_EQ(1, Reasons(module, DLL_THREAD_DETACH)) << "a thread that never used the layer";
  DWORD index = TlsAlloc();
  std::thread([&] { TlsSetValue(index, &index); }).join();
  EXPECT_EQ(1, Reasons(module, DLL_THREAD_ATTACH));
  EXPECT_EQ(2, Reasons(module, DLL_THREAD_DETACH));
  TlsFree(index);
  FreeLibrary(module);
}

// Threads that end while a library is loaded and freed again and again run its code or skip it, and never
// call what is no longer mapped.
TEST(Modules, UnloadAgainstThreadEnd) {
  if (test::IS_THREAD_SANITIZED) GTEST_SKIP() << "the thread sanitizer does not see the loader's own lock";
  std::atomic<bool> stop{false};
  std::vector<std::thread> makers;
  for (int i = 0; i < 2; ++i) {
    makers.emplace_back([&] {
      while (!stop) std::thread([] { GetCurrentThreadId(); }).join();
    });
  }
  for (int round = 0; round < 300; ++round) {
    const HMODULE module = LoadLibraryA(Ansi(kParts / "part7.dll").c_str());
    ASSERT_NE(nullptr, module) << GetLastError();
    ASSERT_TRUE(FreeLibrary(module));
  }
  stop = true;
  for (auto& maker : makers) maker.join();
}

// Whoever asks for modules by name walks through the loader's list while another thread changes it.
TEST(Modules, AreFoundWhileOthersComeAndGo) {
  if (test::IS_THREAD_SANITIZED) GTEST_SKIP() << "the thread sanitizer does not see the loader's own lock";
  const HMODULE program = GetModuleHandleA(nullptr);
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::thread asker([&] {
    char name[MAX_PATH];
    while (!stop) {
      const bool isRight = GetModuleHandleA(nullptr) == program &&
                           GetModuleHandleA("nothing.dll") == nullptr &&
                           GetModuleFileNameA(nullptr, name, sizeof(name)) != 0;
      if (!isRight) ++wrong;
    }
  });
  int failed = 0;
  for (int round = 0; round < 1000; ++round) {
    const HMODULE module = LoadLibraryA(Ansi(kParts / "part8.dll").c_str());
    if (module == nullptr || !FreeLibrary(module)) ++failed;
  }
  stop = true;
  asker.join();
  EXPECT_EQ(0, failed);
  EXPECT_EQ(0, wrong);
}

}  // namespace
