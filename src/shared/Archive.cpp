// Archive streams: the header, growth of the stream, and the reader's checks.
#include <ormutil/Archive.h>
#include <ormutil/Error.h>

#include <algorithm>

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Archive";
constexpr unsigned kHeaderSize = 4;
constexpr unsigned char kFormatMask = 0x0F;
constexpr unsigned char kBigEndian = 0x10;
constexpr unsigned char kSignature[] = {0x13, 0x48, 0x5B};
// Room for a small record, made at once.
constexpr unsigned kFirstReserve = 512;
// From this size on the stream reserves half of itself ahead. Growing by the buffer's fixed step alone would
// copy a large archive once for every step.
constexpr unsigned kAheadFrom = 4096;

[[noreturn]] void ThrowEnd() {
  throw Error(ERROR_ARCHIVE_END, "End of data reached during archive operation.");
}

[[noreturn]] void ThrowInvalid() {
  throw Error(ERROR_ARCHIVE_INVALID, "The data are not valid archive data.");
}

}  // namespace

void WriteArchive::SetStream(Binary& stream, ArchiveFormatType format) {
  ORM_ASSERT(format != ARCHIVE_FORMAT_UNKNOWN, "format != ARCHIVE_FORMAT_UNKNOWN", kSource, 81);
  // Before there can be want of memory, so that nothing more is written into the former stream.
  mPos = 0;
  mpData = &stream;
  mFormat = format;
  stream.Clear();
  stream.Reserve(kFirstReserve);
}

void WriteArchive::Reserve(unsigned size) {
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 91);
  if (!mpData) return;
  // A hint that no buffer can follow is left to the writes after it, which report what they cannot have.
  if (size <= UINT32_MAX - mPos) mpData->Reserve(mPos + size);
}

unsigned char* WriteArchive::ClaimSlowly(unsigned long long size) {
  const unsigned begin = mPos == 0 ? kHeaderSize : mPos;
  const unsigned long long end = begin + size;
  if (end > UINT32_MAX) Binary::Allocate(end, 0, 58);
  unsigned room = static_cast<unsigned>(end);
  const unsigned allocated = mpData->GetAllocated();
  if (room > allocated && allocated >= kAheadFrom && allocated < UINT32_MAX / 2) {
    room = std::max(room, allocated + allocated / 2);
  }
  unsigned char* bytes = mpData->PrepareWriting(room, true, true);
  mpData->mpData->mSize = std::max(mpData->mpData->mSize, static_cast<uint32_t>(end));
  if (mPos == 0) {
    bytes[0] = static_cast<unsigned char>(mFormat) & kFormatMask;
    std::copy(std::begin(kSignature), std::end(kSignature), bytes + 1);
  }
  mPos = static_cast<uint32_t>(end);
  return bytes + begin;
}

void WriteArchive::AppendSlowly(const unsigned char* data, unsigned size) {
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 97);
  if (!mpData || size == 0) return;
  // Bytes of the stream itself stay where they are while it grows, when its block has one holder more.
  const Binary keep = mpData->Owns(data) ? *mpData : Binary();
  std::memcpy(ClaimSlowly(size), data, size);
}

void WriteArchive::WriteString(const String& text) {
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 123);
  if (mpData) {
    const unsigned codePage = GetACP();
    const unsigned size = text.GetSerializedSize(codePage);
    unsigned char* target = Claim(size);
    text.Serialize(target ? target : ClaimSlowly(size), codePage, size);
  }
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 150);
}

void WriteArchive::WriteBinary(const Binary& data) {
  if (!mpData) return AppendSlowly(nullptr, 0);
  const uint32_t size = data.GetSize();
  const unsigned char* bytes = data.GetData();
  unsigned char* target = size <= UINT32_MAX - sizeof size ? Claim(size + 4) : nullptr;
  // The stream may be written into itself: its bytes stay where they are while it grows.
  const Binary keep = target ? Binary() : data;
  if (!target) target = ClaimSlowly(sizeof size + 0ull + size);
  std::memcpy(target, &size, sizeof size);
  CopyBytes(target + 4, bytes, size);
}

void ReadArchive::SetStream(const Binary& stream) {
  mPos = 0;
  mFormat = ARCHIVE_FORMAT_UNKNOWN;
  mNativeOrder = true;
  mpData = &stream;
}

ArchiveFormatType ReadArchive::GetFormat() {
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 182);
  if (!mpData) return ARCHIVE_FORMAT_UNKNOWN;
  if (mPos != 0) return mFormat;
  if (mpData->GetSize() < kHeaderSize) return ARCHIVE_FORMAT_UNKNOWN;
  const unsigned char* header = mpData->GetData();
  if (!std::equal(std::begin(kSignature), std::end(kSignature), header + 1) ||
      (header[0] & kFormatMask) != ARCHIVE_FORMAT_DEFAULT) {
    return ARCHIVE_FORMAT_UNKNOWN;
  }
  mFormat = ARCHIVE_FORMAT_DEFAULT;
  mPos = kHeaderSize;
  mNativeOrder = (header[0] & kBigEndian) == 0;
  return mFormat;
}

bool ReadArchive::IsEof() {
  if (GetFormat() == ARCHIVE_FORMAT_UNKNOWN) ThrowInvalid();
  ORM_ASSERT(mPos <= mpData->GetSize(), "mPos <= mpData->GetSize()", kSource, 208);
  return mPos >= mpData->GetSize();
}

void ReadArchive::ReadDataTest(unsigned size, unsigned char* dest) {
  if (GetFormat() == ARCHIVE_FORMAT_UNKNOWN) {
    if (dest) std::fill_n(dest, size, static_cast<unsigned char>(0));
    ThrowInvalid();
  }
  const unsigned total = mpData->GetSize();
  ORM_ASSERT(mPos <= total, "mPos <= mpData->GetSize()", kSource, 220);
  if (mPos > total || size > total - mPos) {
    if (dest) std::fill_n(dest, size, static_cast<unsigned char>(0));
    ThrowEnd();
  }
}

void ReadArchive::ReadData(unsigned char* dest, unsigned size) {
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 231);
  ORM_ASSERT(size != 0, "size != 0", kSource, 232);
  ReadDataTest(size, dest);
  std::copy_n(mpData->GetData() + mPos, size, dest);
  mPos += size;
}

void ReadArchive::ReadNumberSlowly(unsigned char* dest, unsigned size) {
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 239);
  ORM_ASSERT(size != 0, "size != 0", kSource, 240);
  ReadDataTest(size, dest);
  const unsigned char* source = mpData->GetData() + mPos;
  if (!mNativeOrder && (size == 2 || size == 4 || size == 8)) {
    std::reverse_copy(source, source + size, dest);
  } else {
    std::copy_n(source, size, dest);
  }
  mPos += size;
}

void ReadArchive::ReadString(String& text) {
  if (mPos == 0 && GetFormat() == ARCHIVE_FORMAT_UNKNOWN) {
    text.Empty();
    ThrowInvalid();
  }
  const unsigned total = mpData->GetSize();
  ORM_ASSERT(mPos <= total, "mPos <= mpData->GetSize()", kSource, 253);
  const size_t left = GetRemaining();
  const size_t consumed = text.Deserialize(mpData->GetData() + (total - left), left, CP_ACP);
  if (consumed == 0) ThrowInvalid();
  ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 260);
  mPos += static_cast<uint32_t>(consumed);
}

void ReadArchive::ReadBinary(Binary& data) {
  uint32_t count = 0;
  ReadDataEx(reinterpret_cast<unsigned char*>(&count), sizeof count);
  const unsigned left = mpData->GetSize() - mPos;
  if (count > left) ThrowEnd();
  data.Assign(mpData->GetData() + mPos, count);
  mPos += count;
}

void Archive::SetStream(Binary& stream, ModeType mode) {
  switch (mode) {
    case MODE_READ:
      return ReadArchive::SetStream(stream);
    case MODE_WRITE:
      return WriteArchive::SetStream(stream, ARCHIVE_FORMAT_DEFAULT);
    default:
      ORM_FORCED_ASSERT(kSource, 299);
  }
}

}  // namespace orm
