// The one trace facility object of a module, and what its sources share.
#pragma once

#include <ormutil/LastErrorKeeper.h>
#include <ormutil/Trace.h>
#include <win32/registryx.h>

namespace orm::trace_detail {

// In bytes, terminators included.
inline constexpr size_t MODULE_NAME_SIZE = 16;
inline constexpr size_t FORMAT_SIZE = 96;
inline constexpr size_t TARGET_SIZE = 260;
inline constexpr size_t HEADER_SIZE = 256;
inline constexpr size_t LINE_SIZE = 256;
inline constexpr size_t LINE_TEXT = 253;  // without the line ending
inline constexpr size_t SCOPE_MESSAGE_SIZE = 1025;

inline constexpr const char* DEBUGGER_TARGET = "<dbglog>";
inline constexpr const char* GLOBAL_KEY = "SOFTWARE\\tdbg_trace\\1.0";

enum State : int { NOT_BUILT = 0, READY = 1, TORN_DOWN = 2 };

// Everything is plain data with constant initial values, the lock among it, whose initial state is that of a
// free one: lines may be traced before the module's own initialisation has begun and after its end.
struct TraceFacility {
  char moduleName[MODULE_NAME_SIZE];
  char modulePath[TARGET_SIZE];
  HKEY moduleKey;
  char format[FORMAT_SIZE];
  char target[TARGET_SIZE];
  char policy;  // 0: none was read
  HANDLE logFile;
  HANDLE fileMutex;
  HANDLE timeBaseMapping;
  volatile DWORD* pSharedTimeBase;
  DWORD timeBase;
  char pending[LINE_SIZE];  // the header of a line begun by TraceBegin
  CRITICAL_SECTION lock;
  int state;
  TraceSink sink;
  void* sinkContext;
  char sinkPolicy;
};

extern TraceFacility facility;

// Whether the facility's handles and the sink may be used by whoever asked for the lock first: he holds it
// when the answer is yes. When it is no, only what stays as it is after the end is looked at, which needs no
// lock.
inline bool IsReady() {
  return __atomic_load_n(&facility.state, __ATOMIC_ACQUIRE) == READY;
}

// Builds the facility unless that has been done; true while it is ready.
bool EnsureBuilt();

// Reads the configuration from the registry into the facility and leaves the module key open.
void ReadConfiguration();
// Whether every insert of a configured text is one of those that `kinds` lists in order, 's' for a text and
// 'n' for a number or a letter, and is formatted as what it is.
bool InsertsAreSafe(const char* text, const char* kinds);
// Opens the log file and its mutex when the target is a file.
void OpenTarget();
// Joins the time base that all processes share.
void OpenTimeBase();
void CloseOutput();
bool TargetIsDebugger();

// Brings the area's level up to date, under the lock.
void RefreshArea(TraceArea& rArea);
bool AreaAdmits(const TraceArea& area, int level);

// Both halves of a line; the buffer holds LINE_SIZE bytes. The header's length is returned.
size_t FormatHeader(char* buffer, const TraceArea& area, int level, const char* file, int line);
// Appends the message, cuts, ends the line and writes it.
void FinishLine(char* buffer, size_t headerLength, const char* format, va_list arguments);

// The area of failed assertions; it is always on and not configured.
extern TraceArea areaAssert;

// What the policy answers to a failed condition: IDABORT, IDRETRY, IDIGNORE, or 0 when the user could not be
// asked.
int ApplyPolicy(const char* condition, const char* file, int line);
// Ends the process when that was the answer; true when the caller must break into the debugger.
bool ObeyAnswer(int answer);

// Holds the facility's lock while the facility is ready. Once its end has begun, nobody begins to wait for
// the lock, so that the end has to wait for those alone who were there: see IsReady.
class FacilityLock {
 public:
  FacilityLock() : mHeld(EnsureBuilt()) {
    if (mHeld) EnterCriticalSection(&facility.lock);
  }
  ~FacilityLock() { Leave(); }
  FacilityLock(const FacilityLock&) = delete;
  FacilityLock& operator=(const FacilityLock&) = delete;

  void Leave() {
    if (mHeld) LeaveCriticalSection(&facility.lock);
    mHeld = false;
  }
  // Leaves the lock held beyond this object.
  void Keep() { mHeld = false; }

 private:
  bool mHeld;
};

// A null access list: open to every user and process.
class OpenToAll {
 public:
  OpenToAll() {
    InitializeSecurityDescriptor(&mDescriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&mDescriptor, true, nullptr, false);
    mAttributes = {sizeof mAttributes, &mDescriptor, false};
  }
  operator SECURITY_ATTRIBUTES*() { return &mAttributes; }

 private:
  SECURITY_DESCRIPTOR mDescriptor;
  SECURITY_ATTRIBUTES mAttributes;
};

// Whether a query told what there is of a value. Whatever else goes wrong, want of memory for one, is no
// reason to write over it.
inline bool HasAnswered(LONG queryResult) {
  return queryResult == ERROR_SUCCESS || queryResult == ERROR_FILE_NOT_FOUND ||
         queryResult == ERROR_MORE_DATA;
}

// A look at values and what is then written, in one step that others see whole. Without effect when the
// thread is within one already, or may not write.
class RegistryStep {
 public:
  explicit RegistryStep(HKEY key)
      : mKey(OrmRegBeginTransaction(key, EXPECTED_BYTES) == ERROR_SUCCESS ? key : nullptr) {}
  ~RegistryStep() {
    if (mKey) OrmRegCommitTransaction(mKey);
  }
  RegistryStep(const RegistryStep&) = delete;
  RegistryStep& operator=(const RegistryStep&) = delete;

 private:
  static constexpr uint64_t EXPECTED_BYTES = 1024;

  HKEY mKey;
};

}  // namespace orm::trace_detail
