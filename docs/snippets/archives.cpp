// Values as bytes and back.
#include <ormutil/Error.h>
#include <ormutil/Value.h>

#include <cassert>
#include <cstring>

using namespace orm;

int main() {
  Binary stream;
  WriteArchive writer(stream);
  writer << DWORD{1} << String("abc") << Value(7);

  const unsigned char bytes[] = {0x00, 0x13, 0x48, 0x5B,  // header
                                 0x01, 0x00, 0x00, 0x00,  // 1
                                 0x04, 0x00, 0x00, 0x00, 0xE4, 0x04, 0x00, 0x00,
                                 0x61, 0x62, 0x63, 0x00,                           // "abc"
                                 0x01, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00};  // value 7
  assert(stream == Binary(bytes, sizeof bytes));

  ReadArchive reader(stream);
  DWORD number = 0;
  String text;
  Value value;
  reader >> number >> text >> value;
  assert(number == 1 && text == "abc" && value.GetNumber() == 7 && reader.IsEof());

  try {
    reader >> number;
    assert(false);
  } catch (const Error& error) {
    assert(error.GetCode() == ERROR_ARCHIVE_END);
  }
}
