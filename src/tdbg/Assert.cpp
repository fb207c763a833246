// Failed assertions and the policy that decides what becomes of them.
#include <cstdio>
#include <cstring>

#include "TraceFacility.h"

namespace orm {

namespace trace_detail {

namespace {

// Abort, Retry and Ignore with the stop sign, Ignore the default, in front of everything and also without a
// desktop.
constexpr UINT MESSAGE_BOX_STYLE = 0x00212212;

using MessageBoxFunction = int(WINAPI*)(HWND, LPCSTR, LPCSTR, UINT);

// The windowing library is looked up at this moment, so that the facility does not depend on it.
int AskUser(const char* condition, const char* file, int line) {
  const HMODULE library = LoadLibraryA("USER32.DLL");
  const auto messageBox = reinterpret_cast<MessageBoxFunction>(
      reinterpret_cast<void*>(library ? GetProcAddress(library, "MessageBoxA") : nullptr));
  int answer = IDRETRY;
  if (messageBox) {
    char program[TARGET_SIZE] = {};
    GetModuleFileNameA(nullptr, program, sizeof program - 1);
    char text[SCOPE_MESSAGE_SIZE + 4 * TARGET_SIZE];
    std::snprintf(text, sizeof text,
                  "Assertion failed!\n\nCondition: %s\n\nProgram: %s\nModule: %s\nFile: %s\nLine: %d\n\n"
                  "(Press 'Retry' for debugging)",
                  condition, program, facility.modulePath, file ? file : "", line);
    answer = messageBox(nullptr, text, "TDBG debugging library", MESSAGE_BOX_STYLE);
  }
  if (library) FreeLibrary(library);
  return answer;
}

void TraceFailure(const char* condition, const char* file, int line) {
  // With the file in the header there is no need to name it twice.
  if (std::strstr(facility.format, "%9!")) {
    Write(areaAssert, TRACE_ERROR, false, file, line, "*** Assertion failure: %s", condition);
  } else {
    Write(areaAssert, TRACE_ERROR, false, file, line, "%s(%d):assert fail:%s", file ? file : "", line,
          condition);
  }
}

}  // namespace

int ApplyPolicy(const char* condition, const char* file, int line) {
  const char sinkPolicy = IsReady() ? facility.sinkPolicy : '\0';
  switch (sinkPolicy ? sinkPolicy : facility.policy) {
    case 'a':
      return IDABORT;
    case 'r':
      return IDRETRY;
    case 'i':
      return IDIGNORE;
    default:
      return AskUser(condition, file, line);
  }
}

bool ObeyAnswer(int answer) {
  if (answer == IDRETRY || answer == 0) return true;
  if (answer == IDIGNORE) return false;
  ExitProcess(static_cast<UINT>(-1));
}

}  // namespace trace_detail

using namespace trace_detail;

bool AssertFailed(const char* condition, const char* file, int line) {
  const LastErrorKeeper keeper;
  FacilityLock lock;
  TraceFailure(condition, file, line);
  const int answer = ApplyPolicy(condition, file, line);
  lock.Leave();
  return ObeyAnswer(answer);
}

}  // namespace orm
