// Printing, and whole files.
#include "Console.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "Failure.h"
#include "Text.h"

namespace orm::tool {

namespace {

constexpr std::size_t LARGEST_FILE = std::size_t{1} << 30;

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : mFd(fd) {}
  ~FileDescriptor() {
    if (mFd > 2) ::close(mFd);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int Get() const { return mFd; }

 private:
  int mFd;
};

Failure FileFailure(const std::string& doing, const std::string& path) {
  return Failure(doing + " " + path + ": " + std::strerror(errno));
}

void WriteAll(int fd, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) throw FileFailure("cannot write", path);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

bool IsForPerson(std::FILE* stream) {
  const char* terminal = std::getenv("TERM");
  return !std::getenv("NO_COLOR") && terminal && std::strcmp(terminal, "dumb") != 0 &&
         ::isatty(::fileno(stream));
}

std::string Coloured(Colour colour, std::string_view text) {
  static constexpr const char* codes[] = {"",         "\x1b[31m", "\x1b[33m", "\x1b[32m",
                                          "\x1b[34m", "\x1b[90m", "\x1b[1m"};
  if (colour == Colour::None || !IsForPerson(stdout)) return std::string(text);
  return codes[static_cast<int>(colour)] + std::string(text) + "\x1b[0m";
}

void Print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void PrintLine(std::string_view text) {
  Print(text);
  std::fputc('\n', stdout);
}

void PrintJson(const nlohmann::ordered_json& value) {
  PrintLine(value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void PrintJsonLine(const nlohmann::ordered_json& value) {
  PrintLine(value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  std::fflush(stdout);
}

void Table::Print(bool withHeads) const {
  std::vector<std::size_t> widths;
  const auto measure = [&](const std::vector<std::string>& cells) {
    widths.resize(std::max(widths.size(), cells.size()));
    for (std::size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], DisplayWidth(cells[i]));
  };
  if (withHeads) measure(mHeads);
  for (const auto& row : mRows) measure(row);
  const auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      text += cells[i];
      if (i + 1 < cells.size()) text.append(widths[i] - DisplayWidth(cells[i]) + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
  };
  if (withHeads) PrintLine(Coloured(Colour::Bold, line(mHeads)));
  for (const auto& row : mRows) PrintLine(line(row));
}

std::string ReadWholeFile(const std::string& path) {
  const FileDescriptor file(path == "-" ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.Get() < 0) throw FileFailure("cannot open", path);
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t size = ::read(file.Get(), buffer, sizeof buffer);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw FileFailure("cannot read", path);
    if (size == 0) return bytes;
    bytes.append(buffer, static_cast<std::size_t>(size));
    if (bytes.size() > LARGEST_FILE) throw Failure("cannot read " + path + ": it is larger than 1 GiB");
  }
}

void WriteWholeFile(const std::string& path, std::string_view bytes, unsigned mode) {
  if (path == "-") {
    std::fflush(stdout);
    return WriteAll(1, bytes, "the output");
  }
  struct stat existing {};
  if (::stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {  // a pipe or a device
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (file.Get() < 0) throw FileFailure("cannot write", path);
    return WriteAll(file.Get(), bytes, path);
  }
  std::string temporary = path + ".XXXXXX";
  const FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (file.Get() < 0) throw FileFailure("cannot write", path);
  try {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    if (::fchmod(file.Get(), mode & ~mask) != 0) throw FileFailure("cannot write", path);
    WriteAll(file.Get(), bytes, path);
    if (::rename(temporary.c_str(), path.c_str()) != 0) throw FileFailure("cannot write", path);
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
}

}  // namespace orm::tool
