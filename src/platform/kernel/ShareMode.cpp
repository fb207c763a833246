#include "kernel/ShareMode.h"

#include <fcntl.h>

namespace orm::platform {

namespace {

// Bytes far behind any file's end that carry no data, only locks. Every open file holds a shared lock on the
// byte of each thing that it does or forbids; a byte that somebody else holds cannot be locked exclusively,
// which is asked for without doing it.
enum LockByte : off_t { READS, WRITES, FORBIDS_READING, FORBIDS_WRITING };
constexpr off_t FIRST_BYTE = 0x7FFFFFFFFFFF0000;

struct flock LockOf(LockByte byte, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = FIRST_BYTE + byte;
  lock.l_len = 1;
  return lock;
}

void Hold(int descriptor, LockByte byte) {
  struct flock lock = LockOf(byte, F_RDLCK);
  (void)fcntl(descriptor, F_OFD_SETLK, &lock);  // a disk without locks has no share modes
}

bool SomebodyElseHolds(int descriptor, LockByte byte) {
  struct flock lock = LockOf(byte, F_WRLCK);
  return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace

bool ClaimShareMode(int descriptor, bool reads, bool writes, DWORD share) noexcept {
  const bool forbidsReading = (share & FILE_SHARE_READ) == 0;
  const bool forbidsWriting = (share & FILE_SHARE_WRITE) == 0;
  // Announce first, look afterwards: of two that come at once at least one sees the other.
  if (reads) Hold(descriptor, READS);
  if (writes) Hold(descriptor, WRITES);
  if (forbidsReading) Hold(descriptor, FORBIDS_READING);
  if (forbidsWriting) Hold(descriptor, FORBIDS_WRITING);
  return !(reads && SomebodyElseHolds(descriptor, FORBIDS_READING)) &&
         !(writes && SomebodyElseHolds(descriptor, FORBIDS_WRITING)) &&
         !(forbidsReading && SomebodyElseHolds(descriptor, READS)) &&
         !(forbidsWriting && SomebodyElseHolds(descriptor, WRITES));
}

}  // namespace orm::platform
