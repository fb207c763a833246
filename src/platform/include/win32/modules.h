// Modules: loading and freeing libraries, looking up what they export, their file names, and how a module
// that has an entry point is told of processes and threads. A module handle is the address at which the image
// lies.
#pragma once

#include "win32/errors.h"
#include "win32/types.h"

inline constexpr DWORD DONT_RESOLVE_DLL_REFERENCES = 1;
inline constexpr DWORD LOAD_LIBRARY_AS_DATAFILE = 2;
inline constexpr DWORD LOAD_WITH_ALTERED_SEARCH_PATH = 8;

inline constexpr UINT SEM_FAILCRITICALERRORS = 1;
inline constexpr UINT SEM_NOGPFAULTERRORBOX = 2;
inline constexpr UINT SEM_NOOPENFILEERRORBOX = 0x8000;

inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;
inline constexpr DWORD DLL_THREAD_ATTACH = 2;
inline constexpr DWORD DLL_THREAD_DETACH = 3;

// A module's entry point: the module, one of the four reasons, a reserved pointer (null here). Threads that
// begin or end at the same time call it at the same time: no lock of the loader is held.
using OrmDllMain = BOOL (*)(HINSTANCE module, DWORD reason, void* reserved);

extern "C" {

// Loads the library (ANSI path; local symbols, all references bound at once) or counts it once more when it
// is loaded: as long as a library stays loaded its path names that image, also after the file was replaced by
// rename; once freed the path loads the new file. The names "USER32.DLL", "KERNEL32.DLL" and "GDI32.DLL",
// without folder and in any case, stand for the layer itself. `file` must be null. Errors:
// ERROR_MOD_NOT_FOUND (the file or a library that it needs), ERROR_BAD_EXE_FORMAT (no shared object for this
// machine, or one cut short), ERROR_ACCESS_DENIED (a folder, a pipe, a device), ERROR_PROC_NOT_FOUND (an
// import that nothing exports), ERROR_DLL_INIT_FAILED (its entry point refused). An exception that leaves a
// static constructor ends the process with a message: the loader's own state cannot be unwound.
ORM_PLATFORM_API HMODULE LoadLibraryExA(const char* path, HANDLE file, DWORD flags) noexcept;
ORM_PLATFORM_API HMODULE LoadLibraryA(const char* path) noexcept;
// Gives up one LoadLibrary; the last one unmaps the image. ERROR_MOD_NOT_FOUND for a module that is not
// loaded.
ORM_PLATFORM_API BOOL FreeLibrary(HMODULE module) noexcept;
// The address of an export of the module itself (not of the libraries it uses); ERROR_PROC_NOT_FOUND.
ORM_PLATFORM_API FARPROC GetProcAddress(HMODULE module, const char* name) noexcept;
// The handle of a loaded module by path or file name, or of the program (null name); not counted.
ORM_PLATFORM_API HMODULE GetModuleHandleA(const char* name) noexcept;
// The module that an address lies in, not counted: only with both flags, anything else is
// ERROR_INVALID_PARAMETER; ERROR_MOD_NOT_FOUND for an address of no module.
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT = 2;
inline constexpr DWORD GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS = 4;
ORM_PLATFORM_API BOOL GetModuleHandleExA(DWORD flags, const char* address, HMODULE* module) noexcept;
// The full path of the module (null: the program) into `buffer` of `size` characters; returns the length
// without the terminator. A short buffer is filled, terminated, and gives `size` with
// ERROR_INSUFFICIENT_BUFFER.
ORM_PLATFORM_API DWORD GetModuleFileNameA(HMODULE module, char* buffer, DWORD size) noexcept;
// Exchanges the process's error mode; kept for the caller, since this layer shows no dialogs on failures.
ORM_PLATFORM_API UINT SetErrorMode(UINT mode) noexcept;

// Registers the entry point of the module that holds `addressInModule`, to be called by that module's own
// first initialisation step, and runs its process attach on the calling thread. From then on the entry point
// hears of every thread that CreateThread starts and of the end of every thread that used the layer. When
// process attach returns FALSE (or throws) the module is not registered and the function returns FALSE; a
// LoadLibraryExA in progress on this thread then fails with ERROR_DLL_INIT_FAILED, and outside of one the
// process ends with a message, as a program that cannot be started. It is the same without memory for the
// registration (ERROR_NOT_ENOUGH_MEMORY), in which case the entry point is not called at all.
ORM_PLATFORM_API BOOL OrmAttachModule(const void* addressInModule, OrmDllMain entry) noexcept;
// The counterpart, called by the module's last termination step: runs process detach and forgets the module.
// FALSE when the module is not registered (its attach failed).
ORM_PLATFORM_API BOOL OrmDetachModule(const void* addressInModule) noexcept;

}  // extern "C"
