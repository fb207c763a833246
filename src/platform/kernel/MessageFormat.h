// The message-insert language: texts with %1, %2!08x! and their like become messages. See FormatMessageA for
// the syntax; the formatter is the same for 8-bit and 16-bit text.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "kernel/MessageSink.h"
#include "win32/types.h"

namespace orm::platform {

// The arguments of one call, each as wide as a pointer. A list is copied, so that the caller's stays where it
// is; an argument of a list is read when a text first asks for it or for one after it.
class MessageArguments {
 public:
  enum class Form { None, List, Array };

  MessageArguments(va_list* arguments, bool isArray);
  ~MessageArguments();
  MessageArguments(const MessageArguments&) = delete;
  MessageArguments& operator=(const MessageArguments&) = delete;

  [[nodiscard]] Form GetForm() const { return mForm; }
  // The argument `number`, from 1; array and list only.
  ULONG_PTR Get(unsigned number);
  // The next argument of the list that was not read yet; it has no number.
  ULONG_PTR TakeUnnumbered() { return va_arg(mList, ULONG_PTR); }

 private:
  static constexpr unsigned most = 101;  // %99 with two asterisks

  Form mForm;
  const ULONG_PTR* mArray = nullptr;
  va_list mList;
  ULONG_PTR mRead[most];
  unsigned mReadCount = 0;
};

struct MessageOptions {
  bool ignoreInserts = false;
  bool joinLines = false;  // a line break of the text becomes a blank
};

// Formats the terminated `text` into the sink. Returns 0, ERROR_INVALID_PARAMETER for a malformed text or
// missing arguments, or ERROR_NOT_ENOUGH_MEMORY; a full sink is the caller's to notice.
template <typename Char>
DWORD FormatMessageText(const Char* text, const MessageOptions& options, MessageArguments& arguments,
                        MessageSink<Char>& sink);

}  // namespace orm::platform
