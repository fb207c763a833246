// The bytes of a bitmap resource, checked: an information block that the system can be given without fear,
// and the pixels.
#pragma once

#include <win32.h>

#include <span>
#include <vector>

namespace orm {

struct BitmapBlock {
  BITMAPINFOHEADER header{};    // as in the resource, but 40 bytes long
  std::vector<RGBQUAD> colors;  // 2^bits entries up to 8 bits per pixel, three masks for bit fields
  std::span<const BYTE> bits;   // all that follows
  bool complete = false;        // the pixels are as many as the header says

  // False when the data do not hold the header and the colour table.
  bool Read(const void* pData, size_t size);

  // The header and the colours as the system takes them.
  const BITMAPINFO* GetInfo() const { return reinterpret_cast<const BITMAPINFO*>(mInfo.data()); }
  LONG GetAbsoluteHeight() const;

 private:
  bool ReadColors(const BYTE* pData, size_t size, size_t& rAt);
  bool HasAllBits();
  void MakeInfo();

  std::vector<DWORD> mInfo;
};

}  // namespace orm
