// Loads and stores in the shared block: each number is read or written once, whole and little-endian, so that
// what was checked is what is used, whatever other processes do to the memory meanwhile.
#pragma once

#include <win32.h>

#include <bit>
#include <cstring>

namespace orm {

// A view of the block; `at` are byte offsets that the caller has checked. Numbers lie on multiples of 4.
class CacheBytes {
 public:
  explicit CacheBytes(BYTE* pStart) : mpStart(pStart) {}

  DWORD Load32(DWORD at) const {
    return LittleEndian(__atomic_load_n(reinterpret_cast<const Number*>(mpStart + at), __ATOMIC_ACQUIRE));
  }
  void Store32(DWORD at, DWORD value) const {
    __atomic_store_n(reinterpret_cast<Number*>(mpStart + at), LittleEndian(value), __ATOMIC_RELEASE);
  }
  ULONGLONG Load64(DWORD at) const { return Load32(at) | (static_cast<ULONGLONG>(Load32(at + 4)) << 32); }
  void Store64(DWORD at, ULONGLONG value) const {
    Store32(at, static_cast<DWORD>(value));
    Store32(at + 4, static_cast<DWORD>(value >> 32));
  }

  BYTE LoadByte(DWORD at) const { return __atomic_load_n(mpStart + at, __ATOMIC_RELAXED); }
  void CopyOut(void* pTo, DWORD at, DWORD size) const { std::memcpy(pTo, mpStart + at, size); }
  void CopyIn(DWORD at, const void* pFrom, DWORD size) const { std::memcpy(mpStart + at, pFrom, size); }
  void Zero(DWORD at, DWORD size) const { std::memset(mpStart + at, 0, size); }
  void Move(DWORD to, DWORD from, DWORD size) const { std::memmove(mpStart + to, mpStart + from, size); }

  // Keeps the compiler from moving stores across it. A killed process stops between two instructions, so the
  // order of its instructions is the order in which others see how far it came.
  static void KeepOrder() { __atomic_signal_fence(__ATOMIC_SEQ_CST); }

 private:
  using Number [[gnu::may_alias]] = DWORD;

  static DWORD LittleEndian(DWORD value) {
    return std::endian::native == std::endian::little ? value : __builtin_bswap32(value);
  }

  BYTE* mpStart;
};

}  // namespace orm
