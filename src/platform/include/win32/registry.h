// The registry: keys and values shared by all processes of the machine, kept on disk.
//
// Names are in the ANSI code page, compare without regard to case and keep the spelling that created them.
// A key name has 1 to 255 bytes and no back slash, a value name up to 16383 bytes; both may hold any other
// byte but zero. Sizes are in bytes. Every function returns an error number (0 for success) and leaves the
// last error alone. Each call is one step: other threads and processes see all of it or nothing. Any thread
// may call at any time, also with one handle; a handle is inherited over fork.
//
// Who may do what: HKEY_CURRENT_USER is the effective user's alone. HKEY_LOCAL_MACHINE is read by every user
// and written by the owner of the machine folder (and root), except the keys that were created with a null
// access list, and all keys below those, which every user may write.
//
// How long it lasts: a call that has returned survives the death of the process by any means; RegFlushKey
// makes it survive the loss of power.
//
// Error numbers that every function may return: 5 denied, 6 not an open key, 8 no memory (nothing is thrown),
// 87 an argument that cannot be, 112 the disk is full, 1009 the store is damaged, 1018 the key was deleted
// while this handle was open, 1450 no more readers or handles.
#pragma once

#include "win32/types.h"

using REGSAM = DWORD;
using LSTATUS = LONG;

#define HKEY_CURRENT_USER ((HKEY)(ULONG_PTR)0x80000001u)
#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)0x80000002u)

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_DWORD_BIG_ENDIAN = 5;
inline constexpr DWORD REG_LINK = 6;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_SET_VALUE = 0x0002;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr REGSAM KEY_NOTIFY = 0x0010;
inline constexpr REGSAM KEY_CREATE_LINK = 0x0020;
inline constexpr REGSAM KEY_READ = 0x20019;
inline constexpr REGSAM KEY_WRITE = 0x20006;
inline constexpr REGSAM KEY_EXECUTE = 0x20019;
inline constexpr REGSAM KEY_ALL_ACCESS = 0xF003F;

inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

extern "C" {

// Opens a key and makes what is missing of its path. *disposition (may be null) tells which of the two
// happened to the last component. The class name (may be null) is kept with a new key. The rights asked for
// are granted or the call fails with 5, in which case nothing was made. Of the attributes only a null access
// list matters, and only where the machine's keys are: the new key is open to every user.
ORM_PLATFORM_API LSTATUS RegCreateKeyExA(HKEY key, const char* subKey, DWORD reserved, char* className,
                                         DWORD options, REGSAM access, const SECURITY_ATTRIBUTES* attributes,
                                         HKEY* result, DWORD* disposition);
// 2 when a part of the path is missing, 161 when the path begins with a back slash. A null or empty path
// opens the same key once more.
ORM_PLATFORM_API LSTATUS RegOpenKeyExA(HKEY key, const char* subKey, DWORD options, REGSAM access,
                                       HKEY* result);
ORM_PLATFORM_API LSTATUS RegCloseKey(HKEY key);
// Deletes a key and its values. 5 while it has subkeys, and for the roots. Handles that are open on it stay
// to be closed, every other use of them is 1018.
ORM_PLATFORM_API LSTATUS RegDeleteKeyA(HKEY key, const char* subKey);
// Writes all that was stored before this call to the disk.
ORM_PLATFORM_API LSTATUS RegFlushKey(HKEY key);

// Needs KEY_QUERY_VALUE. Without a buffer *size is set to the value's size. A buffer that is too small is 234
// with *size the size needed and the buffer untouched. A string that was stored without a terminator gets
// one where the buffer has room, which *size does not count. The null or empty name is the default value.
ORM_PLATFORM_API LSTATUS RegQueryValueExA(HKEY key, const char* valueName, DWORD* reserved, DWORD* type,
                                          BYTE* data, DWORD* size);
// Needs KEY_SET_VALUE. Data up to 256 MiB; more is 1450.
ORM_PLATFORM_API LSTATUS RegSetValueExA(HKEY key, const char* valueName, DWORD reserved, DWORD type,
                                        const BYTE* data, DWORD size);
ORM_PLATFORM_API LSTATUS RegDeleteValueA(HKEY key, const char* valueName);

// Needs KEY_QUERY_VALUE. Every result may be null. The lengths of names come without terminators.
ORM_PLATFORM_API LSTATUS RegQueryInfoKeyA(HKEY key, char* className, DWORD* classLength, DWORD* reserved,
                                          DWORD* subKeys, DWORD* maxSubKeyLength, DWORD* maxClassLength,
                                          DWORD* values, DWORD* maxValueNameLength, DWORD* maxValueSize,
                                          DWORD* securityDescriptorSize, FILETIME* lastWrite);
// The value with the given index, in the order of the names without regard to case; 259 behind the last. When
// others change the key meanwhile, the index after the one that was asked for last is the value after it: an
// enumeration from 0 on meets every value that stays, once. RegEnumKeyExA does likewise.
// *nameLength is the buffer's size at entry, the name's length without its terminator on success; a name
// that does not fit is 234. Data as for RegQueryValueExA. Needs KEY_QUERY_VALUE.
ORM_PLATFORM_API LSTATUS RegEnumValueA(HKEY key, DWORD index, char* valueName, DWORD* nameLength,
                                       DWORD* reserved, DWORD* type, BYTE* data, DWORD* size);
// The same for subkeys. Needs KEY_ENUMERATE_SUB_KEYS.
ORM_PLATFORM_API LSTATUS RegEnumKeyExA(HKEY key, DWORD index, char* name, DWORD* nameLength, DWORD* reserved,
                                       char* className, DWORD* classLength, FILETIME* lastWrite);
}
