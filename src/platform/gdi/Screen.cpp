// The screen's surface, its settings in the registry, and the stock objects.
#include "gdi/Screen.h"

#include <array>
#include <new>
#include <utility>

#include "gdi/Context.h"
#include "gdi/Fork.h"
#include "gdi/SystemPalette.h"
#include "gdi/Typeface.h"
#include "win32/registry.h"

namespace orm::platform::gdi {
namespace {

// Where a user of the platform would look for them.
constexpr char fontsKey[] = "SYSTEM\\CurrentControlSet\\Hardware Profiles\\Current\\Software\\Fonts";
constexpr char videoKey[] = "SYSTEM\\CurrentControlSet\\Control\\Video\\Screen\\0000";

// A number value within bounds, or nothing.
void ReadNumber(const char* keyName, const char* valueName, int least, int most, int& number) {
  HKEY key = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyName, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return;
  DWORD type = 0;
  DWORD value = 0;
  DWORD size = sizeof value;
  const LONG error = RegQueryValueExA(key, valueName, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
  RegCloseKey(key);
  if (error == ERROR_SUCCESS && type == REG_DWORD && size == sizeof value &&
      value >= static_cast<DWORD>(least) && value <= static_cast<DWORD>(most))
    number = static_cast<int>(value);
}

std::shared_ptr<Bitmap> MakeScreenBitmap(const ScreenSettings& settings) {
  auto bitmap = std::make_shared<Bitmap>();
  const PixelFormat format =
      settings.bitsPerPixel == 8 ? PixelFormat::Device() : PixelFormat::Direct(settings.bitsPerPixel);
  if (!bitmap->surface.Allocate(format, settings.width, settings.height, 4, false)) throw std::bad_alloc();
  return bitmap;
}

// An object of which there always is one. It goes only when not all of them could be made.
class StockHandle {
 public:
  StockHandle() = default;
  explicit StockHandle(std::shared_ptr<Object> object) {
    object->stock = true;
    mHandle = AddObject(std::move(object));
    if (!mHandle) throw std::bad_alloc();
  }
  StockHandle(StockHandle&& other) noexcept : mHandle(std::exchange(other.mHandle, nullptr)) {}
  StockHandle& operator=(StockHandle&& other) noexcept {
    std::swap(mHandle, other.mHandle);
    return *this;
  }
  ~StockHandle() {
    if (mHandle) RemoveObject(mHandle);
  }

  [[nodiscard]] HGDIOBJ Get() const { return mHandle; }

 private:
  HGDIOBJ mHandle = nullptr;
};

template <class T, class... Args>
StockHandle MakeStock(Args&&... args) {
  return StockHandle(std::make_shared<T>(std::forward<Args>(args)...));
}

StockHandle MakeStockFont(LONG height, const char* face) {
  LOGFONTA description{};
  description.lfHeight = height;
  description.lfWeight = FW_NORMAL;
  description.lfCharSet = DEFAULT_CHARSET;
  for (std::size_t i = 0; face[i]; ++i) description.lfFaceName[i] = face[i];
  return MakeStock<Font>(description);
}

StockHandle MakeStockPalette() {
  std::vector<PALETTEENTRY> entries;
  for (std::uint32_t i = 0; i < 256; ++i) {
    if (i >= 10 && i < 246) continue;
    const COLORREF color = RefFromXrgb(SystemPalette::FixedColor(i));
    entries.push_back({GetRValue(color), GetGValue(color), GetBValue(color), 0});
  }
  return MakeStock<Palette>(std::move(entries));
}

struct StockObjects {
  std::array<StockHandle, DEFAULT_GUI_FONT + 1> handles;
  StockHandle monoBitmap;

  StockObjects() {
    constexpr COLORREF brushes[] = {0xFFFFFF, 0xC0C0C0, 0x808080, 0x404040, 0x000000};
    for (std::size_t i = 0; i < std::size(brushes); ++i) handles[i] = MakeStock<Brush>(brushes[i], false);
    handles[NULL_BRUSH] = MakeStock<Brush>(COLORREF{0}, true);
    // 16-pixel cells for the system font, 8 points for dialogs, at any resolution of the screen.
    handles[SYSTEM_FONT] = MakeStockFont(16, "System");
    handles[DEFAULT_GUI_FONT] = MakeStockFont(-11, "Sans");
    handles[DEFAULT_PALETTE] = MakeStockPalette();
    auto bitmap = std::make_shared<Bitmap>();
    if (!bitmap->surface.Allocate(PixelFormat::Mono(), 1, 1, 2, false)) throw std::bad_alloc();
    monoBitmap = StockHandle(std::move(bitmap));
  }
};

constinit MadeOnce<const StockObjects> gsStockObjects;
constinit MadeOnce<Screen> gsScreen;

// What their fonts need is loaded before, and not under the lock: another thread may wait for that while it
// loads a module, whose start draws.
const StockObjects& TheStockObjects() {
  if (!gsStockObjects.IsMade()) LoadTextLibrary();
  return gsStockObjects.Get();
}

}  // namespace

void LockStockObjects() {
  gsStockObjects.Lock([](const StockObjects&) {});
}
void UnlockStockObjects() {
  gsStockObjects.Unlock([](const StockObjects&) {});
}

void LockScreen() {
  gsScreen.Lock([](const Screen& screen) { screen.bitmap->Lock()->lock(); });
}
void UnlockScreen() {
  gsScreen.Unlock([](const Screen& screen) { screen.bitmap->Lock()->unlock(); });
}

ScreenSettings ReadScreenSettings() {
  ScreenSettings settings;
  ReadNumber(fontsKey, "LogPixels", 24, 2400, settings.dotsPerInch);
  ReadNumber(videoKey, "DefaultSettings.XResolution", 64, 16384, settings.width);
  ReadNumber(videoKey, "DefaultSettings.YResolution", 64, 16384, settings.height);
  int bits = settings.bitsPerPixel;
  ReadNumber(videoKey, "DefaultSettings.BitsPerPel", 8, 32, bits);
  if (bits % 8 == 0) settings.bitsPerPixel = bits;
  return settings;
}

Screen& Screen::The() {
  return gsScreen.Get();
}

Screen::Screen() : settings(ReadScreenSettings()), bitmap(MakeScreenBitmap(settings)) {}

HGDIOBJ StockObject(int index) {
  const auto& handles = TheStockObjects().handles;
  return index >= 0 && static_cast<std::size_t>(index) < handles.size()
             ? handles[static_cast<std::size_t>(index)].Get()
             : nullptr;
}

HGDIOBJ StockMonoBitmap() {
  return TheStockObjects().monoBitmap.Get();
}

}  // namespace orm::platform::gdi

extern "C" HGDIOBJ WINAPI GetStockObject(int index) noexcept {
  using namespace orm::platform::gdi;
  return OrNoMemory<HGDIOBJ>(nullptr, [index] { return StockObject(index); });
}
