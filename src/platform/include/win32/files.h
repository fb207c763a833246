// Files, folders, folder searches and change notifications. Paths are in the ANSI code page and take drive
// letters, back slashes or slashes; they are resolved without regard to case when the exact spelling is
// absent. Unless a comment says otherwise: a function returns FALSE (or the named value) on failure and sets
// the last error; any thread may call at any time; a handle may be used by several threads, with no order
// promised between them.
#pragma once

#include "win32/types.h"

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD GENERIC_EXECUTE = 0x20000000;
inline constexpr DWORD GENERIC_ALL = 0x10000000;
inline constexpr DWORD FILE_READ_DATA = 0x0001;
inline constexpr DWORD FILE_WRITE_DATA = 0x0002;
inline constexpr DWORD FILE_APPEND_DATA = 0x0004;

inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;

inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD CREATE_ALWAYS = 2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD OPEN_ALWAYS = 4;
inline constexpr DWORD TRUNCATE_EXISTING = 5;

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x0001;
inline constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x0002;
inline constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x0004;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x0010;
inline constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x0020;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x0080;
inline constexpr DWORD FILE_ATTRIBUTE_TEMPORARY = 0x0100;
inline constexpr DWORD FILE_ATTRIBUTE_REPARSE_POINT = 0x0400;  // a link that leads nowhere
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;

inline constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000;
inline constexpr DWORD FILE_FLAG_RANDOM_ACCESS = 0x10000000;
inline constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000;
inline constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000;
inline constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000;

inline constexpr DWORD FILE_BEGIN = 0;
inline constexpr DWORD FILE_CURRENT = 1;
inline constexpr DWORD FILE_END = 2;
inline constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFF;
inline constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

inline constexpr DWORD MOVEFILE_REPLACE_EXISTING = 1;
inline constexpr DWORD MOVEFILE_COPY_ALLOWED = 2;
inline constexpr DWORD MOVEFILE_WRITE_THROUGH = 8;

inline constexpr DWORD FILE_NOTIFY_CHANGE_FILE_NAME = 0x01;
inline constexpr DWORD FILE_NOTIFY_CHANGE_DIR_NAME = 0x02;
inline constexpr DWORD FILE_NOTIFY_CHANGE_ATTRIBUTES = 0x04;
inline constexpr DWORD FILE_NOTIFY_CHANGE_SIZE = 0x08;
inline constexpr DWORD FILE_NOTIFY_CHANGE_LAST_WRITE = 0x10;

enum GET_FILEEX_INFO_LEVELS { GetFileExInfoStandard = 0 };

struct WIN32_FILE_ATTRIBUTE_DATA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;  // the earliest time known, as disks here do not always keep one
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;  // 100 ns units since 1601-01-01 UTC
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
};

struct WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  char cFileName[MAX_PATH];  // entries whose name does not fit are left out
  char cAlternateFileName[14];
};

extern "C" {

// Opens or creates a file; INVALID_HANDLE_VALUE on failure. After OPEN_ALWAYS or CREATE_ALWAYS of a file that
// was there the last error is ERROR_ALREADY_EXISTS, after one that was made it is 0. Errors: 2 no such file,
// 3 no such folder, 5 denied or a folder, 32 another open file forbids the access or uses what this call
// forbids (share flags hold between all users of this function, in every process), 80 CREATE_NEW of an
// existing file, 87, 112 disk full, 123. An attribute block with a null access list makes a new file
// readable and writable to every user. FILE_FLAG_WRITE_THROUGH: a write returns when the data are on the
// disk. FILE_APPEND_DATA without FILE_WRITE_DATA: every write goes to the end of the file, in one step.
ORM_PLATFORM_API HANDLE CreateFileA(const char* name, DWORD access, DWORD share,
                                    SECURITY_ATTRIBUTES* attributes, DWORD disposition,
                                    DWORD flagsAndAttributes, HANDLE templateFile) noexcept;
// Reads up to `size` bytes at the file's position; TRUE with *read = 0 at the end of the file. `overlapped`
// must be null.
ORM_PLATFORM_API BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read, void* overlapped) noexcept;
// Writes `size` bytes; less than all is a failure, of which *written tells how far it came.
ORM_PLATFORM_API BOOL WriteFile(HANDLE file, const void* buffer, DWORD size, DWORD* written,
                                void* overlapped) noexcept;
// Moves the file's position; the low half of the new one, or INVALID_SET_FILE_POINTER (which is a failure
// only when the last error is not 0). 131: before the start of the file.
ORM_PLATFORM_API DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method) noexcept;
ORM_PLATFORM_API BOOL SetEndOfFile(HANDLE file) noexcept;
ORM_PLATFORM_API DWORD GetFileSize(HANDLE file, DWORD* sizeHigh) noexcept;
ORM_PLATFORM_API BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) noexcept;
ORM_PLATFORM_API BOOL FlushFileBuffers(HANDLE file) noexcept;
ORM_PLATFORM_API BOOL GetFileTime(HANDLE file, FILETIME* creation, FILETIME* access,
                                  FILETIME* write) noexcept;
// Sets the times that are not null. A creation time cannot be set and is accepted without effect.
ORM_PLATFORM_API BOOL SetFileTime(HANDLE file, const FILETIME* creation, const FILETIME* access,
                                  const FILETIME* write) noexcept;

ORM_PLATFORM_API BOOL DeleteFileA(const char* name) noexcept;
// Renames a file or folder. Without MOVEFILE_REPLACE_EXISTING an existing target is ERROR_ALREADY_EXISTS
// (183); with it a file is replaced in one step, so that everybody sees the old file or the new one. 17: the
// target lies on another disk; nothing is copied. A file may be renamed, replaced or deleted while it is
// open: who has it open keeps the old content.
ORM_PLATFORM_API BOOL MoveFileExA(const char* from, const char* to, DWORD flags) noexcept;
// A null access list makes a folder in which every user may create and only the owner of an entry remove.
ORM_PLATFORM_API BOOL CreateDirectoryA(const char* name, SECURITY_ATTRIBUTES* attributes) noexcept;
ORM_PLATFORM_API BOOL RemoveDirectoryA(const char* name) noexcept;

// INVALID_FILE_ATTRIBUTES when there is no such file. Links are followed; one that leads nowhere is told of
// itself.
ORM_PLATFORM_API DWORD GetFileAttributesA(const char* name) noexcept;
ORM_PLATFORM_API BOOL GetFileAttributesExA(const char* name, GET_FILEEX_INFO_LEVELS level,
                                           void* data) noexcept;

// Lists the entries of a folder that match a pattern of `*` and `?` in its last component, without regard to
// case, in case-insensitive order of names, `.` and `..` first. "*.*" matches every name. The listing is made
// by the first call; an entry that vanishes afterwards is still listed as it was. In a name, '?' stands for
// what the code page lacks and for what no path may hold. INVALID_HANDLE_VALUE on failure: 2 nothing matches,
// 3 no such folder, 123 the pattern holds what no name may, another error when not all of the folder could be
// read. The handle belongs to FindNextFileA and FindClose only.
ORM_PLATFORM_API HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data) noexcept;
// FALSE with ERROR_NO_MORE_FILES (18) at the end.
ORM_PLATFORM_API BOOL FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data) noexcept;
ORM_PLATFORM_API BOOL FindClose(HANDLE search) noexcept;

// A handle that is signaled once something named by `filter` happened in the folder (and below it, when
// `subtree`) since it was made or re-armed; waited for like any other. INVALID_HANDLE_VALUE on failure:
// ERROR_DIRECTORY (267) when it is no folder, ERROR_NO_SYSTEM_RESOURCES (1450) when the user has no
// watch left (fs.inotify.max_user_watches), or there is no queue for the process: all its notifications share
// one, which takes a descriptor and counts by fs.inotify.max_user_instances.
ORM_PLATFORM_API HANDLE FindFirstChangeNotificationA(const char* folder, BOOL subtree, DWORD filter) noexcept;
// Re-arms; a change that came in between signals the handle again. FALSE (5) when the folder is gone.
ORM_PLATFORM_API BOOL FindNextChangeNotification(HANDLE change) noexcept;
ORM_PLATFORM_API BOOL FindCloseChangeNotification(HANDLE change) noexcept;

// These five return the length without the terminator; when the buffer is too small, the size needed with
// it; 0 on failure. The temporary folder ends in a back slash, the others do not.
ORM_PLATFORM_API DWORD GetTempPathA(DWORD size, char* buffer) noexcept;
ORM_PLATFORM_API UINT GetSystemDirectoryA(char* buffer, UINT size) noexcept;
ORM_PLATFORM_API UINT GetWindowsDirectoryA(char* buffer, UINT size) noexcept;
ORM_PLATFORM_API DWORD GetCurrentDirectoryA(DWORD size, char* buffer) noexcept;
// *filePart, when asked for, points at the last component of the result, null when it ends in a separator.
ORM_PLATFORM_API DWORD GetFullPathNameA(const char* name, DWORD size, char* buffer, char** filePart) noexcept;
ORM_PLATFORM_API BOOL SetCurrentDirectoryA(const char* name) noexcept;
}
