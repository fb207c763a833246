// File mappings, with and without a file and a name.
#include <gtest/gtest.h>

#include <filesystem>

#include "kernel/Handle.h"
#include "kernel/NamedHelper.h"
#include "win32/files.h"
#include "win32/kernel.h"

namespace {

using orm::test::Handle;
using namespace test;

TEST(Mapping, TwoProcessesShareItsBytes) {
  const Handle section(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 0x10000, "shared"));
  ASSERT_TRUE(section);
  auto* const view = static_cast<char*>(MapViewOfFile(section.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
  ASSERT_NE(nullptr, view);
  EXPECT_EQ('\0', view[0xFFFF]);
  strcpy(view, "question");
  Child child = Helper("open-section", "shared");
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
    Child child = Helper("open-section", "backed");
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

}  // namespace
