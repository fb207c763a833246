// The outer half of a library's examination: the file itself, and what the inner process reports.
#include "ClassProbe.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Console.h"
#include "ElfFile.h"
#include "Failure.h"

extern char** environ;

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* EXPORTS[] = {"LibEnumClasses", "LibCreateInstance", "LibCanUnload"};

// Runs the inner process and returns its wait status and what it wrote.
int RunInside(const std::string& path, bool createObjects, std::string& output) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0)
    throw Failure(std::string("cannot make a pipe: ") + std::strerror(errno));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int REPORT = 3;
  posix_spawn_file_actions_adddup2(&actions, ends[1], REPORT);
  std::string arguments[] = {"orm", "class", "probe", path, "--inside", std::to_string(REPORT), "--create"};
  char* argv[8] = {};
  for (std::size_t i = 0; i < (createObjects ? 7u : 6u); ++i) argv[i] = arguments[i].data();
  pid_t child = 0;
  const int error = ::posix_spawn(&child, "/proc/self/exe", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  char buffer[4096];
  for (ssize_t size;
       error == 0 && ((size = ::read(ends[0], buffer, sizeof buffer)) > 0 || (size < 0 && errno == EINTR));) {
    if (size > 0) output.append(buffer, static_cast<std::size_t>(size));
  }
  ::close(ends[0]);
  if (error != 0) throw Failure(std::string("cannot start the examining process: ") + std::strerror(error));
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

// What the file alone tells.
void DescribeFile(const ElfDescription& elf, ProbeResult& result) {
  result.json["needs"] = elf.needed;
  result.json["exports"] = Json::object();
  for (const char* name : EXPORTS) {
    result.json["exports"][name] = elf.HasExport(name);
    if (!elf.HasExport(name)) result.reasons.push_back(std::string("it does not export ") + name);
  }
}

// Why a library that is still mapped may be so, from its file.
void ExplainHold(const ElfDescription& elf, const std::string& who, std::vector<std::string>& reasons) {
  for (const std::string& symbol : elf.uniqueSymbols) {
    reasons.push_back(who + " defines the GNU-unique symbol " + DemangledSymbol(symbol) +
                      "; compile with -fno-gnu-unique (orm_add_component does)");
  }
  if (elf.isNoDelete) reasons.push_back(who + " was linked with -z nodelete");
  if (elf.HasImport("__cxa_thread_atexit") || elf.HasImport("__cxa_thread_atexit_impl")) {
    reasons.push_back(who +
                      " has a thread_local object with a destructor, which holds it until that thread ends");
  }
}

void ExplainStaying(const ElfDescription& elf, ProbeResult& result) {
  const std::size_t before = result.reasons.size();
  ExplainHold(elf, "it", result.reasons);
  for (const Json& thread : result.json.value("threads", Json::array())) {
    result.reasons.push_back("a thread that it started still runs: " + thread.get<std::string>());
  }
  for (const Json& library : result.json.value("stayed", Json::array())) {
    const std::string path = library;
    try {
      const ElfDescription other = DescribeElf(ReadWholeFile(path));
      result.reasons.push_back("the library that came with it stays as well: " + path);
      ExplainHold(other, path, result.reasons);
    } catch (const Failure&) {
      result.reasons.push_back("a library that came with it stays as well: " + path);
    }
  }
  if (result.reasons.size() == before)
    result.reasons.emplace_back("something in the process refers to it; nothing in its file says what");
}

void ReadReport(const std::string& output, Json& json) {
  for (std::size_t at = 0; at < output.size();) {
    const std::size_t end = std::min(output.find('\n', at), output.size());
    const Json line = Json::parse(output.substr(at, end - at), nullptr, false);
    if (line.is_object()) json.update(line);
    at = end + 1;
  }
}

}  // namespace

ProbeResult ProbeLibrary(const std::string& path, bool createObjects) {
  ProbeResult result;
  result.json["file"] = path;
  const ElfDescription elf = DescribeElf(ReadWholeFile(path));
  if (!elf.fault.empty()) {
    result.reasons.push_back(elf.fault);
    return result;
  }
  DescribeFile(elf, result);
  std::string output;
  const int status = RunInside(path, createObjects, output);
  ReadReport(output, result.json);
  const std::string step = result.json.value("step", "start");
  result.json.erase("step");
  if (WIFSIGNALED(status)) {
    result.reasons.push_back("the process was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
                             ::strsignal(WTERMSIG(status)) + ") in step: " + step);
    return result;
  }
  if (step != "done") {
    const std::string error = result.json.value("error", "the process ended");
    result.reasons.push_back(step + ": " + error);
    return result;
  }
  result.meetsContract = result.reasons.empty() && !result.json["classes"].empty();
  if (result.json["classes"].empty() && result.reasons.empty())
    result.reasons.emplace_back("it lists no class");
  if (!result.json.value("agrees", true)) {
    result.reasons.emplace_back("LibCanUnload answers false: it says that objects of it are alive");
  }
  result.unloads = !result.json.value("mapped", false) && result.json.value("agrees", true);
  if (result.json.value("mapped", false)) ExplainStaying(elf, result);
  return result;
}

}  // namespace orm::tool
