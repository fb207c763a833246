// Shows, filters and counts trace lines.
#include "TraceView.h"

#include <win32/debugwatch.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "Console.h"
#include "Failure.h"
#include "RegStore.h"
#include "Text.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

// Knows the header formats of the machine. A module reads its format when it starts, so the configuration may
// have changed since: the well-known formats are tried as well.
class LineReader {
 public:
  LineReader() {
    Add(ReadRegText(TraceKey(""), " option_format"));
    for (const std::string& module : TraceModules()) Add(ReadRegText(TraceKey(module), " option_format"));
    Add(std::string(TRACE_FULL_FORMAT));
    Add(std::string(TRACE_DEFAULT_FORMAT));
  }

  // Texts that are no trace lines come as a message alone.
  TraceLine Read(std::string_view text) const {
    for (const TraceFormat& format : mFormats) {
      if (std::optional<TraceLine> line = format.Parse(text)) return *line;
    }
    TraceLine plain;
    plain.message = text;
    return plain;
  }

 private:
  // The full one first: a header with more fields also fits a format with fewer.
  void Add(const std::optional<std::string>& format) {
    if (format && !format->empty()) mFormats.emplace_back(*format);
  }

  std::vector<TraceFormat> mFormats;
};

bool Contains(const std::vector<std::string>& names, const std::string& name) {
  return names.empty() || std::find(names.begin(), names.end(), ToDisplay(name)) != names.end();
}

bool Passes(const TraceFilter& filter, const TraceLine& line, std::string_view text) {
  return Contains(filter.modules, line.module) && Contains(filter.areas, line.area) &&
         (filter.levels.empty() ||
          (!line.level.empty() && filter.levels.find(line.level) != std::string::npos)) &&
         (filter.text.empty() || ToDisplay(text).find(filter.text) != std::string::npos);
}

Colour LevelColour(const TraceLine& line) {
  if (line.level == "e" || line.area == "assert") return Colour::Red;
  if (line.level == "w") return Colour::Yellow;
  if (line.level == "d") return Colour::Green;
  return line.level.empty() ? Colour::None : Colour::Grey;
}

void Show(const TraceLine& line, std::string_view text, DWORD processId, bool json) {
  if (!json) {
    const std::string process = processId == 0 ? "" : std::to_string(processId) + " ";
    PrintLine(Coloured(Colour::Grey, process) + Coloured(LevelColour(line), ToDisplayLine(text)));
    std::fflush(stdout);
    return;
  }
  Json item;
  if (processId != 0) item["process"] = processId;
  const auto add = [&](const char* name, const std::string& value) {
    if (!value.empty()) item[name] = ToDisplay(value);
  };
  add("module", line.module);
  add("area", line.area);
  add("level", line.level);
  add("thread", line.thread);
  if (!line.seconds.empty()) add("time", line.seconds + "." + line.milliseconds);
  add("file", line.file);
  add("line", line.line);
  item["message"] = ToDisplay(line.message);
  PrintJsonLine(item);
}

std::string_view WithoutLineEnd(std::string_view text) {
  while (text.ends_with('\n') || text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

// Lines since the last report, by module and area.
class Rates {
 public:
  void Count(const TraceLine& line) { ++mCounts[{line.module, line.area}]; }

  void Report(double seconds, bool json) {
    Json list = Json::array();
    Table table({"LINES/S", "LINES", "MODULE", "AREA"});
    for (const auto& [name, count] : mCounts) {
      char rate[32];
      std::snprintf(rate, sizeof rate, "%.1f", static_cast<double>(count) / seconds);
      table.Add({rate, std::to_string(count), ToDisplayLine(name.first), ToDisplayLine(name.second)});
      list.push_back({{"module", ToDisplay(name.first)},
                      {"area", ToDisplay(name.second)},
                      {"lines", count},
                      {"rate", static_cast<double>(count) / seconds}});
    }
    mCounts.clear();
    if (json) return PrintJsonLine(list);
    table.Print();
    PrintLine("");
    std::fflush(stdout);
  }

 private:
  std::map<std::pair<std::string, std::string>, unsigned> mCounts;
};

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

RegPath TraceKey(const std::string& module) {
  const RegPath all{HKEY_LOCAL_MACHINE, "SOFTWARE\\tdbg_trace\\1.0"};
  return module.empty() ? all : all.GetChild(module);
}

std::vector<std::string> TraceModules() {
  const RegKey key = RegKey::Open(TraceKey(""), KEY_READ);
  return key ? key.GetSubKeys() : std::vector<std::string>();
}

void WatchTrace(const TraceWatchOptions& options) {
  platform::DebugWatch watch;
  if (!watch.IsOpen())
    throw Failure("the debugger output cannot be watched: no machine folder, or eight watchers already");
  const LineReader reader;
  Rates rates;
  const Clock::time_point start = Clock::now();
  Clock::time_point reported = start;
  std::fprintf(stderr, "watching\n");
  platform::DebugRecord record;
  for (unsigned shown = 0; options.count == 0 || shown < options.count;) {
    if (options.rates && SecondsSince(reported) >= 1) {
      rates.Report(SecondsSince(reported), options.json);
      reported = Clock::now();
    }
    if (options.seconds > 0 && SecondsSince(start) >= options.seconds) break;
    if (!watch.Read(record, 100)) continue;
    const std::string_view text = WithoutLineEnd(record.text);
    const TraceLine line = reader.Read(text);
    if (!Passes(options.filter, line, text)) continue;
    ++shown;
    if (options.rates) {
      rates.Count(line);
    } else {
      Show(line, text, record.processId, options.json);
    }
  }
  if (options.rates) rates.Report(std::max(SecondsSince(reported), 0.001), options.json);
}

namespace {

// Reads a file through the platform, so that its name is resolved as the writers resolve it.
class LogFile {
 public:
  explicit LogFile(const std::string& path)
      : mFile(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {
    if (mFile == INVALID_HANDLE_VALUE)
      throw SystemFailure("cannot open " + ToDisplayLine(path), GetLastError());
  }
  ~LogFile() { CloseHandle(mFile); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // What was added since the last call.
  std::string ReadMore() const {
    std::string text;
    char buffer[65536];
    for (DWORD size = 0; ReadFile(mFile, buffer, sizeof buffer, &size, nullptr) && size > 0;)
      text.append(buffer, size);
    return text;
  }

 private:
  HANDLE mFile;
};

// The log file of a module, or the path itself.
std::string LogPath(const std::string& name) {
  const bool isModule = name.find_first_of("\\/:") == std::string::npos && RegKeyExists(TraceKey(name));
  if (!isModule) return name;
  std::string target = ReadRegText(TraceKey(name), " option_target").value_or("");
  if (target.empty()) target = ReadRegText(TraceKey(""), " option_target").value_or("");
  DWORD_PTR inserts[] = {reinterpret_cast<DWORD_PTR>(name.c_str())};
  char path[MAX_PATH];
  const DWORD flags = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;
  if (FormatMessageA(flags, target.c_str(), 0, 0, path, sizeof path, reinterpret_cast<va_list*>(inserts)) !=
      0) {
    target = path;
  }
  if (target.empty() || target == "<dbglog>") {
    throw Failure("module '" + ToDisplay(name) + "' traces to the debugger output; see orm trace watch");
  }
  return target;
}

// Cuts complete lines off the front of `text`.
std::vector<std::string> TakeLines(std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.emplace_back(WithoutLineEnd(std::string_view(text).substr(start, end - start)));
  }
  text.erase(0, start);
  return lines;
}

}  // namespace

void TailTrace(const TraceTailOptions& options) {
  constexpr DWORD LOOK_EVERY = 100;  // ms
  const LogFile file(LogPath(AnsiFromArgument(options.file)));
  const LineReader reader;
  std::string rest = file.ReadMore();
  std::vector<std::string> lines = TakeLines(rest);
  std::erase_if(lines,
                [&](const std::string& text) { return !Passes(options.filter, reader.Read(text), text); });
  const std::size_t skipped = lines.size() > options.lines ? lines.size() - options.lines : 0;
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(skipped));
  unsigned shown = 0;
  for (;;) {
    for (const std::string& text : lines) {
      const TraceLine line = reader.Read(text);
      if (!Passes(options.filter, line, text)) continue;
      Show(line, text, 0, options.json);
      ++shown;
    }
    if (!options.follow || (options.count != 0 && shown >= options.count)) return;
    Sleep(LOOK_EVERY);
    rest += file.ReadMore();
    lines = TakeLines(rest);
  }
}

}  // namespace orm::tool
