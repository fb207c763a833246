// The message box, asked on the controlling terminal: the caption, the text, the answers that the style
// offers. Without a terminal it fails, and the caller decides.
#include <fcntl.h>
#include <pthread.h>
#include <strings.h>
#include <unistd.h>

#include <span>
#include <string>
#include <string_view>

#include "kernel/CodePage.h"
#include "kernel/NoMemory.h"
#include "kernel/ThreadRecord.h"
#include "win32/user.h"

namespace orm::platform {
namespace {

struct Answer {
  const char* label;  // its first letter chooses it
  int id;
};

constexpr Answer kOk[] = {{"OK", IDOK}};
constexpr Answer kOkCancel[] = {{"OK", IDOK}, {"Cancel", IDCANCEL}};
constexpr Answer kAbortRetryIgnore[] = {{"Abort", IDABORT}, {"Retry", IDRETRY}, {"Ignore", IDIGNORE}};
constexpr Answer kYesNoCancel[] = {{"Yes", IDYES}, {"No", IDNO}, {"Cancel", IDCANCEL}};
constexpr Answer kYesNo[] = {{"Yes", IDYES}, {"No", IDNO}};
constexpr Answer kRetryCancel[] = {{"Retry", IDRETRY}, {"Cancel", IDCANCEL}};

std::span<const Answer> AnswersOf(UINT style) {
  switch (style & 0xF) {
    case MB_OKCANCEL:
      return kOkCancel;
    case MB_ABORTRETRYIGNORE:
      return kAbortRetryIgnore;
    case MB_YESNOCANCEL:
      return kYesNoCancel;
    case MB_YESNO:
      return kYesNo;
    case MB_RETRYCANCEL:
      return kRetryCancel;
    default:
      return kOk;
  }
}

class Terminal {
 public:
  Terminal() : mDescriptor(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {}
  ~Terminal() {
    if (mDescriptor >= 0) close(mDescriptor);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // A background process has a terminal, but would be stopped by asking on it.
  bool CanAsk() const { return mDescriptor >= 0 && tcgetpgrp(mDescriptor) == getpgrp(); }

  bool Write(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t written = write(mDescriptor, text.data(), text.size());
      if (written < 0 && errno != EINTR) return false;
      if (written > 0) text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
  }

  // False at the end of the input.
  bool ReadLine(std::string& line) const {
    line.clear();
    for (;;) {
      char c;
      const ssize_t got = read(mDescriptor, &c, 1);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      if (c == '\n') return true;
      line += c;
    }
  }

 private:
  const int mDescriptor;
};

// One question at a time, whichever threads ask.
constinit CRITICAL_SECTION gsAsking{};

class Turn {
 public:
  Turn() { EnterCriticalSection(&gsAsking); }
  ~Turn() { LeaveCriticalSection(&gsAsking); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
};

// Nobody asks in a child made by fork. A fork does not wait for its turn, which may be as far away as
// somebody who has gone home.
[[maybe_unused]] const int gsForkHandler =
    pthread_atfork(nullptr, nullptr, [] { InitializeCriticalSection(&gsAsking); });

// What comes from a program must not drive the terminal: control characters other than line feeds and tabs
// are shown as '?', also the second 32 of them, which begin sequences by themselves and take two bytes.
std::string Printable(const char* text) {
  const std::string source = text != nullptr ? Utf8FromAnsi(text) : std::string();
  std::string result;
  for (size_t i = 0; i < source.size(); ++i) {
    const auto byte = static_cast<unsigned char>(source[i]);
    const bool isSecond = byte == 0xC2 && static_cast<unsigned char>(source[i + 1]) < 0xA0;
    const bool isFirst = (byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7F;
    result += isFirst || isSecond ? '?' : source[i];
    i += isSecond;
  }
  return result;
}

const Answer* Choose(std::span<const Answer> answers, const std::string& line, const Answer& preset) {
  const size_t start = line.find_first_not_of(" \t\r");
  if (start == std::string::npos) return &preset;
  for (const Answer& answer : answers) {
    if (strncasecmp(answer.label, line.c_str() + start, 1) == 0) return &answer;
  }
  return nullptr;
}

int Ask(const Terminal& terminal, const char* text, const char* caption, UINT style) {
  const auto answers = AnswersOf(style);
  const size_t presetIndex = style >> 8 & 0xF;
  const Answer& preset = answers[presetIndex < answers.size() ? presetIndex : 0];
  std::string prompt;
  for (const Answer& answer : answers) prompt += std::string(prompt.empty() ? "" : "/") + answer.label;
  prompt += std::string(" [") + preset.label + "]: ";
  std::string question = "\n";
  question.append(Printable(caption != nullptr ? caption : "Error")).append("\n\n");
  question.append(Printable(text)).append("\n\n");
  if (!terminal.Write(question)) return 0;
  std::string line;
  while (terminal.Write(prompt) && terminal.ReadLine(line)) {
    if (const Answer* const answer = Choose(answers, line, preset)) return answer->id;
  }
  return 0;
}

}  // namespace
}  // namespace orm::platform

using namespace orm::platform;

int MessageBoxA(HWND, const char* text, const char* caption, UINT style) noexcept {
  return OrNoMemory<int>(0, [&]() -> int {
    const Turn turn;
    const Terminal terminal;
    const int answer = terminal.CanAsk() ? Ask(terminal, text, caption, style) : 0;
    if (answer == 0) tlsLastError = ERROR_GEN_FAILURE;
    return answer;
  });
}
