// Looks at trace lines: live debugger output, and log files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "RegDocument.h"
#include "TraceLine.h"

namespace orm::tool {

// The key of the trace configuration: of all modules (empty name) or of one.
RegPath TraceKey(const std::string& module);
// Modules that have registered their areas, in the ANSI code page.
std::vector<std::string> TraceModules();

struct TraceFilter {
  std::vector<std::string> modules, areas;
  std::string levels, text;

  bool IsActive() const { return !modules.empty() || !areas.empty() || !levels.empty() || !text.empty(); }
};

struct TraceWatchOptions {
  TraceFilter filter;
  bool rates = false;
  bool json = false;
  unsigned count = 0;
  double seconds = 0;
};
void WatchTrace(const TraceWatchOptions& options);

struct TraceTailOptions {
  TraceFilter filter;
  std::string file;
  unsigned lines = 10;
  bool follow = false;
  bool json = false;
  unsigned count = 0;
};
void TailTrace(const TraceTailOptions& options);

}  // namespace orm::tool
