// Trace lines are read back by the format that made them.
#include <gtest/gtest.h>

#include "TraceLine.h"

namespace orm::tool {
namespace {

struct Case {
  const char* format;
  const char* text;
  bool matches;
  const char* fields;  // module/area/level/process/seconds.milliseconds/line/message
};

TEST(TraceLine, IsReadByItsFormat) {
  const Case cases[] = {
      {TRACE_DEFAULT_FORMAT, "ormutil |thread  |    12.345|hello | you", true,
       "ormutil/thread///12.345//hello | you"},
      {TRACE_FULL_FORMAT, "ormutil |thread  |d| 4d2:  10|    12.345| 5:07 PM|  Thread.cpp| 120|x", true,
       "ormutil/thread/d/4d2/12.345/120/x"},
      {TRACE_DEFAULT_FORMAT, "ormutil |thread  |d| 4d2:  10|    12.345| 5:07 PM|  Thread.cpp| 120|x", false,
       ""},
      {"[%3!c!] %1: ", "[w] demo: message", true, "demo//w//.//message"},
      {"[%3!c!] %1: ", "[x] demo: message", false, ""},
      {"100%% %2 - ", "100% area - m", true, "/area///.//m"},
      {TRACE_DEFAULT_FORMAT, "a text of some other program", false, ""},
      {TRACE_DEFAULT_FORMAT, "", false, ""},
      {"", "all of it", true, "////.//all of it"},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.text);
    const std::optional<TraceLine> line = TraceFormat(item.format).Parse(item.text);
    ASSERT_EQ(line.has_value(), item.matches);
    if (!line) continue;
    EXPECT_EQ(line->module + "/" + line->area + "/" + line->level + "/" + line->process + "/" +
                  line->seconds + "." + line->milliseconds + "/" + line->line + "/" + line->message,
              item.fields);
  }
}

TEST(TraceLine, AnExampleIsReadBack) {
  for (const std::string format : {TRACE_DEFAULT_FORMAT, TRACE_FULL_FORMAT}) {
    const std::optional<std::string> header = ExampleTraceHeader(format);
    ASSERT_TRUE(header);
    const std::optional<TraceLine> line = TraceFormat(format).Parse(*header + "m");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->area, "thread");
    EXPECT_EQ(line->seconds, "12");
    EXPECT_EQ(line->message, "m");
  }
  EXPECT_FALSE(ExampleTraceHeader("%6!6"));
}

}  // namespace
}  // namespace orm::tool
