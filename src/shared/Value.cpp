// Value: the change of its payload, its type errors and its archived form.
#include <ormutil/Error.h>
#include <ormutil/Value.h>

#include <memory>

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Value";
constexpr DWORD kBadType = 0xE7400001;

// Null for a type that no accessor can require.
const char* TypeName(Value::Type type) {
  switch (type) {
    case Value::TYPE_NUMBER:
      return "NUMBER";
    case Value::TYPE_STRING:
      return "STRING";
    case Value::TYPE_BINARY:
      return "BINARY";
    case Value::TYPE_TIME:
      return "TIME";
    default:
      return nullptr;
  }
}

}  // namespace

void Value::ThrowBadTypeError(Type required) {
  if (const char* name = TypeName(required)) {
    throw Error(kBadType,
                String::FormatInserts("The type of the value is not the required type '%1'.", name));
  }
  ORM_FORCED_ASSERT(kSource, 35);
  throw Error(ERROR_GENERAL, String());
}

void Value::SetNumber(DWORD number) {
  Release();
  mType = TYPE_NUMBER;
  mNumber = number;
}

void Value::SetString(const BaseString<MbcsTraits>& text) {
  if (mType == TYPE_STRING) {
    mString = text;
    return;
  }
  Release();
  std::construct_at(&mString, text);
  mType = TYPE_STRING;
}

void Value::SetBinary(const Binary& data) {
  if (mType == TYPE_BINARY) {
    mBinary = data;
    return;
  }
  Release();
  std::construct_at(&mBinary, data);
  mType = TYPE_BINARY;
}

void Value::SetTime(const UtcTime& time) {
  const UtcTime copy = time;  // `time` may be this value's own payload
  Release();
  std::construct_at(&mTime, copy);
  mType = TYPE_TIME;
}

void Value::Assign(const Value& other) {
  switch (other.mType) {
    case TYPE_NUMBER:
      return SetNumber(other.mNumber);
    case TYPE_STRING:
      return SetString(other.mString);
    case TYPE_BINARY:
      return SetBinary(other.mBinary);
    case TYPE_TIME:
      return SetTime(other.mTime);
    default:
      return Release();
  }
}

void Value::Release() {
  if (mType == TYPE_STRING) std::destroy_at(&mString);
  if (mType == TYPE_BINARY) std::destroy_at(&mBinary);
  mType = TYPE_NONE;
}

WriteArchive& operator<<(WriteArchive& archive, const Value& value) {
  const DWORD type = value.mType;
  archive << type;
  switch (type) {
    case Value::TYPE_NUMBER:
      return archive << value.mNumber;
    case Value::TYPE_STRING:
      return archive << value.mString;
    case Value::TYPE_BINARY:
      return archive << value.mBinary;
    case Value::TYPE_TIME: {
      const ULONGLONG ticks = value.mTime.GetTicks();
      return archive << static_cast<DWORD>(ticks) << static_cast<DWORD>(ticks >> 32);
    }
    default:
      ORM_ASSERT(type == Value::TYPE_NONE, "type == Value::TYPE_NONE", kSource, 60);
      return archive;
  }
}

ReadArchive& operator>>(ReadArchive& archive, Value& value) {
  DWORD type = 0;
  archive >> type;
  switch (type) {
    case Value::TYPE_NONE:
      value.Clear();
      break;
    case Value::TYPE_NUMBER: {
      DWORD number = 0;
      archive >> number;
      value.SetNumber(number);
      break;
    }
    case Value::TYPE_STRING: {
      String text;
      archive >> text;
      value.SetString(text);
      break;
    }
    case Value::TYPE_BINARY: {
      Binary data;
      archive >> data;
      value.SetBinary(data);
      break;
    }
    case Value::TYPE_TIME: {
      DWORD low = 0;
      DWORD high = 0;
      archive >> low >> high;
      value.SetTime(UtcTime::FromTicks(ULONGLONG{high} << 32 | low));
      break;
    }
    default:
      throw Error(kBadType, "The type of the value is not supported.");
  }
  return archive;
}

}  // namespace orm
