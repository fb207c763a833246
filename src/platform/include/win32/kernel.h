// Kernel objects and what a process does with them: handles, waits, threads, events, mutexes, file mappings,
// thread-local slots, critical sections, interlocked operations, the tick count and the debugger output.
//
// Unless a function says otherwise: any number of threads may call it at once; a BOOL result of FALSE (or a
// null handle) means failure with the reason in GetLastError(); an unknown or closed handle is
// ERROR_INVALID_HANDLE. A call that needs memory fails with ERROR_NOT_ENOUGH_MEMORY when there is none. The
// layer keeps a record of each thread that uses it, so that the first call of a thread may need some where
// later ones do not: a wait, a mutex, the thread's pseudo handle, its slots.
#pragma once

#include "win32/errors.h"
#include "win32/types.h"

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_ABANDONED_0 = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD STATUS_PENDING = 259;
inline constexpr DWORD STILL_ACTIVE = 259;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

inline constexpr DWORD DUPLICATE_CLOSE_SOURCE = 1;
inline constexpr DWORD DUPLICATE_SAME_ACCESS = 2;
inline constexpr DWORD SYNCHRONIZE = 0x00100000;
inline constexpr DWORD MUTEX_ALL_ACCESS = 0x001F0001;
inline constexpr DWORD EVENT_ALL_ACCESS = 0x001F0003;

inline constexpr DWORD CREATE_SUSPENDED = 4;

inline constexpr int THREAD_PRIORITY_LOWEST = -2;
inline constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
inline constexpr int THREAD_PRIORITY_NORMAL = 0;
inline constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
inline constexpr int THREAD_PRIORITY_HIGHEST = 2;
inline constexpr int THREAD_PRIORITY_IDLE = -15;
inline constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;
inline constexpr int THREAD_PRIORITY_ERROR_RETURN = 0x7FFFFFFF;

inline constexpr DWORD TLS_OUT_OF_INDEXES = 0xFFFFFFFF;

inline constexpr DWORD PAGE_READONLY = 2;
inline constexpr DWORD PAGE_READWRITE = 4;
inline constexpr DWORD PAGE_WRITECOPY = 8;
inline constexpr DWORD PAGE_EXECUTE_READ = 0x20;
inline constexpr DWORD FILE_MAP_COPY = 1;
inline constexpr DWORD FILE_MAP_WRITE = 2;
inline constexpr DWORD FILE_MAP_READ = 4;
inline constexpr DWORD FILE_MAP_ALL_ACCESS = 0x000F001F;

inline constexpr DWORD MEM_COMMIT = 0x1000;
inline constexpr DWORD MEM_FREE = 0x10000;
inline constexpr DWORD MEM_PRIVATE = 0x20000;
inline constexpr DWORD MEM_MAPPED = 0x40000;
inline constexpr DWORD MEM_IMAGE = 0x1000000;

// What VirtualQuery tells of a page. AllocationBase of an image is its module handle.
struct MEMORY_BASIC_INFORMATION {
  void* BaseAddress;
  void* AllocationBase;
  DWORD AllocationProtect;
  SIZE_T RegionSize;
  DWORD State;
  DWORD Protect;
  DWORD Type;
};

// A recursive lock of one process. The members are the layer's own; a zero-filled one is ready for use.
struct CRITICAL_SECTION {
  uint32_t LockWord;         // 0 free, 1 held, 2 held and waited for
  LONG RecursionCount;       // entries of the owner beyond none
  const void* OwningThread;  // identity of the owner, null when free
};

using LPTHREAD_START_ROUTINE = DWORD (*)(void* parameter);
using OrmRuntimeThreadRoutine = unsigned (*)(void* parameter);

extern "C" {

// --- Last error: one 32-bit number for each thread.
ORM_PLATFORM_API DWORD GetLastError() noexcept;
ORM_PLATFORM_API void SetLastError(DWORD code) noexcept;

// --- Handles.
// Gives up one handle; the object goes with its last handle and its last use by a wait. Closing a handle
// twice fails with ERROR_INVALID_HANDLE; closing the current thread's pseudo handle does nothing and
// succeeds.
ORM_PLATFORM_API BOOL CloseHandle(HANDLE object) noexcept;
// Makes a second handle to the same object (pseudo handles become real ones). Both processes must be the
// calling one. Access and inheritance are not kept; DUPLICATE_CLOSE_SOURCE closes `source` in any case.
ORM_PLATFORM_API BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess,
                                      HANDLE* target, DWORD access, BOOL inherit, DWORD options) noexcept;
ORM_PLATFORM_API HANDLE GetCurrentProcess() noexcept;
ORM_PLATFORM_API HANDLE GetCurrentThread() noexcept;
ORM_PLATFORM_API DWORD GetCurrentProcessId() noexcept;
// The layer's number of the calling thread, unique within the process while the thread lives, never 0.
ORM_PLATFORM_API DWORD GetCurrentThreadId() noexcept;
// How many handles the process has open (leak tests).
ORM_PLATFORM_API BOOL GetProcessHandleCount(HANDLE process, DWORD* count) noexcept;

// --- Waits. Time-outs are in milliseconds, INFINITE never ends, 0 only looks.
// WAIT_OBJECT_0, WAIT_TIMEOUT, WAIT_ABANDONED (a mutex whose owner died; the caller owns it now) or
// WAIT_FAILED.
ORM_PLATFORM_API DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept;
// Waits for one of up to 64 objects (the lowest index wins when several are signalled) or for all of them at
// once; the result is WAIT_OBJECT_0 + index, WAIT_ABANDONED_0 + index, WAIT_TIMEOUT or WAIT_FAILED. Objects
// that are not the reason of the return stay as they were. All-waits take process-local objects only, each
// once (ERROR_INVALID_PARAMETER otherwise).
ORM_PLATFORM_API DWORD WaitForMultipleObjects(DWORD count, const HANDLE* objects, BOOL all,
                                              DWORD milliseconds) noexcept;
ORM_PLATFORM_API void Sleep(DWORD milliseconds) noexcept;
ORM_PLATFORM_API BOOL SwitchToThread() noexcept;

// --- Threads.
// Starts `start(parameter)` on a new thread; `stackSize` in bytes, 0 for the default. With CREATE_SUSPENDED
// no line of `start` and no module's attach runs before ResumeThread. `threadId` may be null. The handle is
// the caller's to close and becomes signalled after the thread's detach. Fails with ERROR_NOT_ENOUGH_MEMORY
// when the system gives no more threads.
ORM_PLATFORM_API HANDLE CreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stackSize,
                                     LPTHREAD_START_ROUTINE start, void* parameter, DWORD flags,
                                     DWORD* threadId) noexcept;
// The runtime library's form of the same; 0 on failure.
ORM_PLATFORM_API uintptr_t _beginthreadex(void* security, unsigned stackSize, OrmRuntimeThreadRoutine start,
                                          void* parameter, unsigned flags, unsigned* threadId) noexcept;
// Returns the previous suspend count: 1 for a thread that was created suspended and runs now, 0 for one that
// ran already, 0xFFFFFFFF on failure.
ORM_PLATFORM_API DWORD ResumeThread(HANDLE thread) noexcept;
// Ends a thread that has not been resumed yet: it never runs a line, its handle becomes signalled before the
// call returns. A thread that has been resumed is ERROR_NOT_SUPPORTED, one that has ended
// ERROR_ACCESS_DENIED.
ORM_PLATFORM_API BOOL TerminateThread(HANDLE thread, DWORD exitCode) noexcept;
// STILL_ACTIVE until the thread has ended.
ORM_PLATFORM_API BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode) noexcept;
// One of the THREAD_PRIORITY_ values. Where the system does not let this user raise a thread's priority the
// value is remembered and read back without effect on scheduling. Threads that the layer did not make start
// at normal.
ORM_PLATFORM_API BOOL SetThreadPriority(HANDLE thread, int priority) noexcept;
ORM_PLATFORM_API int GetThreadPriority(HANDLE thread) noexcept;

// --- Events. Unnamed ones only: a name is ERROR_NOT_SUPPORTED.
ORM_PLATFORM_API HANDLE CreateEventA(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL initialState,
                                     const char* name) noexcept;
ORM_PLATFORM_API BOOL SetEvent(HANDLE event) noexcept;
ORM_PLATFORM_API BOOL ResetEvent(HANDLE event) noexcept;

// --- Mutexes, recursive, owned by a thread. With a name (ANSI, any characters, a "Global\" or "Local\"
// prefix is ignored) the mutex is shared by all processes of the machine; last error ERROR_ALREADY_EXISTS
// says that it was there (then `initialOwner` is ignored). A null access list opens a named object to other
// users. A name that belongs to another kind of object is ERROR_INVALID_HANDLE.
ORM_PLATFORM_API HANDLE CreateMutexA(SECURITY_ATTRIBUTES* security, BOOL initialOwner,
                                     const char* name) noexcept;
ORM_PLATFORM_API HANDLE OpenMutexA(DWORD access, BOOL inherit, const char* name) noexcept;
// ERROR_NOT_OWNER when the calling thread does not own the mutex.
ORM_PLATFORM_API BOOL ReleaseMutex(HANDLE mutex) noexcept;

// --- File mappings.
// A section of `sizeHigh:sizeLow` bytes over `file`, which grows to that size when it is shorter (0: its
// size), or over memory of its own when `file` is INVALID_HANDLE_VALUE. `protection` is PAGE_READONLY or
// PAGE_READWRITE. Named like a mutex; an existing section keeps its own size and backing.
ORM_PLATFORM_API HANDLE CreateFileMappingA(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection,
                                           DWORD sizeHigh, DWORD sizeLow, const char* name) noexcept;
ORM_PLATFORM_API HANDLE OpenFileMappingA(DWORD access, BOOL inherit, const char* name) noexcept;
// Maps `bytes` (0: all from the offset on) at an offset that is a multiple of 64 KiB. The view holds the
// section also after its handle is closed.
ORM_PLATFORM_API void* MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                                     SIZE_T bytes) noexcept;
// `view` must be an address that MapViewOfFile returned (ERROR_INVALID_ADDRESS otherwise).
ORM_PLATFORM_API BOOL UnmapViewOfFile(const void* view) noexcept;

// --- Thread-local slots, zero at first in every thread. TlsGetValue sets the last error to ERROR_SUCCESS
// when the index is one that TlsAlloc gave, so that a stored null can be told from a failure.
ORM_PLATFORM_API DWORD TlsAlloc() noexcept;
ORM_PLATFORM_API BOOL TlsFree(DWORD index) noexcept;
ORM_PLATFORM_API void* TlsGetValue(DWORD index) noexcept;
ORM_PLATFORM_API BOOL TlsSetValue(DWORD index, void* value) noexcept;

// --- Critical sections. Only the owner leaves; deleting one that is held is a fault of the caller.
ORM_PLATFORM_API void InitializeCriticalSection(CRITICAL_SECTION* section) noexcept;
ORM_PLATFORM_API void EnterCriticalSection(CRITICAL_SECTION* section) noexcept;
ORM_PLATFORM_API BOOL TryEnterCriticalSection(CRITICAL_SECTION* section) noexcept;
ORM_PLATFORM_API void LeaveCriticalSection(CRITICAL_SECTION* section) noexcept;
ORM_PLATFORM_API void DeleteCriticalSection(CRITICAL_SECTION* section) noexcept;

// --- Time, debugger output, process.
// Milliseconds of the monotonic clock, wrapping after 49.7 days.
ORM_PLATFORM_API DWORD GetTickCount() noexcept;
// Sends the text to whoever watches the machine's debugger output (win32/debugwatch.h); dropped without a
// watcher.
ORM_PLATFORM_API void OutputDebugStringA(const char* text) noexcept;
// Whether a debugger traces this process.
ORM_PLATFORM_API BOOL IsDebuggerPresent() noexcept;
ORM_PLATFORM_API void DebugBreak() noexcept;
// Leaves through the normal exit path: exit actions and module detach run.
[[noreturn]] ORM_PLATFORM_API void ExitProcess(UINT exitCode) noexcept;
// Describes the page at `address`; returns the bytes written to `information`, 0 on failure.
ORM_PLATFORM_API SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information,
                                     SIZE_T length) noexcept;

// --- Security descriptors: a present null access list opens an object to every user.
ORM_PLATFORM_API BOOL InitializeSecurityDescriptor(void* descriptor, DWORD revision) noexcept;
ORM_PLATFORM_API BOOL SetSecurityDescriptorDacl(void* descriptor, BOOL present, void* accessList,
                                                BOOL defaulted) noexcept;

}  // extern "C"

// --- An extension: whether the process has a single thread, which nobody can interrupt between a load and a
// store. The C library clears the word before a second thread starts and leaves it so (glibc manual, "Single
// Threaded"). Good for counters inside the process; memory shared with another process needs the interlocked
// operations in any case.
extern "C" char __libc_single_threaded;
inline bool OrmHasOneThread() noexcept {
  return __libc_single_threaded != 0;
}

// --- Interlocked operations, sequentially consistent. Increment, decrement yield the new value; exchange,
// add and compare-exchange the old one.
inline LONG InterlockedIncrement(volatile LONG* target) noexcept {
  return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG* target) noexcept {
  return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchange(volatile LONG* target, LONG value) noexcept {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchangeAdd(volatile LONG* target, LONG value) noexcept {
  return __atomic_fetch_add(target, value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedCompareExchange(volatile LONG* target, LONG value, LONG comparand) noexcept {
  __atomic_compare_exchange_n(target, &comparand, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
  return comparand;
}
inline void* InterlockedExchangePointer(void* volatile* target, void* value) noexcept {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}
inline void* InterlockedCompareExchangePointer(void* volatile* target, void* value,
                                               void* comparand) noexcept {
  __atomic_compare_exchange_n(target, &comparand, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
  return comparand;
}
