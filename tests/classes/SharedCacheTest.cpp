// Several processes and the class lists that they share; the machine's default paths; trace and assertions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <win32.h>
#include <win32/debugwatch.h>

#include <fstream>

#include "HostProcess.h"
#include "Random.h"
#include "TestFolder.h"
#include "kernel/Machine.h"
#include "support/Child.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

constexpr size_t BLOCK_BYTES = 65536;

// The backing file, as the class manager names it.
std::string GetBackingFile() {
  char path[1024];
  return std::string(path, GetTempPathA(sizeof path, path)) + "zrclrg41.tmp";
}

void WriteBackingFile(const std::string& content) {
  HANDLE file = CreateFileA(GetBackingFile().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  DWORD written = 0;
  WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &written, nullptr);
  CloseHandle(file);
}

void SetValue(const char* key, const char* name, const std::string& text, DWORD type = REG_SZ) {
  HKEY handle = nullptr;
  ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &handle,
                            nullptr),
            0);
  RegSetValueExA(handle, name, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>(text.size() + 1));
  RegCloseKey(handle);
}

class SharedCache : public testing::Test {
 protected:
  SharedCache() {
    mFolder.Add("alpha");
    mFolder.Add("beta");
  }
  // Registers the folder in a process of its own; how often that loaded a library.
  size_t CountLoads(uid_t user = 0) {
    const size_t before = GetLoads().size();
    EXPECT_THAT(HostProcess::Run({"register", GetPath(), "classes"}, user),
                ElementsAre("registered", "CID_Beta", "CID_Alpha"));
    return GetLoads().size() - before;
  }
  std::string GetPath(const char* name = "") const { return mFolder.GetPathText(name); }

  TestFolder mFolder;
};

TEST_F(SharedCache, TheSecondProcessLoadsNothing) {
  HostProcess first({"register", GetPath(), "maps", "wait", "create", "CID_Alpha", "maps"});
  EXPECT_EQ(first.ReadLine(), "registered");
  EXPECT_EQ(first.ReadLine(), "waiting");
  EXPECT_EQ(GetLoads().size(), 2u);
  EXPECT_EQ(CountLoads(), 0u) << "while the first one lives";
  first.Continue();
  EXPECT_THAT(first.Finish(), ElementsAre("1", "mapped alpha.dll"));
  EXPECT_EQ(GetLoads().size(), 3u);
  EXPECT_EQ(CountLoads(), 0u) << "the list outlives its process";
  EXPECT_THAT(HostProcess::Run({"register", GetPath(), "maps", "create", "CID_Beta", "maps"}),
              ElementsAre("registered", "1", "mapped beta.dll"));
}

TEST_F(SharedCache, PathsOfOneFileShareOneList) {
  EXPECT_EQ(CountLoads(), 2u);
  std::string path = GetPath();
  for (char& c : path) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_THAT(HostProcess::Run({"register", path, "classes"}),
              ElementsAre("registered", "CID_Beta", "CID_Alpha"));
  EXPECT_EQ(GetLoads().size(), 2u) << "whatever the case";
}

TEST_F(SharedCache, ANewVersionIsLoadedOnceMore) {
  EXPECT_EQ(CountLoads(), 2u);
  mFolder.Add("alpha_renewed", 500, "alpha.dll");
  EXPECT_EQ(CountLoads(), 1u);
  EXPECT_EQ(CountLoads(), 0u);
}

TEST_F(SharedCache, AKilledHolderOfTheMutexLocksNobodyOut) {
  EXPECT_EQ(CountLoads(), 2u);
  HostProcess holder({"hold-mutex"});
  EXPECT_EQ(holder.ReadLine(), "waiting");
  HostProcess waiter({"register", GetPath(), "classes"});
  holder.Kill();
  EXPECT_THAT(waiter.Finish(), ElementsAre("registered", "CID_Beta", "CID_Alpha"));
  EXPECT_EQ(CountLoads(), 0u) << "what was finished is there";
}

TEST_F(SharedCache, AProcessKilledWhileItStoresDoesNoHarm) {
  Random random(1);
  EXPECT_EQ(CountLoads(), 2u);
  // One process stays, so that the mutex is found abandoned; in the other half of the rounds it has gone.
  for (int round = 0; round < 12; ++round) {
    HostProcess bystander(round % 2 ? Lines{"wait"} : Lines{"classes"});
    bystander.ReadLine();
    HostProcess churn({"churn", GetPath("alpha.dll")});
    for (unsigned i = 1 + random() % 4; i > 0; --i) EXPECT_EQ(churn.ReadLine(), "stored");
    for (unsigned spin = random() % 200000; spin > 0; --spin) asm volatile("");
    churn.Kill();
    EXPECT_LE(CountLoads(), 1u) << "at most the library whose time is new";
  }
}

TEST_F(SharedCache, WithoutItsFileTheBlockLivesAsLongAsItsProcesses) {
  ASSERT_TRUE(CreateDirectoryA(GetBackingFile().c_str(), nullptr)) << "in the file's place";
  HostProcess first({"register", GetPath(), "wait"});
  EXPECT_EQ(first.ReadLine(), "registered");
  EXPECT_EQ(first.ReadLine(), "waiting");
  EXPECT_EQ(CountLoads(), 0u);
  first.Kill();
  EXPECT_EQ(CountLoads(), 2u);
}

TEST_F(SharedCache, OnAFullDiskThereIsNone) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may mount a small disk";
  const std::string machine = std::getenv("ORM_MACHINE"), disk = machine + "/disk";
  std::filesystem::create_directory(disk);
  if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m") != 0) GTEST_SKIP() << "no disk can be mounted here";
  setenv("ORM_MACHINE", disk.c_str(), 1);
  HostProcess::Run({"classes"});  // makes the machine
  const std::string backing = disk + "/drives/drive_c/Windows/Temp/zrclrg41.tmp";
  EXPECT_TRUE(std::filesystem::remove(backing));
  std::ofstream(disk + "/rest") << std::string(2 << 20, 'x');
  EXPECT_EQ(CountLoads(), 2u);
  EXPECT_EQ(CountLoads(), 2u);
  EXPECT_FALSE(std::filesystem::exists(backing)) << "no block without its bytes is left";
  std::filesystem::remove(disk + "/rest");
  EXPECT_EQ(CountLoads(), 2u);
  EXPECT_EQ(CountLoads(), 0u) << "there is room again";
  setenv("ORM_MACHINE", machine.c_str(), 1);
  umount2(disk.c_str(), MNT_DETACH);
}

TEST_F(SharedCache, ABlockOfAnotherFormatIsNotUsed) {
  for (const std::string& content :
       {std::string(), std::string(BLOCK_BYTES, '\0'), std::string(BLOCK_BYTES, 'x')}) {
    WriteBackingFile(content);
    EXPECT_EQ(CountLoads(), 2u);
    EXPECT_EQ(CountLoads(), 2u);
  }
}

TEST_F(SharedCache, ADamagedBlockIsRepaired) {
  std::string block(BLOCK_BYTES, '\xA5');
  block.replace(0, 12, std::string("\x41\0\0\0\x85\xA0\x06\x1D\x8F\x41\x46\x8C", 12));
  WriteBackingFile(block);
  EXPECT_EQ(CountLoads(), 2u);
  EXPECT_EQ(CountLoads(), 0u);
}

TEST_F(SharedCache, ABlockThatIsCutShortIsLetGo) {
  HostProcess running(
      {"register", GetPath(), "wait", "register", GetPath("gamma.dll"), "create", "CID_Alpha"});
  EXPECT_EQ(running.ReadLine(), "registered");
  EXPECT_EQ(running.ReadLine(), "waiting");
  // Through the platform nobody can: it is in use.
  std::filesystem::resize_file(
      std::string(std::getenv("ORM_MACHINE")) + "/drives/drive_c/Windows/Temp/zrclrg41.tmp", 0);
  mFolder.Add("beta", 0, "gamma.dll");
  running.Continue();
  EXPECT_THAT(running.Finish(), ElementsAre("registered", "1"));
  EXPECT_EQ(CountLoads(), 3u) << "without the cache";
}

TEST_F(SharedCache, ABlockThatIsCutShortWhileALibraryIsListedIsLetGo) {
  const std::string block =
      std::string(std::getenv("ORM_MACHINE")) + "/drives/drive_c/Windows/Temp/zrclrg41.tmp";
  mFolder.Add("cutting", 0);
  setenv("ORM_FIXTURE_CUT", block.c_str(), 1);
  setenv("ORM_FIXTURE_OTHER", GetPath("beta.dll").c_str(), 1);
  // Another process has the mutex as soon as this one is done with it.
  HostProcess other({"register", GetPath("alpha.dll"), "wait", "register", GetPath("beta.dll")});
  EXPECT_EQ(other.ReadLine(), "registered");
  EXPECT_EQ(other.ReadLine(), "waiting");
  HostProcess cutting({"register", GetPath("cutting.dll"), "create", "CID_Cutting", "wait"});
  EXPECT_EQ(cutting.ReadLine(), "registered");
  EXPECT_EQ(cutting.ReadLine(), "1");
  EXPECT_EQ(cutting.ReadLine(), "waiting");
  other.Continue();
  EXPECT_THAT(other.Finish(), ElementsAre("registered"));
  cutting.Continue();
  EXPECT_THAT(cutting.Finish(), ElementsAre());
}

TEST_F(SharedCache, ServesEveryUserOfTheMachine) {
  if (!test::OthersMayRunPrograms()) GTEST_SKIP() << "needs root, and programs that others may run";
  ASSERT_EQ(orm::platform::ShareMachine(), 0);
  EXPECT_EQ(CountLoads(), 2u);
  EXPECT_EQ(CountLoads(65534), 0u) << "another user reads";
  mFolder.Add("alpha_renewed", 500, "alpha.dll");
  const Lines registered = HostProcess::Run({"register", GetPath(), "create", "CID_Alpha"}, 65534);
  EXPECT_THAT(registered, ElementsAre("registered", "2")) << "and stores";
  EXPECT_EQ(CountLoads(), 0u);
}

TEST_F(SharedCache, DefaultPathsAreRegisteredAtTheStart) {
  constexpr const char* KEY = "Software\\Brightwell\\LibPaths";
  TestFolder other;
  other.Add("plain1");
  TestFolder unreached;
  unreached.Add("plain2");
  SetValue(KEY, "1", GetPath("missing"));
  SetValue(KEY, "2", GetPath("alpha.dll"));
  SetValue(KEY, "3", GetPath("beta.dll"), REG_EXPAND_SZ);
  SetValue(KEY, "4", other.GetPathText());
  SetValue(KEY, "5", std::string(600, 'x'));
  SetValue(KEY, "6", unreached.GetPathText());
  EXPECT_THAT(HostProcess::Run({"classes"}), ElementsAre("CID_Alpha", "CID_Plain1"));
}

TEST_F(SharedCache, DefaultPathsEndAtOneThatIsTooLong) {
  constexpr const char* KEY = "Software\\Brightwell\\LibPaths";
  // The same file by a roundabout way of that many characters.
  const auto padded = [this](const char* name, size_t length) {
    const std::string tail = std::string("\\") + name;
    std::string path = GetPath();
    while (path.size() + tail.size() + 2 <= length) path += "\\.";
    while (path.size() + tail.size() < length) path += "\\";
    return path + tail;
  };
  SetValue(KEY, std::string(255, 'a').c_str(), padded("alpha.dll", 515));
  SetValue(KEY, "b", padded("beta.dll", 516));
  EXPECT_THAT(HostProcess::Run({"classes"}), ElementsAre("CID_Alpha")) << "516 bytes with the terminator";
  SetValue(KEY, "b", GetPath("beta.dll"));
  SetValue(KEY, std::string(256, 'a').c_str(), GetPath("alpha.dll"));
  EXPECT_THAT(HostProcess::Run({"classes"}), ElementsAre("CID_Alpha")) << "a name of 256 characters";
}

class TracedManager : public SharedCache {
 protected:
  TracedManager() {
    const std::string log = std::string(std::getenv("ORM_MACHINE")) + "/trace.log";
    SetValue("SOFTWARE\\tdbg_trace\\1.0", " option_target", ToPath(log));
    SetValue("SOFTWARE\\tdbg_trace\\1.0", " option_format", "%2|%3!c!|");
    SetValue("SOFTWARE\\tdbg_trace\\1.0", " option_autoassert", "i");
    for (const char* area : {"ClsMgr", "ClsMgr_LibraryIntl", "ClsMgr_MaskIntl", "ClsMgr_DirectoryIntl",
                             "ClsMgr_ClassManagerImpl"}) {
      SetValue("SOFTWARE\\tdbg_trace\\1.0\\ormutil", area, "t");
    }
    mLog = log;
  }
  Lines GetLog() const {
    Lines lines;
    std::ifstream log(mLog);
    for (std::string line; std::getline(log, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
    return lines;
  }

  std::string mLog;
};

// The host calls each operation once; what was entered, in order.
TEST_F(TracedManager, WritesItsScopes) {
  mFolder.Remove("beta.dll");
  EXPECT_THAT(HostProcess::Run({"call-each", GetPath(), "CID_Alpha"}), ElementsAre());
  const std::string manager = "ClsMgr_ClassManagerImpl|t|", folder = "ClsMgr_DirectoryIntl|t|",
                    mask = "ClsMgr_MaskIntl|t|", library = "ClsMgr_LibraryIntl|t|";
  const Lines known = {folder + "Register(*.dll) v.1", mask + "Register()",
                       folder + "Register(alpha.dll) v.2", library + "Register()"};
  const auto called = [&](const std::string& operation) {
    return Lines{manager + operation, manager + "Synchronize()"};
  };
  const Lines parts[] = {
      {manager + "Constructor", manager + "Register(Factory)", manager + "RegisterClasses()",
       manager + "GetNewCookie()", manager + "RegisterDefaults()"},
      {manager + "Register(" + GetPath() + ")"},
      known,
      {manager + "GetShared()", library + "Load " + GetPath("alpha.dll"), library + "EnumClasses()",
       manager + "RegisterClasses()", mask + "Unregister()", manager + "GetNewCookie()"},
      // A newer file: its classes come before the old ones go.
      {manager + "Register(" + GetPath() + ")"},
      known,
      {manager + "GetShared()", library + "Load " + GetPath("alpha.dll"), library + "EnumClasses()",
       manager + "RegisterClasses()", manager + "UnregisterClasses()", mask + "Unregister()"},
      called("CreateInstance(CID_Alpha, IID_BaseFace)"),
      {library + "Load " + GetPath("alpha.dll"), library + "CreateInstance(CID_Alpha)"},
      called("IsClassRegistered(CID_Alpha)"),
      called("EnumClasses() v.3"),
      called("EnumClasses(IID_Numbered) v.2"),
      called("EnumClasses() v.1"),
      called("GetRegistrationStamp()"),
      called("GetClassInfo(CID_Alpha)"),
      {manager + "Synchronize()"},  // of the ClassInfo
      {manager + "UnloadLibraries(0)", folder + "UnloadLibraries(0)", library + "Unload(0)",
       folder + "UnloadLibraries(0)", library + "Unload(0)"},
      {manager + "Unregister(2)", folder + "Unregister(2)"},
      {manager + "Unregister(2)", folder + "Unregister(2)", mask + "Unregister()", library + "Unregister()",
       manager + "UnregisterClasses()"},
      // The mask goes, the library, and with them the folder.
      {mask + "Unregister()", library + "Unload(0)", library + "Unregister()", folder + "UnloadLibraries(1)"},
  };
  Lines expected;
  for (const Lines& part : parts) expected.insert(expected.end(), part.begin(), part.end());
  Lines entered;
  for (std::string line : GetLog()) {
    if (const size_t mark = line.find("==> "); mark != std::string::npos)
      entered.push_back(line.erase(mark, 4));
  }
  EXPECT_EQ(entered, expected);
}

TEST_F(TracedManager, ReportsWhatCannotBeLoadedOrFreed) {
  mFolder.AddFile("text.dll", "no library");
  mFolder.Add("duplicate_class");
  HostProcess::Run({"register", GetPath(), "keep", "CID_Alpha"});
  const Lines log = GetLog();
  EXPECT_THAT(log,
              Contains("ClsMgr|e|Failed to load library: '" + GetPath("text.dll") + "', code: 000000c1."));
  EXPECT_THAT(
      log,
      Contains(HasSubstr("src/shared/ClassManager(1308):assert fail:clsids.find(clsid) == clsids.end()")));
}

// When the manager ends, the trace facility has ended before it: only the debugger hears of it.
TEST_F(TracedManager, NamesTheLibraryThatStaysAtItsEnd) {
  SetValue("SOFTWARE\\tdbg_trace\\1.0", " option_target", "<dbglog>");
  mFolder.Add("calling_back");
  const struct {
    std::vector<std::string> commands;
    const char* stays;
  } table[] = {{{"register", GetPath(), "create", "CID_Beta", "keep", "CID_Alpha"}, "alpha.dll"},
               {{"exit-creating", GetPath("calling_back.dll")}, "calling_back.dll"}};
  for (const auto& row : table) {
    orm::platform::DebugWatch watch;
    HostProcess host(row.commands);
    std::string line;
    for (orm::platform::DebugRecord record; line.empty() && watch.Read(record, 20'000);) {
      if (const size_t begin = record.text.find("ClassManager termination"); begin != std::string::npos)
        line = record.text.substr(begin, record.text.find_last_not_of("\r\n") + 1 - begin);
    }
    EXPECT_EQ(line, std::string("ClassManager termination: library '") + row.stays +
                        "' was not unloaded. Not all object were released or possible lock counting error.");
  }
}

// A file that no path can name is an assertion, and passed over like other files that are no libraries.
TEST_F(TracedManager, PassesOverAFileThatNoPathCanName) {
  mFolder.Add("plain1", 0, ".hidden.dll");
  EXPECT_EQ(CountLoads(), 2u);
  EXPECT_THAT(GetLog(),
              Contains(HasSubstr("src/shared/ClassManager(423):assert fail:mPath.Set(rDirectory, rName)")));
}

}  // namespace
