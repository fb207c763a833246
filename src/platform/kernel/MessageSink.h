// Where a formatted message goes: a buffer of fixed size, or one that grows to the platform's limit, with the
// line breaking that a width asks for.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "win32/types.h"

namespace orm::platform {

// Char is char or WCHAR. Once the text does not fit the sink is full: it takes nothing more and has no text.
template <typename Char>
class MessageSink {
 public:
  static constexpr std::size_t mostUnits = 65536;  // what an allocated text can have, its terminator included

  // Into `room` units at `buffer`, terminator included.
  MessageSink(Char* buffer, std::size_t room, unsigned width)
      : mText(buffer), mRoom(room), mWidth(width < 0xFF ? width : 0) {}
  // Into memory of its own, of at least `least` units as far as the limit allows.
  MessageSink(unsigned width, std::size_t least) : MessageSink(nullptr, 0, width) {
    mOwns = true;
    mLeast = std::min(std::max<std::size_t>(least, 256), mostUnits);
  }
  ~MessageSink() {
    if (mOwns) Discard();
  }
  MessageSink(const MessageSink&) = delete;
  MessageSink& operator=(const MessageSink&) = delete;

  [[nodiscard]] bool IsFull() const { return mFull; }
  [[nodiscard]] bool IsOutOfMemory() const { return mOutOfMemory; }
  [[nodiscard]] std::size_t Size() const { return mSize; }

  void Put(Char unit) {
    if (mWidth == 0) return Store(unit);
    if (unit == ' ') return PutBlank();
    Store(unit);
    if (++mColumn > mWidth && mLastBlank != none) WrapAtLastBlank();
  }

  void Put(const Char* units, std::size_t count) {
    for (std::size_t i = 0; i < count && !mFull; ++i) Put(units[i]);
  }

  void Fill(char unit, std::size_t count) {
    for (; count > 0 && !mFull; --count) Put(static_cast<Char>(unit));
  }

  // A line break that stays whatever the width.
  void PutBreak() {
    Store('\r');
    Store('\n');
    mColumn = 0;
    mLastBlank = none;
  }

  // Ends the text with a zero that does not count; false when there is no room for it.
  bool Terminate() {
    Store(0);
    if (mFull) return false;
    --mSize;
    return true;
  }

  // Hands the sink's own memory over.
  Char* Release() {
    Char* text = mText;
    mText = nullptr;
    return text;
  }

 private:
  static constexpr std::size_t none = ~std::size_t{0};

  void Store(Char unit) {
    if (mFull || (mSize == mRoom && !Grow())) {
      mFull = true;
      return;
    }
    mText[mSize++] = unit;
  }

  bool Grow() {
    if (!mOwns || mRoom == mostUnits) return false;
    const std::size_t room = mRoom == 0 ? mLeast : std::min(mRoom * 2, mostUnits);
    // Not realloc, which gives memory back with the text in it.
    auto* larger = static_cast<Char*>(std::malloc(room * sizeof(Char)));
    if (larger == nullptr) {
      mOutOfMemory = true;
      return false;
    }
    std::copy_n(mText, mSize, larger);
    Discard();
    mText = larger;
    mRoom = room;
    return true;
  }

  void Discard() {
    if (mText == nullptr) return;
    explicit_bzero(mText, mRoom * sizeof(Char));
    std::free(mText);
  }

  // A blank beyond the end of a line becomes the break itself.
  void PutBlank() {
    if (mColumn >= mWidth) return PutBreak();
    mLastBlank = mSize;
    Store(' ');
    ++mColumn;
  }

  void WrapAtLastBlank() {
    Store(0);  // the break takes one unit more than the blank
    if (mFull) return;
    Char* blank = mText + mLastBlank;
    mColumn = mSize - mLastBlank - 2;
    std::memmove(blank + 2, blank + 1, mColumn * sizeof(Char));
    blank[0] = '\r';
    blank[1] = '\n';
    mLastBlank = none;
  }

  Char* mText;
  std::size_t mRoom;
  std::size_t mLeast = 0;  // of memory of its own
  std::size_t mSize = 0;
  std::size_t mWidth;  // 0: lines are as long as they are
  std::size_t mColumn = 0;
  std::size_t mLastBlank = none;  // in the current line
  bool mOwns = false;
  bool mFull = false;
  bool mOutOfMemory = false;
};

}  // namespace orm::platform
