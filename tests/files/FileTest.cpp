// Open files: dispositions, share flags, content, positions, times.
#include <algorithm>
#include <limits>

#include "files/Files.h"
#include "support/ScarceMemory.h"

using namespace filestest;

namespace {

constexpr DWORD all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD readWrite = GENERIC_READ | GENERIC_WRITE;

TEST_F(Files, DispositionsDecideOnWhatIsThereAndWhatIsNot) {
  const struct {
    const char* what;
    DWORD disposition;
    bool isThere, opens;
    DWORD error;
    const char* content;
  } table[] = {
      {"new, absent", CREATE_NEW, false, true, 0, ""},
      {"new, there", CREATE_NEW, true, false, 80, "old"},
      {"always, absent", CREATE_ALWAYS, false, true, 0, ""},
      {"always, there", CREATE_ALWAYS, true, true, 183, ""},
      {"existing, absent", OPEN_EXISTING, false, false, 2, nullptr},
      {"existing, there", OPEN_EXISTING, true, true, 0, "old"},
      {"open always, absent", OPEN_ALWAYS, false, true, 0, ""},
      {"open always, there", OPEN_ALWAYS, true, true, 183, "old"},
      {"truncate, absent", TRUNCATE_EXISTING, false, false, 2, nullptr},
      {"truncate, there", TRUNCATE_EXISTING, true, true, 0, ""},
  };
  for (const auto& row : table) {
    unlink(Disk("File.txt").c_str());
    if (row.isThere) Put("File.txt", "old");
    {
      const Opened file(Name("fILE.TXT"), readWrite, 0, row.disposition);
      EXPECT_EQ(file.IsOpen(), row.opens) << row.what;
      EXPECT_EQ(file.error, row.error) << row.what;
    }
    EXPECT_EQ(Exists("fILE.TXT") || Exists("File.txt"), row.content != nullptr) << row.what;
    EXPECT_EQ(row.isThere ? Get("File.txt") : "", row.isThere ? row.content : "") << row.what;
    EXPECT_FALSE(row.isThere && Exists("fILE.TXT")) << row.what << ": one file, not two";
    unlink(Disk("fILE.TXT").c_str());
  }
  EXPECT_EQ(Opened(Name("none\\f"), GENERIC_READ, 0, OPEN_EXISTING).error, 3u);
  EXPECT_EQ(Opened(Name("none\\f"), GENERIC_WRITE, 0, CREATE_ALWAYS).error, 3u);
  EXPECT_EQ(Opened(Name(""), GENERIC_READ, 0, OPEN_EXISTING).error, 5u) << "a folder";
  EXPECT_EQ(Opened(Name("f"), GENERIC_READ, 0, 0).error, 87u);
  EXPECT_EQ(Opened(Name("f"), GENERIC_READ, 0, TRUNCATE_EXISTING).error, 87u);
  EXPECT_EQ(Opened(Name("f*"), GENERIC_READ, 0, OPEN_EXISTING).error, 123u);
  EXPECT_EQ(Opened("\\\\srv\\f", GENERIC_READ, 0, OPEN_EXISTING).error, 53u);
}

TEST_F(Files, ShareFlagsHoldAmongAllProcesses) {
  Put("f");
  const struct {
    DWORD access, share, otherAccess, otherShare;
    bool fits;
  } table[] = {
      {readWrite, 0, GENERIC_READ, all, false},
      {GENERIC_READ, all, readWrite, 0, false},
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, true},
      {GENERIC_READ, FILE_SHARE_READ, GENERIC_WRITE, all, false},
      {GENERIC_READ, all, GENERIC_WRITE, all, true},
      {GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ, FILE_SHARE_READ, false},
      {GENERIC_WRITE, FILE_SHARE_READ, GENERIC_READ, all, true},
      {GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, FILE_APPEND_DATA,
       FILE_SHARE_READ | FILE_SHARE_WRITE, true},
      {GENERIC_WRITE, FILE_SHARE_READ, FILE_APPEND_DATA, all, false},
      {GENERIC_READ, 0, 0, 0, true},
  };
  for (const auto& row : table) {
    const auto index = &row - table;
    Opened first(Name("f"), row.access, row.share, OPEN_EXISTING);
    ASSERT_TRUE(first.IsOpen()) << index;
    const auto tryIt = [&] {
      const Opened second(Name("F"), row.otherAccess, row.otherShare, OPEN_EXISTING);
      return second.IsOpen() == row.fits && (row.fits || second.error == 32) ? 0 : 1;
    };
    EXPECT_EQ(tryIt(), 0) << index;
    EXPECT_EQ(InChild(tryIt), 0) << index;
    first.Close();
    EXPECT_TRUE(Opened(Name("f"), row.otherAccess, row.otherShare, OPEN_EXISTING).IsOpen()) << index;
  }
  // A refused CREATE_ALWAYS leaves the content alone.
  Put("f", "kept");
  const Opened first(Name("f"), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
  EXPECT_EQ(Opened(Name("f"), GENERIC_WRITE, all, CREATE_ALWAYS).error, 32u);
  EXPECT_EQ(Get("f"), "kept");
}

TEST_F(Files, ContentIsReadWrittenAndCut) {
  const Opened file(Name("f"), readWrite, 0, CREATE_NEW);
  DWORD moved = 99;
  ASSERT_TRUE(WriteFile(file, "0123456789", 10, &moved, nullptr));
  EXPECT_EQ(moved, 10u);
  EXPECT_EQ(SetFilePointer(file, -3, nullptr, FILE_END), 7u);
  char buffer[16] = "";
  ASSERT_TRUE(ReadFile(file, buffer, sizeof buffer, &moved, nullptr));
  EXPECT_EQ(std::string(buffer, moved), "789");
  EXPECT_TRUE(ReadFile(file, buffer, sizeof buffer, &moved, nullptr));
  EXPECT_EQ(moved, 0u) << "at the end";
  EXPECT_EQ(SetFilePointer(file, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), 131u);
  EXPECT_EQ(SetFilePointer(file, 4, nullptr, FILE_BEGIN), 4u);
  EXPECT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(GetFileSize(file, nullptr), 4u);
  LONG high = 1;
  EXPECT_EQ(SetFilePointer(file, 5, &high, FILE_BEGIN), 5u);
  EXPECT_EQ(high, 1);
  EXPECT_TRUE(SetEndOfFile(file));
  LARGE_INTEGER size{};
  EXPECT_TRUE(GetFileSizeEx(file, &size));
  EXPECT_EQ(size.QuadPart, (LONGLONG{1} << 32) + 5);
  EXPECT_TRUE(FlushFileBuffers(file));
  EXPECT_FALSE(ReadFile(file, buffer, 1, &moved, buffer));
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_FALSE(WriteFile(nullptr, buffer, 1, &moved, nullptr));
  EXPECT_EQ(GetLastError(), 6u);
}

TEST_F(Files, AHandleDoesOnlyWhatItWasOpenedFor) {
  Put("f", "text");
  const Opened reading(Name("f"), GENERIC_READ, all, OPEN_EXISTING),
      writing(Name("f"), GENERIC_WRITE, all, OPEN_EXISTING);
  char buffer[4];
  DWORD moved = 0;
  EXPECT_FALSE(WriteFile(reading, "x", 1, &moved, nullptr));
  EXPECT_EQ(GetLastError(), 5u);
  EXPECT_FALSE(SetEndOfFile(reading));
  EXPECT_FALSE(ReadFile(writing, buffer, 4, &moved, nullptr));
  EXPECT_EQ(GetLastError(), 5u);
}

TEST_F(Files, AppendingGoesToTheEndWhereverOthersAre) {
  Put("log", "start\n");
  const Opened one(Name("log"), FILE_APPEND_DATA, all, OPEN_ALWAYS, FILE_FLAG_WRITE_THROUGH);
  const Opened two(Name("log"), FILE_APPEND_DATA, all, OPEN_ALWAYS);
  ASSERT_TRUE(one.IsOpen() && two.IsOpen());
  DWORD moved = 0;
  SetFilePointer(one, 0, nullptr, FILE_BEGIN);
  EXPECT_TRUE(WriteFile(one, "a\n", 2, &moved, nullptr));
  EXPECT_TRUE(WriteFile(two, "b\n", 2, &moved, nullptr));
  EXPECT_TRUE(WriteFile(one, "c\n", 2, &moved, nullptr));
  EXPECT_EQ(Get("log"), "start\na\nb\nc\n");
}

TEST_F(Files, ANullAccessListOpensAFileToAll) {
  umask(077);
  SECURITY_DESCRIPTOR descriptor{1, 0, SE_DACL_PRESENT, nullptr, nullptr, nullptr, nullptr};
  SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
  const Opened shared(Name("shared"), readWrite, all, OPEN_ALWAYS, 0, &attributes),
      own(Name("own"), readWrite, all, OPEN_ALWAYS);
  EXPECT_TRUE(CreateDirectoryA(Name("folder").c_str(), &attributes));
  struct stat status {};
  ASSERT_EQ(stat(Disk("shared").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666u);
  ASSERT_EQ(stat(Disk("own").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ASSERT_EQ(stat(Disk("folder").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 01777u);
}

TEST_F(Files, ALinkPlantedInASharedFolderIsNotFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  Put("victim", "precious");
  ASSERT_EQ(mkdir(Disk("temp").c_str(), 0755), 0);
  ASSERT_EQ(chmod(Disk("temp").c_str(), 01777), 0);
  ASSERT_EQ(symlink(Disk("victim").c_str(), Disk("temp/log").c_str()), 0);
  EXPECT_TRUE(Opened(Name("temp\\log"), GENERIC_READ, all, OPEN_EXISTING).IsOpen())
      << "one's own link is fine";
  ASSERT_EQ(lchown(Disk("temp/log").c_str(), 65534, 65534), 0);
  EXPECT_EQ(Opened(Name("temp\\log"), GENERIC_WRITE, all, OPEN_ALWAYS).error, 5u);
  EXPECT_EQ(Opened(Name("temp\\log"), GENERIC_WRITE, all, CREATE_ALWAYS).error, 5u);
  EXPECT_EQ(Get("victim"), "precious");
}

TEST_F(Files, TimesAreCountedFrom1601) {
  Put("f");
  const timespec times[] = {{0, 0}, {1000000000, 123456700}};
  ASSERT_EQ(utimensat(AT_FDCWD, Disk("f").c_str(), times, 0), 0);
  const Opened file(Name("f"), readWrite, all, OPEN_EXISTING);
  FILETIME access{}, write{};
  ASSERT_TRUE(GetFileTime(file, nullptr, &access, &write));
  const auto ticks = [](const FILETIME& time) {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  };
  EXPECT_EQ(ticks(access), 116444736000000000u);
  EXPECT_EQ(ticks(write), 126444736001234567u);
  const FILETIME set{0x12345678, 0x01D00000};
  ASSERT_TRUE(SetFileTime(file, nullptr, nullptr, &set));
  WIN32_FILE_ATTRIBUTE_DATA data{};
  ASSERT_TRUE(GetFileAttributesExA(Name("F").c_str(), GetFileExInfoStandard, &data));
  EXPECT_EQ(ticks(data.ftLastWriteTime), ticks(set));
  EXPECT_EQ(ticks(data.ftLastAccessTime), ticks(access)) << "what is null stays";
  EXPECT_EQ(data.nFileSizeLow, 1u);
}

// Some file systems keep any time. What is no time to the callers, 0, comes of none of them.
TEST_F(Files, AbsurdTimesAreTheFirstAndTheLast) {
  const std::string name = "/dev/shm/orm" + std::to_string(getpid());
  std::uint64_t former = 0;
  for (const time_t seconds : {std::numeric_limits<time_t>::min(), time_t{-11644473600}, time_t{0},
                               time_t{1} << 40, std::numeric_limits<time_t>::max()}) {
    std::ofstream(name) << "x";
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    if (utimensat(AT_FDCWD, name.c_str(), times, 0) != 0) GTEST_SKIP() << "no such times here";
    WIN32_FILE_ATTRIBUTE_DATA data{};
    ASSERT_TRUE(GetFileAttributesExA(("Z:" + name).c_str(), GetFileExInfoStandard, &data));
    const std::uint64_t ticks =
        std::uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
    EXPECT_GE(ticks, std::max<std::uint64_t>(former, 1)) << seconds;
    EXPECT_LE(ticks, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) << seconds;
    former = ticks;
  }
  unlink(name.c_str());
}

TEST_F(Files, DeleteOnCloseDeletes) {
  {
    const Opened file(Name("f"), readWrite, all, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE);
    EXPECT_EQ(InChild([&] { return CloseHandle(file) ? 0 : 1; }), 0);
    EXPECT_TRUE(Exists("f")) << "a child closes its copy";
  }
  EXPECT_FALSE(Exists("f"));
  {
    const Opened file(Name("f"), readWrite, all, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE);
    ASSERT_EQ(rename(Disk("f").c_str(), Disk("moved").c_str()), 0);
    Put("f", "another's");
  }
  EXPECT_EQ(Get("f"), "another's");
}

TEST_F(Files, WantOfMemoryIsAnErrorAndLeavesNothing) {
  // What the operations find, whatever was done the last time.
  const auto prepare = [&] {
    for (const char* name : {"new", "new folder"}) std::remove(Disk(name).c_str());
    mkdir(Disk("Folder").c_str(), 0755);
    Put("File");
    Put("Doomed");
  };
  const auto nextDescriptor = [] {
    const int next = dup(0);
    close(next);
    return next;
  };
  const std::string file = Name("FILE"), made = Name("new"), doomed = Name("DOOMED"), pattern = Name("*"),
                    oldFolder = Name("FOLDER"), madeFolder = Name("new folder");
  WIN32_FILE_ATTRIBUTE_DATA attributes;
  char buffer[1000];
  const std::pair<const char*, std::function<BOOL()>> table[] = {
      {"open", [&] { return Opened(file, GENERIC_READ, all, OPEN_EXISTING).IsOpen(); }},
      {"empty", [&] { return Opened(file, readWrite, all, CREATE_ALWAYS).IsOpen(); }},
      {"create", [&] { return Opened(made, readWrite, all, CREATE_NEW).IsOpen(); }},
      {"create for a while",
       [&] { return Opened(made, readWrite, all, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE).IsOpen(); }},
      {"attributes", [&] { return GetFileAttributesExA(file.c_str(), GetFileExInfoStandard, &attributes); }},
      {"delete", [&] { return DeleteFileA(doomed.c_str()); }},
      {"move", [&] { return MoveFileExA(file.c_str(), made.c_str(), MOVEFILE_WRITE_THROUGH); }},
      {"make a folder", [&] { return CreateDirectoryA(madeFolder.c_str(), nullptr); }},
      {"remove a folder", [&] { return RemoveDirectoryA(oldFolder.c_str()); }},
      {"search",
       [&] {
         WIN32_FIND_DATAA data;
         const HANDLE search = FindFirstFileA(pattern.c_str(), &data);
         if (search == INVALID_HANDLE_VALUE) return FALSE;
         const BOOL hasNext = FindNextFileA(search, &data);
         const DWORD error = GetLastError();
         FindClose(search);
         SetLastError(error);
         return hasNext;
       }},
      {"watch",
       [&] {
         const HANDLE change =
             FindFirstChangeNotificationA(folder.c_str(), TRUE, FILE_NOTIFY_CHANGE_FILE_NAME);
         return change != INVALID_HANDLE_VALUE && FindCloseChangeNotification(change);
       }},
      {"go to a folder", [&] { return SetCurrentDirectoryA(folder.c_str()); }},
      {"current folder", [&] { return GetCurrentDirectoryA(sizeof buffer, buffer) != 0; }},
      {"whole path", [&] { return GetFullPathNameA(file.c_str(), sizeof buffer, buffer, nullptr) != 0; }},
  };
  for (const auto& [what, operation] : table) {
    prepare();
    ASSERT_TRUE(operation()) << what;  // the registry, which is asked for the code page, stays open
    const int next = nextDescriptor();
    int refusals = 0;
    for (bool isRefused = true; isRefused;) {
      prepare();
      const long blocks = test::liveBlocks;
      BOOL isDone = FALSE;
      DWORD error = 0;
      bool isThrown = false;
      isRefused = test::RefuseAllocation(
          refusals++,
          [&, &run = operation] {
            isDone = run();
            error = GetLastError();
          },
          isThrown);
      EXPECT_FALSE(isThrown) << what << ", " << refusals;
      EXPECT_TRUE(isDone || (isRefused && error == ERROR_NOT_ENOUGH_MEMORY)) << what << ", " << refusals;
      EXPECT_EQ(nextDescriptor(), next) << what << ", " << refusals;
      EXPECT_EQ(test::liveBlocks, blocks) << what << ", " << refusals;
      EXPECT_TRUE(isDone || operation()) << what << ", once more after " << refusals;
    }
    EXPECT_GT(refusals, 1) << what;
  }
}

}  // namespace
