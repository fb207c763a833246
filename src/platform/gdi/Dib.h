// Device-independent bits: the meaning of a BITMAPINFO, and runs of run-length data.
#pragma once

#include <functional>
#include <optional>
#include <span>

#include "gdi/Context.h"
#include "gdi/Surface.h"

namespace orm::platform::gdi {

struct Dib {
  int width = 0;
  int height = 0;
  bool bottomUp = true;
  bool runLength = false;
  std::uint32_t runBytes = 0;  // of run-length data
  std::int64_t stride = 0;     // of uncompressed data
  PixelFormat format;          // never Mono or Device
  std::vector<Xrgb> colors;    // Indexed: 2^bits entries, black beyond the announced ones
};

// Nothing when the header makes no sense: sizes below 1 or beyond 2^31 bytes, unknown depth or compression,
// channel masks that are no runs. The colour table is not looked at. Masks of 0 stand for those of `model`,
// when there is one and it has this depth.
std::optional<Dib> ParseDibHeader(const BITMAPINFO* info, const PixelFormat* model = nullptr);
// The same with the colour table; DIB_PAL_COLORS needs a context. Pixels are not looked at.
std::optional<Dib> ParseDib(const BITMAPINFO* info, UINT usage, const Context* context);

// Decodes run-length data (BI_RLE8, BI_RLE4) and hands on every run of pixel indices, rows counted from the
// bottom. Runs are cut at the picture's edges; pixels that the data skip are not handed on. Stops at the end
// of the data, whether or not they are complete.
using RunSink = std::function<void(int x, int rowFromBottom, int count, const std::uint32_t* indices)>;
void DecodeRuns(const Dib& dib, std::span<const std::uint8_t> data, const RunSink& sink);

}  // namespace orm::platform::gdi
