// Debug trace and assertions.
//
// A trace area is a named switch, one for each source file, whose level lives in the registry and may be
// changed while the process runs. A line is written when its level is at or below its area's level:
//
//   constinit TraceArea area{"parser"};
//   TraceWrite(area, TRACE_WARNING, false, "src/parser", 42, "%d bytes are left over", count);
//
// gives, with the default header format, on the debugger output or in the configured log file
//
//   mymodule|parser  |    12.345|7 bytes are left over
//
// The facility is a static library: each module that links it has a facility of its own (module name, levels,
// format, target), while all of them share the configuration key, the time base and the log file's lock.
//
// Every function here may be called by any thread at any time, keeps the caller's last error and throws
// nothing.
#pragma once

#include <win32.h>

#include <atomic>
#include <tuple>
#include <type_traits>
#include <utility>

namespace orm {

enum TraceLevel : int {
  TRACE_ERROR = 0,    // letter e
  TRACE_WARNING = 1,  // w
  TRACE_DEBUG = 2,    // d
  TRACE_TRACE = 3,    // t
  TRACE_LOOP = 4,     // l
  TRACE_NONE = 5,     // n: an area of this level writes nothing, a line of this level is never written
};

// One switch. Define it `constinit` at namespace scope; its level is TRACE_NONE until it is first refreshed.
struct TraceArea {
  const char* name;  // also the name of its registry value
  LONG level = TRACE_NONE;
  // The registry's change word at the last refresh: while it has not moved, the level is current.
  uint64_t seen = UINT64_MAX;
};

namespace trace_detail {

// Where the registry counts its committed changes. Before the facility is built and after it is torn down it
// points at a word that no area has seen, so that every line takes the slow road. The word itself stays
// readable to the end of the process.
extern std::atomic<const volatile uint64_t*> changeWord;

inline uint64_t ReadChangeWord() {
  return __atomic_load_n(changeWord.load(std::memory_order_acquire), __ATOMIC_ACQUIRE);
}

// Whether leave lines tell the time spent, in which case every scope asks the clock; also true before the
// facility knows.
extern std::atomic<bool> timesBlocks;

// Brings the area up to date and tells whether a line of this level passes it.
bool RefreshAndTest(TraceArea& area, int level);

// The test before every line: while nothing in the registry has changed, a load and a compare for each of the
// two.
inline bool Passes(TraceArea& area, int level) {
  if (__builtin_expect(__atomic_load_n(&area.seen, __ATOMIC_ACQUIRE) == ReadChangeWord(), 1)) {
    const LONG current = __atomic_load_n(&area.level, __ATOMIC_RELAXED);
    if (__builtin_expect(current == TRACE_NONE || level > current, 1)) return false;
  }
  return RefreshAndTest(area, level);
}

[[gnu::format(printf, 6, 7)]] void Write(TraceArea& area, int level, bool raiseAssertion, const char* file,
                                         int line, const char* format, ...);

// What a printf-style format sees of an argument. String types add an overload, found by argument-dependent
// look-up, that yields their text.
template <class T>
requires(std::is_arithmetic_v<T> || std::is_enum_v<T> || std::is_pointer_v<T>) constexpr T
    TraceFormatArgument(T value) {
  return value;
}

}  // namespace trace_detail

// Reads the area's level from the registry, creating its value with the area's letter when it is not there.
// Builds the facility when this is its first use.
void TraceAreaRegister(TraceArea& area);

// Writes one line; `format` is printf-style, strings may be passed for %s. With `raiseAssertion` the
// assertion policy is applied afterwards, the message being the condition. The line is cut to 253 bytes.
template <class... Args>
void TraceWrite(TraceArea& area, int level, bool raiseAssertion, const char* file, int line,
                const char* format, const Args&... args) {
  using trace_detail::TraceFormatArgument;
  if (!trace_detail::Passes(area, level)) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  trace_detail::Write(area, level, raiseAssertion, file, line, format,
                      TraceFormatArgument(static_cast<std::decay_t<const Args&>>(args))...);
#pragma GCC diagnostic pop
}

// The two halves of one line, for callers that do not want to build a costly message in vain. TraceBegin
// returns true when the line will be written; the facility's lock is then held until TraceEnd, which must
// follow.
bool TraceBegin(TraceArea& area, int level, const char* file, int line);
[[gnu::format(printf, 1, 2)]] void TraceEnd(const char* format, ...);

// Reports a failed assertion according to the policy. Returns true when the caller must break into the
// debugger.
bool AssertFailed(const char* condition, const char* file, int line);

namespace trace_detail {
[[gnu::cold, gnu::noinline]] inline void Fail(const char* condition, const char* file, int line) {
  if (AssertFailed(condition, file, line)) DebugBreak();
}
}  // namespace trace_detail

// Text, file and line are data that name a stable place; they do not follow the code's own lines.
#define ORM_ASSERT(condition, text, file, line) \
  (__builtin_expect(!!(condition), 1) ? (void)0 : ::orm::trace_detail::Fail(text, file, line))
#define ORM_FORCED_ASSERT(file, line) ::orm::trace_detail::Fail("forced assert", file, line)

namespace trace_detail {

// The part of a scope that does not depend on its arguments: the message once it is made, and the two lines.
class ScopeLines {
 public:
  ScopeLines(TraceArea& area, int level, const char* file, int line)
      : mArea(area),
        mpFile(file),
        mLevel(level),
        mLine(line),
        mStart(timesBlocks.load(std::memory_order_relaxed) ? GetTickCount() : 0) {}
  ~ScopeLines() {
    if (mpMessage) FreeMessage();
  }
  ScopeLines(const ScopeLines&) = delete;
  ScopeLines& operator=(const ScopeLines&) = delete;

 protected:
  bool Passes() { return trace_detail::Passes(mArea, mLevel); }
  bool HasMessage() const { return mpMessage != nullptr; }
  [[gnu::format(printf, 2, 3)]] void MakeMessage(const char* format, ...);
  void WriteEnter();
  void WriteLeave();

 private:
  void FreeMessage();

  TraceArea& mArea;
  const char* mpFile;
  char* mpMessage = nullptr;  // printf-style, 1024 bytes at most; owned until the scope ends
  int mLevel;
  int mLine;
  DWORD mStart;
};

}  // namespace trace_detail

// A line when the block is entered ("==> message") and one when it is left ("<== message", with the time
// spent when block times are on):
//
//   TraceScope scope(area, TRACE_TRACE, "src/parser", 12, "Parse(%s)", path);
//
// The message is made when a line first needs it, from the arguments, which the scope keeps by value; a
// string object is kept as a shared copy, a plain `const char*` must outlive the scope. A scope on a disabled
// area formats nothing; when the area's level rises before the block is left, the leave line appears alone.
template <class... Args>
class TraceScope : private trace_detail::ScopeLines {
 public:
  TraceScope(TraceArea& area, int level, const char* file, int line, const char* format, Args... args)
      : ScopeLines(area, level, file, line), mpFormat(format), mArguments(std::move(args)...) {
    if (Passes()) {
      Make();
      WriteEnter();
    }
  }
  ~TraceScope() {
    if (!Passes()) return;
    if (!HasMessage()) Make();
    WriteLeave();
  }

 private:
  void Make() {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    std::apply(
        [this](const Args&... args) {
          using trace_detail::TraceFormatArgument;
          MakeMessage(mpFormat, TraceFormatArgument(args)...);
        },
        mArguments);
#pragma GCC diagnostic pop
  }

  const char* mpFormat;
  std::tuple<Args...> mArguments;
};

template <class... Args>
TraceScope(TraceArea&, int, const char*, int, const char*, Args...) -> TraceScope<Args...>;

// The facility's life in a module that builds and tears down its parts itself. Other modules need neither:
// the first use builds it and the end of the process closes what it holds. Build tells whether the facility
// is ready.
bool TraceFacilityBuild();
void TraceFacilityTearDown();
// Says, before anything else, that this module calls TraceFacilityTearDown itself at its end.
void TraceFacilityOwnTearDown();

// A double for tests: every finished line of this module goes to `sink` (under the facility's lock) instead
// of the target, and failed assertions take the policy letter `policy` instead of the configured one. A null
// sink and a policy of 0 restore the configuration.
using TraceSink = void (*)(void* context, const char* line);
void TraceSetSink(TraceSink sink, void* context, char policy);

}  // namespace orm
