// The life of the facility.
#include "TraceFacility.h"

#include <win32/forkx.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace orm {

namespace trace_detail {

namespace {

// No area has seen this value, so that every line takes the slow road.
constexpr uint64_t NEVER_SEEN = UINT64_MAX - 1;
constinit const uint64_t unknownWord = NEVER_SEEN;

constinit bool tearDownIsOwned = false;
constinit bool forkIsGuarded = false;

bool HasPrefix(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// A trail byte of a double-byte page may look like a backslash.
const char* NextCharacter(const char* text) {
  return reinterpret_cast<const char*>(_mbsinc(reinterpret_cast<const unsigned char*>(text)));
}

// "libormutil.so.4.1.0" is the module ormutil, "client.exe" the module client.
void TakeModuleName(const char* path) {
  const char* name = path;
  for (const char* p = path; *p; p = NextCharacter(p)) {
    if (*p == '\\' || *p == '/') name = p + 1;
  }
  const char* end = std::strstr(name, ".so");
  if (end && (end[3] == 0 || end[3] == '.')) {
    if (HasPrefix(name, "lib")) name += 3;
  } else {
    end = std::strrchr(name, '.');
  }
  if (!end || end == name) end = name + std::strlen(name);
  // Cut where a character ends.
  size_t length = 0;
  while (name + length < end) {
    const size_t next = static_cast<size_t>(NextCharacter(name + length) - name);
    if (next >= MODULE_NAME_SIZE) break;
    length = next;
  }
  std::memcpy(facility.moduleName, name, length);
  facility.moduleName[length] = 0;
}

// The module is the loaded image that holds the facility object.
void FindModule() {
  std::strcpy(facility.moduleName, "<?\?\?>");
  HMODULE module = nullptr;
  constexpr DWORD byAddress =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!GetModuleHandleExA(byAddress, reinterpret_cast<const char*>(&facility), &module)) return;
  const DWORD length = GetModuleFileNameA(module, facility.modulePath, sizeof facility.modulePath);
  if (length == 0 || length >= sizeof facility.modulePath) {
    facility.modulePath[0] = 0;
    return;
  }
  TakeModuleName(facility.modulePath);
}

void ExpandTarget() {
  if (!InsertsAreSafe(facility.target, "s")) return;
  char expanded[TARGET_SIZE];
  DWORD_PTR arguments[] = {reinterpret_cast<DWORD_PTR>(facility.moduleName)};
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY, facility.target, 0, 0,
                     expanded, sizeof expanded, reinterpret_cast<va_list*>(arguments));
  if (length != 0) std::memcpy(facility.target, expanded, length + 1);
}

void LockAll() {
  EnterCriticalSection(&facility.lock);
}
void UnlockAll() {
  LeaveCriticalSection(&facility.lock);
}

// When the module is loaded, or with the facility if that comes first: either way before a thread can be at
// it when another one forks, and before the module's own locks under which lines are traced.
[[gnu::constructor]] void GuardFork() {
  if (!__atomic_exchange_n(&forkIsGuarded, true, __ATOMIC_RELAXED)) {
    platform::CallAroundFork(LockAll, UnlockAll);
  }
}

// Under the lock.
void Build() {
  const LastErrorKeeper keeper;
  GuardFork();
  FindModule();
  ReadConfiguration();
  ExpandTarget();
  OpenTarget();
  OpenTimeBase();
  if (facility.moduleKey) {
    changeWord.store(OrmRegistryChangeWord(facility.moduleKey), std::memory_order_release);
  }
  __atomic_store_n(&facility.state, READY, __ATOMIC_RELEASE);
  if (!tearDownIsOwned) std::atexit(TraceFacilityTearDown);
}

}  // namespace

constinit TraceFacility facility{};
constinit std::atomic<const volatile uint64_t*> changeWord{&unknownWord};
constinit std::atomic<bool> timesBlocks{true};
constinit TraceArea areaAssert{"assert", TRACE_ERROR};

bool EnsureBuilt() {
  if (__atomic_load_n(&facility.state, __ATOMIC_ACQUIRE) == NOT_BUILT) {
    EnterCriticalSection(&facility.lock);
    if (facility.state == NOT_BUILT) Build();
    LeaveCriticalSection(&facility.lock);
  }
  return IsReady();
}

namespace {

constexpr char LETTERS[] = "ewdtln";

// Instead of a level: the registry has none for the area, or did not answer.
constexpr LONG NO_LEVEL = -1;
constexpr LONG UNKNOWN_LEVEL = -2;

LONG ReadLevel(const TraceArea& area) {
  char text[2] = {};
  DWORD type = 0;
  DWORD size = sizeof text;
  const LONG result =
      RegQueryValueExA(facility.moduleKey, area.name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  if (!HasAnswered(result)) return UNKNOWN_LEVEL;
  const char letter = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  const char* found = letter ? std::strchr(LETTERS, letter) : nullptr;
  return result == ERROR_SUCCESS && type == REG_SZ && found ? static_cast<LONG>(found - LETTERS) : NO_LEVEL;
}

// Stores the area's level for others to change, unless somebody has set one since it was not there. Returns
// the level that counts.
LONG OfferLevel(const TraceArea& area) {
  const RegistryStep step(facility.moduleKey);
  if (const LONG set = ReadLevel(area); set != NO_LEVEL) return set;
  // The client's number, which may be none of the levels.
  const LONG current =
      std::clamp<LONG>(__atomic_load_n(&area.level, __ATOMIC_RELAXED), TRACE_ERROR, TRACE_NONE);
  const char text[2] = {LETTERS[current], 0};
  RegSetValueExA(facility.moduleKey, area.name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text), sizeof text);
  return current;
}

}  // namespace

void RefreshArea(TraceArea& rArea) {
  if (&rArea == &areaAssert || !IsReady() || !facility.moduleKey) return;
  // The word is read before the value, so that a change in between is noticed by the next line.
  const uint64_t seen = ReadChangeWord();
  if (__atomic_load_n(&rArea.seen, __ATOMIC_RELAXED) == seen) return;
  LONG level = ReadLevel(rArea);
  if (level == NO_LEVEL) level = OfferLevel(rArea);
  if (level == UNKNOWN_LEVEL) return;  // the next line asks again
  __atomic_store_n(&rArea.level, level, __ATOMIC_RELAXED);
  __atomic_store_n(&rArea.seen, seen, __ATOMIC_RELEASE);  // whoever sees it sees the level that goes with it
}

bool AreaAdmits(const TraceArea& area, int level) {
  const LONG current = __atomic_load_n(&area.level, __ATOMIC_RELAXED);
  return current != TRACE_NONE && level <= current;
}

bool RefreshAndTest(TraceArea& area, int level) {
  const LastErrorKeeper keeper;
  const FacilityLock lock;
  RefreshArea(area);
  return AreaAdmits(area, level < 0 ? 0 : level);
}

}  // namespace trace_detail

using namespace trace_detail;

bool TraceFacilityBuild() {
  return EnsureBuilt();
}

void TraceFacilityOwnTearDown() {
  tearDownIsOwned = true;
}

void TraceFacilityTearDown() {
  const LastErrorKeeper keeper;
  // Whoever is at a line finishes it; whoever comes later finds the facility torn down. The lock, which owns
  // nothing of the system, is left as it is: a thread may be waiting for it.
  if (!EnsureBuilt()) return;
  __atomic_store_n(&facility.state, TORN_DOWN, __ATOMIC_SEQ_CST);
  EnterCriticalSection(&facility.lock);
  changeWord.store(&unknownWord, std::memory_order_release);
  CloseOutput();
  if (facility.moduleKey) RegCloseKey(facility.moduleKey);
  facility.moduleKey = nullptr;
  LeaveCriticalSection(&facility.lock);
}

void TraceAreaRegister(TraceArea& area) {
  const LastErrorKeeper keeper;
  const FacilityLock lock;
  RefreshArea(area);
}

void TraceSetSink(TraceSink sink, void* context, char policy) {
  const LastErrorKeeper keeper;
  const FacilityLock lock;
  facility.sink = sink;
  facility.sinkContext = context;
  facility.sinkPolicy = policy;
}

}  // namespace orm
