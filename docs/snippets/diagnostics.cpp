// Trace lines, scopes and assertions of a program of one's own.
#include <ormutil/Trace.h>

#include <cassert>
#include <string>

using namespace orm;

constinit TraceArea areaParser{"parser"};

static int CountWords(const char* text) {
  TraceScope scope(areaParser, TRACE_TRACE, "src/Parser", 14, "CountWords(%s)", text);
  int words = 0;
  for (const char* c = text; *c; ++c) words += *c != ' ' && (c == text || c[-1] == ' ');
  TraceWrite(areaParser, TRACE_DEBUG, false, "src/Parser", 17, "%d words", words);
  ORM_ASSERT(words > 0, "words > 0", "src/Parser", 18);
  return words;
}

int main() {
  // For this example the lines go into a string, and assertions are ignored; a program leaves this out, and
  // its user decides with `orm trace set` and `orm trace policy`.
  std::string lines;
  TraceSetSink([](void* context, const char* line) { *static_cast<std::string*>(context) += line; }, &lines,
               'i');
  TraceAreaRegister(areaParser);
  CountWords("nothing is traced yet");
  assert(lines.empty());

  CountWords("");  // an assertion is traced in any case
  assert(lines.find("words > 0") != std::string::npos);
  TraceSetSink(nullptr, nullptr, 0);
}
