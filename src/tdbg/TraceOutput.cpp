// Lines: their header, their message, and where they go.
#include <cstdio>
#include <cstring>
#include <iterator>

#include "TraceFacility.h"

namespace orm {

namespace trace_detail {

namespace {

constexpr const char* TIME_BASE_NAME = "ph:tdbg_trace:timebase";
constexpr const char* FILE_MUTEX_SUFFIX = "ph:tdbg_trace:fileprotect";

// All processes count line times from the moment the first of them started; the first to find the clock
// behind that moment (it wraps after 49 days) starts anew.
DWORD ElapsedMilliseconds() {
  const DWORD now = GetTickCount();
  volatile DWORD* const pShared = IsReady() ? facility.pSharedTimeBase : nullptr;
  DWORD base = pShared ? *pShared : __atomic_load_n(&facility.timeBase, __ATOMIC_RELAXED);
  if (now < base) {
    base = now;
    if (pShared) *pShared = base;
  }
  __atomic_store_n(&facility.timeBase, base, __ATOMIC_RELAXED);
  return now - base;
}

constexpr int TIME_OF_DAY_SIZE = 32;

// For whoever asks for it in the header. So short a text needs no memory.
void FormatTimeOfDay(char* buffer) {
  if (!std::strstr(facility.format, "%8")) return;
  GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, TIME_NOSECONDS, nullptr, nullptr, buffer, TIME_OF_DAY_SIZE);
}

const char* NameWithoutFolders(const char* path) {
  if (!path) return "";
  if (const char* last = std::strrchr(path, '\\')) return last + 1;
  if (const char* last = std::strrchr(path, '/')) return last + 1;
  return path;
}

// Moves to the end of the log file and tells where that is; -1 when it has no such place, being a terminal.
LARGE_INTEGER SeekLogEnd() {
  LARGE_INTEGER end{};
  end.u.LowPart = SetFilePointer(facility.logFile, 0, &end.u.HighPart, FILE_END);
  if (end.u.LowPart == INVALID_SET_FILE_POINTER && GetLastError() != ERROR_SUCCESS) end.QuadPart = -1;
  return end;
}

void CutLog(LARGE_INTEGER size) {
  if (size.QuadPart < 0) return;
  SetFilePointer(facility.logFile, static_cast<LONG>(size.u.LowPart), &size.u.HighPart, FILE_BEGIN);
  SetEndOfFile(facility.logFile);
}

// The last bytes of the log file, as many as the longest line has. Returns their number, 0 when they cannot
// be read.
DWORD ReadLogEnd(char* pBytes) {
  HANDLE file = CreateFileA(facility.target, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 0;
  DWORD length = 0;
  // A file that is shorter has no such position: it is read from its beginning.
  SetFilePointer(file, -static_cast<LONG>(LINE_SIZE), nullptr, FILE_END);
  if (!ReadFile(file, pBytes, LINE_SIZE, &length, nullptr)) length = 0;
  CloseHandle(file);
  return length;
}

// The last writer died with the lock in its hand: takes away what it had written of its line.
void CutTornLine() {
  char bytes[LINE_SIZE];
  const DWORD length = ReadLogEnd(bytes);
  DWORD torn = 0;
  while (torn < length && bytes[length - 1 - torn] != '\n') ++torn;
  if (torn == 0 || torn == LINE_SIZE) return;  // no line of ours is that long
  LARGE_INTEGER size = SeekLogEnd();
  size.QuadPart -= torn;  // below 0, and no cut, without an end
  CutLog(size);
}

// Nobody else has the log open. When the last of those who had was killed in the middle of a line, or when
// the file is somebody else's text, the next line begins on a line of its own.
void EndLastLine() {
  char bytes[LINE_SIZE];
  const DWORD length = ReadLogEnd(bytes);
  if (length == 0 || bytes[length - 1] == '\n') return;
  SeekLogEnd();
  DWORD written = 0;
  WriteFile(facility.logFile, "\r\n", 2, &written, nullptr);
}

void WriteToFile(const char* line, DWORD length) {
  if (!facility.logFile) return;
  const DWORD wait = WaitForSingleObject(facility.fileMutex, INFINITE);
  if (wait == WAIT_ABANDONED) CutTornLine();
  const LARGE_INTEGER end = SeekLogEnd();
  DWORD written = 0;
  // A line that a full disk cuts short is not there at all.
  if (!WriteFile(facility.logFile, line, length, &written, nullptr) && written != 0) CutLog(end);
  if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) ReleaseMutex(facility.fileMutex);
}

void Output(const char* line, size_t length) {
  const bool isReady = IsReady();
  if (isReady && facility.sink) {
    facility.sink(facility.sinkContext, line);
  } else if (TargetIsDebugger()) {
    OutputDebugStringA(line);
  } else if (isReady) {
    WriteToFile(line, static_cast<DWORD>(length));
  }
}

int Clamp(int level) {
  return level < TRACE_ERROR ? TRACE_ERROR : level > TRACE_NONE ? TRACE_NONE : level;
}

}  // namespace

bool TargetIsDebugger() {
  return _mbsicmp(reinterpret_cast<const unsigned char*>(facility.target),
                  reinterpret_cast<const unsigned char*>(DEBUGGER_TARGET)) == 0;
}

void OpenTarget() {
  if (TargetIsDebugger()) return;
  OpenToAll open;
  const HANDLE file =
      CreateFileA(facility.target, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, open, OPEN_ALWAYS,
                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  facility.logFile = file;

  char name[TARGET_SIZE + 32];
  std::snprintf(name, sizeof name, "%s%s", facility.target, FILE_MUTEX_SUFFIX);
  for (char* p = name; *p; ++p) {
    if (*p == '\\') *p = '/';
  }
  facility.fileMutex = CreateMutexA(open, true, name);
  if (!facility.fileMutex || GetLastError() == ERROR_ALREADY_EXISTS) return;  // an existing one is not ours
  EndLastLine();
  ReleaseMutex(facility.fileMutex);
}

void OpenTimeBase() {
  facility.timeBase = GetTickCount();
  OpenToAll open;
  facility.timeBaseMapping =
      CreateFileMappingA(INVALID_HANDLE_VALUE, open, PAGE_READWRITE, 0, sizeof(DWORD), TIME_BASE_NAME);
  const bool existed = GetLastError() == ERROR_ALREADY_EXISTS;
  if (!facility.timeBaseMapping) return;
  facility.pSharedTimeBase = static_cast<volatile DWORD*>(
      MapViewOfFile(facility.timeBaseMapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(DWORD)));
  if (!facility.pSharedTimeBase) return;
  if (existed) {
    facility.timeBase = *facility.pSharedTimeBase;
  } else {
    *facility.pSharedTimeBase = facility.timeBase;
  }
}

void CloseOutput() {
  if (facility.pSharedTimeBase) UnmapViewOfFile(const_cast<DWORD*>(facility.pSharedTimeBase));
  if (facility.timeBaseMapping) CloseHandle(facility.timeBaseMapping);
  if (facility.fileMutex) CloseHandle(facility.fileMutex);
  if (facility.logFile) CloseHandle(facility.logFile);
  facility.pSharedTimeBase = nullptr;
  facility.timeBaseMapping = facility.fileMutex = facility.logFile = nullptr;
}

size_t FormatHeader(char* buffer, const TraceArea& area, int level, const char* file, int line) {
  const DWORD elapsed = ElapsedMilliseconds();
  char timeOfDay[TIME_OF_DAY_SIZE] = {};
  FormatTimeOfDay(timeOfDay);
  const auto text = [](const char* value) { return reinterpret_cast<DWORD_PTR>(value); };
  DWORD_PTR inserts[] = {text(facility.moduleName),
                         text(area.name),
                         static_cast<DWORD_PTR>("ewdtln"[level]),
                         GetCurrentProcessId(),
                         GetCurrentThreadId(),
                         elapsed / 1000,
                         elapsed % 1000,
                         text(timeOfDay),
                         text(NameWithoutFolders(file)),
                         static_cast<DWORD_PTR>(line)};
  static_assert(std::size(inserts) == 10);
  const DWORD length = FormatMessageA(
      FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      facility.format, 0, 0, buffer, HEADER_SIZE, reinterpret_cast<va_list*>(inserts));
  buffer[length] = 0;
  return length;
}

void FinishLine(char* buffer, size_t headerLength, const char* format, va_list arguments) {
  size_t length = headerLength;
  if (length < LINE_TEXT) {
    const int message = std::vsnprintf(buffer + length, LINE_TEXT - length + 1, format, arguments);
    if (message > 0) length += static_cast<size_t>(message);
  }
  if (length > LINE_TEXT) length = LINE_TEXT;
  while (length > 0 && (buffer[length - 1] == '\n' || buffer[length - 1] == '\r')) --length;
  std::memcpy(buffer + length, "\r\n", 3);
  Output(buffer, length + 2);
}

void Write(TraceArea& area, int level, bool raiseAssertion, const char* file, int line, const char* format,
           ...) {
  const LastErrorKeeper keeper;
  level = Clamp(level);
  FacilityLock lock;
  RefreshArea(area);
  if (!AreaAdmits(area, level)) return;

  char buffer[LINE_SIZE];
  const size_t header = FormatHeader(buffer, area, level, file, line);
  va_list arguments;
  va_start(arguments, format);
  FinishLine(buffer, header, format, arguments);
  va_end(arguments);
  if (!raiseAssertion) return;

  char message[SCOPE_MESSAGE_SIZE];
  va_start(arguments, format);
  std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  const int answer = ApplyPolicy(message, file, line);
  lock.Leave();
  ObeyAnswer(answer);
}

}  // namespace trace_detail

using namespace trace_detail;

bool TraceBegin(TraceArea& area, int level, const char* file, int line) {
  if (!Passes(area, level)) return false;
  const LastErrorKeeper keeper;
  level = Clamp(level);
  FacilityLock lock;
  if (!IsReady()) return false;
  RefreshArea(area);
  if (!AreaAdmits(area, level)) return false;
  FormatHeader(facility.pending, area, level, file, line);
  lock.Keep();
  return true;
}

void TraceEnd(const char* format, ...) {
  const LastErrorKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  FinishLine(facility.pending, std::strlen(facility.pending), format, arguments);
  va_end(arguments);
  LeaveCriticalSection(&facility.lock);
}

}  // namespace orm
