// Files and folders by name, and the folders with names of their own.
#include <dlfcn.h>

#include <cerrno>

#include "files/Files.h"

#include "kernel/CodePage.h"
#include "kernel/Machine.h"

using namespace filestest;

namespace {

// What the disk cannot do, and what somebody else does before a plain renaming; the functions below stand
// before the C library's for the whole program.
bool renamesPlainlyOnly = false;
bool hasNoLinks = false;
std::function<void()> beforeRename;

}  // namespace

extern "C" [[gnu::visibility("default")]] int renameat2(int fromFolder, const char* from, int toFolder,
                                                        const char* to, unsigned flags) noexcept {
  static const auto next = reinterpret_cast<decltype(&renameat2)>(dlsym(RTLD_NEXT, "renameat2"));
  if (!renamesPlainlyOnly || flags == 0) return next(fromFolder, from, toFolder, to, flags);
  errno = EINVAL;
  return -1;
}

extern "C" [[gnu::visibility("default")]] int rename(const char* from, const char* to) noexcept {
  static const auto next = reinterpret_cast<decltype(&rename)>(dlsym(RTLD_NEXT, "rename"));
  if (beforeRename) beforeRename();
  return next(from, to);
}

extern "C" [[gnu::visibility("default")]] int link(const char* from, const char* to) noexcept {
  static const auto next = reinterpret_cast<decltype(&link)>(dlsym(RTLD_NEXT, "link"));
  if (!hasNoLinks) return next(from, to);
  errno = EPERM;
  return -1;
}

namespace {

DWORD ErrorOf(BOOL result) {
  return result ? 0 : GetLastError();
}

TEST_F(Files, AttributesTellFilesFromFolders) {
  Put("File");
  ASSERT_EQ(mkdir(Disk("Folder").c_str(), 0755), 0);
  Put("readonly");
  ASSERT_EQ(chmod(Disk("readonly").c_str(), 0444), 0);
  EXPECT_EQ(GetFileAttributesA(Name("file").c_str()), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(GetFileAttributesA(Name("READONLY").c_str()), FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(GetFileAttributesA(Name("FOLDER").c_str()), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetFileAttributesA("C:"), FILE_ATTRIBUTE_DIRECTORY);
  const struct {
    std::string name;
    DWORD error;
  } table[] = {{Name("none"), 2}, {Name("none\\none"), 3}, {Name("File\\none"), 3}, {"Q:\\x", 3}, {"", 3},
               {"a<b", 123}};
  for (const auto& row : table) {
    EXPECT_EQ(GetFileAttributesA(row.name.c_str()), INVALID_FILE_ATTRIBUTES) << row.name;
    EXPECT_EQ(GetLastError(), row.error) << row.name;
  }
  EXPECT_FALSE(GetFileAttributesExA(Name("File").c_str(), GetFileExInfoStandard, nullptr));
  EXPECT_EQ(GetLastError(), 87u);
}

TEST_F(Files, AreMadeMovedAndDeletedInAnyCase) {
  const auto name = [&](const char* text) { return Name(text); };
  EXPECT_EQ(ErrorOf(CreateDirectoryA(name("Folder").c_str(), nullptr)), 0u);
  EXPECT_EQ(ErrorOf(CreateDirectoryA(name("FOLDER").c_str(), nullptr)), 183u);
  EXPECT_EQ(ErrorOf(CreateDirectoryA(name("none\\x").c_str(), nullptr)), 3u);
  Put("Folder/one", "1");
  Put("two", "2");
  EXPECT_EQ(ErrorOf(RemoveDirectoryA(name("folder").c_str())), 145u);
  EXPECT_EQ(ErrorOf(RemoveDirectoryA(name("two").c_str())), 267u);
  EXPECT_EQ(ErrorOf(MoveFileExA(name("TWO").c_str(), name("folder\\ONE").c_str(), 0)), 183u);
  EXPECT_EQ(Get("Folder/one"), "1");
  EXPECT_EQ(ErrorOf(MoveFileExA(name("TWO").c_str(), name("folder\\ONE").c_str(),
                                MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)),
            0u);
  EXPECT_EQ(Get("Folder/one"), "2") << "replaced under the name it had";
  EXPECT_FALSE(Exists("two"));
  EXPECT_EQ(ErrorOf(MoveFileExA(name("folder\\one").c_str(), name("folder\\One").c_str(), 0)), 0u);
  EXPECT_TRUE(Exists("Folder/One")) << "a new spelling of its own name";
  Put("file");
  EXPECT_EQ(ErrorOf(MoveFileExA(name("file").c_str(), name("Folder").c_str(), MOVEFILE_REPLACE_EXISTING)),
            5u);
  EXPECT_EQ(ErrorOf(MoveFileExA(name("none").c_str(), name("x").c_str(), 0)), 2u);
  EXPECT_EQ(ErrorOf(MoveFileExA(name("file").c_str(), name("none\\x").c_str(), 0)), 3u);
  EXPECT_EQ(ErrorOf(DeleteFileA(name("none").c_str())), 2u);
  EXPECT_EQ(ErrorOf(DeleteFileA(name("folder").c_str())), 5u);
  EXPECT_EQ(ErrorOf(DeleteFileA(name("FOLDER\\ONE").c_str())), 0u);
  EXPECT_EQ(ErrorOf(RemoveDirectoryA(name("FOLDER").c_str())), 0u);
  EXPECT_FALSE(Exists("Folder"));
}

TEST_F(Files, AreMovedOnDisksThatRenamePlainlyOnly) {
  renamesPlainlyOnly = true;
  for (const bool links : {true, false}) {
    hasNoLinks = !links;
    Put("one", "1");
    Put("two", "2");
    ASSERT_EQ(mkdir(Disk("folder").c_str(), 0755), 0);
    const auto move = [&](const char* from, const char* to) {
      return ErrorOf(MoveFileExA(Name(from).c_str(), Name(to).c_str(), 0));
    };
    EXPECT_EQ(move("one", "two"), 183u);
    EXPECT_EQ(move("folder", "two"), 183u);
    EXPECT_EQ(Get("one") + Get("two"), "12");
    EXPECT_EQ(move("one", "folder\\three"), 0u);
    EXPECT_EQ(move("folder", "other"), 0u);
    EXPECT_EQ(Get("other/three"), "1");
    EXPECT_FALSE(Exists("one") || Exists("folder"));
    EXPECT_EQ(move("none", "x"), 2u);
    EXPECT_EQ(move("two", "none\\x"), 3u);
    EXPECT_EQ(
        ErrorOf(MoveFileExA(Name("two").c_str(), Name("other\\three").c_str(), MOVEFILE_REPLACE_EXISTING)),
        0u);
    EXPECT_EQ(Get("other/three"), "2");
    ASSERT_EQ(unlink(Disk("other/three").c_str()) | rmdir(Disk("other").c_str()), 0);
  }
}

// Where renaming is plain it replaces what has come to stand at the new name since somebody looked.
TEST_F(Files, AreNotMovedOverWhatOthersMakeMeanwhile) {
  renamesPlainlyOnly = hasNoLinks = true;
  Put("one", "1");
  ASSERT_EQ(mkdir(Disk("folder").c_str(), 0755), 0);
  for (const char* from : {"one", "folder"}) {
    int made = 0;
    beforeRename = [&] {
      const int file = open(Disk("to").c_str(), O_CREAT | O_EXCL | O_WRONLY, 0644);
      if (file >= 0) close(file);
      made += file >= 0 || mkdir(Disk("to").c_str(), 0755) == 0;
    };
    EXPECT_EQ(ErrorOf(MoveFileExA(Name(from).c_str(), Name("to").c_str(), 0)), 0u) << from;
    EXPECT_EQ(made, 0) << from;
    ASSERT_EQ(std::remove(Disk("to").c_str()), 0);
  }
  ASSERT_EQ(mkdir(Disk("folder").c_str(), 0755), 0);
  beforeRename = [&] { Put("to/another's"); };
  EXPECT_NE(ErrorOf(MoveFileExA(Name("folder").c_str(), Name("to").c_str(), 0)), 0u);
  EXPECT_TRUE(Exists("to/another's") && Exists("folder"));
  beforeRename = nullptr;
}

TEST_F(Files, TheSystemsFoldersAreOnDriveC) {
  char buffer[300] = "####";
  EXPECT_EQ(GetTempPathA(sizeof buffer, buffer), 16u);
  EXPECT_STREQ(buffer, "C:\\Windows\\Temp\\");
  EXPECT_EQ(GetFileAttributesA(buffer), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(GetSystemDirectoryA(buffer, sizeof buffer), 19u);
  EXPECT_STREQ(buffer, "C:\\Windows\\System32");
  EXPECT_EQ(GetWindowsDirectoryA(buffer, 11), 10u);
  EXPECT_STREQ(buffer, "C:\\Windows");
  EXPECT_EQ(GetSystemDirectoryA(buffer, 19), 20u) << "too small: the size needed, with the terminator";
  EXPECT_STREQ(buffer, "C:\\Windows");
  EXPECT_EQ(GetTempPathA(0, nullptr), 17u);
}

// The last byte of 0x83 0x5C looks like a back slash.
TEST_F(Files, AWholePathEndsOpenByItsLastCharacter) {
  ASSERT_TRUE(orm::platform::SetAnsiCodePage(932));
  const std::pair<const char*, const char*> table[] = {
      {"Z:\\\x83\x5C", "Z:\\\x83\x5C"}, {"Z:/\x83\x5C/", "Z:\\\x83\x5C\\"}, {"Z:\\a/", "Z:\\a\\"}};
  for (const auto& [name, whole] : table) {
    char buffer[300] = "";
    ASSERT_GT(GetFullPathNameA(name, sizeof buffer, buffer, nullptr), 0u);
    EXPECT_STREQ(buffer, whole);
  }
}

TEST_F(Files, TheCurrentFolderIsFoundAndChanged) {
  ASSERT_EQ(mkdir(Disk("Sub").c_str(), 0755), 0);
  Put("Sub/f");
  char buffer[300];
  ASSERT_TRUE(SetCurrentDirectoryA(Name("sub").c_str()));
  EXPECT_EQ(GetCurrentDirectoryA(sizeof buffer, buffer), Name("Sub").size());
  EXPECT_EQ(buffer, Name("Sub"));
  EXPECT_EQ(GetCurrentDirectoryA(3, buffer), Name("Sub").size() + 1);
  EXPECT_EQ(GetFileAttributesA("F"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(ErrorOf(SetCurrentDirectoryA("none")), 2u);
  EXPECT_EQ(ErrorOf(SetCurrentDirectoryA("f")), 267u);
  char* part = nullptr;
  ASSERT_GT(GetFullPathNameA("..\\x\\.\\y", sizeof buffer, buffer, &part), 0u);
  EXPECT_EQ(buffer, Name("x\\y"));
  EXPECT_STREQ(part, "y");
  ASSERT_GT(GetFullPathNameA("x\\", sizeof buffer, buffer, &part), 0u);
  EXPECT_EQ(buffer, Name("Sub\\x\\"));
  EXPECT_EQ(part, nullptr);
  ASSERT_GT(GetFullPathNameA("Z:/", sizeof buffer, buffer, &part), 0u);
  EXPECT_STREQ(buffer, "Z:\\");
  ASSERT_TRUE(SetCurrentDirectoryA("C:\\Windows"));
  EXPECT_EQ(GetCurrentDirectoryA(sizeof buffer, buffer), 10u);
  EXPECT_STREQ(buffer, "C:\\Windows");
}

}  // namespace
