// Folding by the code page where ASCII does not do.
#include "registry/FoldedName.h"

#include "win32/nls.h"

namespace orm::platform {

FoldedName::FoldedName(std::string_view name) : mSize(name.size()) {
  const bool isShort = name.size() <= mShort.size();
  if (!isShort) mLong = name;
  if (FoldAscii(name, isShort ? mShort.data() : mLong.data())) return;
  mLong = name;
  _mbslwr(reinterpret_cast<unsigned char*>(mLong.data()));
}

}  // namespace orm::platform
