// A tagged union of nothing, a number, a string, a buffer and a point in time, as it travels in archives.
//
//   Value value(7);
//   value.SetString("seven");
//   value.GetNumber();  // throws 0xE7400001 "The type of the value is not the required type 'NUMBER'."
//
// A value is for one thread at a time; copies share their string or buffer and may be used by different
// threads.
#pragma once

#include <ormutil/Archive.h>
#include <ormutil/BaseString.h>
#include <ormutil/Binary.h>
#include <ormutil/Export.h>
#include <ormutil/UtcTime.h>

namespace orm {

class Value;

// An archived value is its tag, 32 bits, then the payload: a number as 32 bits, strings and buffers in the
// archive's form, a time as the low and the high word of its ticks. Reading throws 0xE7400001 "The type of
// the value is not supported." for an unknown tag, and the archive's errors; the value keeps what it held
// then.
ORMUTIL_API WriteArchive& operator<<(WriteArchive& archive, const Value& value);
ORMUTIL_API ReadArchive& operator>>(ReadArchive& archive, Value& value);

class ORMUTIL_API Value {
 public:
  // The numbers are those of the archived form.
  enum Type : DWORD { TYPE_NONE = 0, TYPE_NUMBER = 1, TYPE_STRING = 2, TYPE_BINARY = 3, TYPE_TIME = 4 };

  Value() : mType(TYPE_NONE) {}
  explicit Value(DWORD number) : mType(TYPE_NUMBER), mNumber(number) {}
  explicit Value(const BaseString<MbcsTraits>& text) : mType(TYPE_STRING), mString(text) {}
  explicit Value(const Binary& data) : mType(TYPE_BINARY), mBinary(data) {}
  explicit Value(const UtcTime& time) : mType(TYPE_TIME), mTime(time) {}
  Value(const Value& other) : mType(TYPE_NONE) { Assign(other); }
  Value& operator=(const Value& other) {
    if (this != &other) Assign(other);
    return *this;
  }
  ~Value() { Release(); }

  Type GetType() const { return mType; }

  // Throw 0xE7400001, naming the required type, when the value has another one.
  DWORD GetNumber() const {
    Require(TYPE_NUMBER);
    return mNumber;
  }
  const BaseString<MbcsTraits>& GetString() const {
    Require(TYPE_STRING);
    return mString;
  }
  const Binary& GetBinary() const {
    Require(TYPE_BINARY);
    return mBinary;
  }
  const UtcTime& GetTime() const {
    Require(TYPE_TIME);
    return mTime;
  }

  // Give the value this type and payload; strings and buffers are shared.
  void SetNumber(DWORD number);
  void SetString(const BaseString<MbcsTraits>& text);
  void SetBinary(const Binary& data);
  void SetTime(const UtcTime& time);

  // Gives the value no payload.
  void Clear() { Release(); }

 private:
  [[noreturn]] static void ThrowBadTypeError(Type required);
  void Require(Type required) const {
    if (mType != required) ThrowBadTypeError(required);
  }
  void Assign(const Value& other);
  // Drops the payload; the type is TYPE_NONE afterwards.
  void Release();

  friend ORMUTIL_API WriteArchive& operator<<(WriteArchive& archive, const Value& value);

  Type mType;
  union {
    DWORD mNumber;
    BaseString<MbcsTraits> mString;
    Binary mBinary;
    UtcTime mTime;
  };
};

}  // namespace orm
