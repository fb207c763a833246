// Catches the lines of failed assertions and of the trace while it exists; assertions are ignored meanwhile.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/BaseString.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace orm {

// How a failed expectation shows a string.
inline void PrintTo(const String& text, std::ostream* out) {
  *out << '"' << text.GetBegin() << '"';
}

}  // namespace orm

namespace test {

class AssertionLog {
 public:
  AssertionLog() { orm::TraceSetSink(&Add, this, 'i'); }
  ~AssertionLog() { orm::TraceSetSink(nullptr, nullptr, 0); }
  AssertionLog(const AssertionLog&) = delete;
  AssertionLog& operator=(const AssertionLog&) = delete;

  // The messages since the last call, "file(line):assert fail:condition" each.
  std::vector<std::string> Take() { return std::exchange(mMessages, {}); }

 private:
  // module|area|time|message
  static void Add(void* context, const char* line) {
    std::string text = line;
    for (int i = 0; i < 3; ++i) text.erase(0, text.find('|') + 1);
    text.erase(text.find_last_not_of("\r\n") + 1);
    static_cast<AssertionLog*>(context)->mMessages.push_back(text);
  }

  std::vector<std::string> mMessages;
};

inline std::string Failure(const std::string& file, int line, const std::string& condition) {
  return file + "(" + std::to_string(line) + "):assert fail:" + condition;
}

}  // namespace test
