// Layered errors: their shared record, the text for display and the archived form.
#include <ormutil/Error.h>

#include <memory>

namespace orm {

namespace {

constexpr const char* kSource = "src/shared/Error";
// The layers that an error usually gathers on its way up.
constexpr size_t kUsualLayers = 4;

}  // namespace

void Error::Destroy(Record* pRecord) noexcept {
  delete pRecord;
}

void Error::MakeWritable(bool keepContents) {
  if (mpData && mpData->counter < 2) return;
  auto record = std::make_unique<Record>();
  record->mLayers.reserve(kUsualLayers);
  if (keepContents && mpData) {
    record->mVersion = mpData->mVersion;
    record->mBinary = mpData->mBinary;
    record->mLayers.assign(mpData->mLayers.begin(), mpData->mLayers.end());
    record->mSuggestion = mpData->mSuggestion;
    record->mMarkedLayer = mpData->mMarkedLayer;
  }
  Release(std::exchange(mpData, record.release()));
}

void Error::AddLayer(DWORD code, const String& message, bool mark) {
  MakeWritable(true);
  std::vector<Layer>& layers = mpData->mLayers;
  if (code == ERROR_LAYER_BELOW) {
    ORM_ASSERT(!layers.empty(), "!mpData->mLayers.empty()", kSource, 97);
    code = layers.empty() ? 0 : layers.back().code;
  }
  layers.push_back({code, message});
  if (mark) mpData->mMarkedLayer = static_cast<int>(layers.size()) - 1;
}

void Error::Clear() {
  if (IsEmpty()) return;
  if (mpData->counter >= 2) {
    Release(std::exchange(mpData, nullptr));
    return;
  }
  mpData->mLayers.clear();
  mpData->mSuggestion.Empty();
  mpData->mMarkedLayer = -1;
}

void Error::MakeSystemError(DWORD code, const String& context, bool mark) {
  String message;
  message.SetSystemError(code, nullptr);
  Clear();
  AddLayer(code, message, mark);
  if (!context.IsEmpty()) AddLayer(ERROR_LAYER_BELOW, context, false);
}

Error MakeSystemError(DWORD code, const String& context, bool mark) {
  Error error;
  error.MakeSystemError(code, context, mark);
  return error;
}

bool Error::HasCode(DWORD code) const {
  if (!mpData) return false;
  for (const Layer& layer : mpData->mLayers) {
    if (layer.code == code) return true;
  }
  return false;
}

void Error::SetSuggestion(const String& text, bool) {
  MakeWritable(true);
  mpData->mSuggestion = text;
}

void Error::SetData(const Binary& data) {
  MakeWritable(true);
  mpData->mBinary = data;
}

String Error::Format() const {
  String text = GetMessage(0);
  const int marked = GetMarkedLayer();
  if (marked < 0) {
    if (text.IsEmpty()) {
      const DWORD code = GetCode(0);
      if (code == 0 || code == ERROR_SILENT) return text;
      text.Format("%08x", code);
    }
  } else if (marked != static_cast<int>(GetLayerCount()) - 1) {
    ORM_ASSERT(mpData != nullptr, "mpData != 0", kSource, 134);
    text += "\n";
    text += mpData->mLayers[static_cast<size_t>(marked)].message;
  }
  const String suggestion = GetSuggestion();
  if (!suggestion.IsEmpty()) {
    if (!text.IsEmpty()) text += "\n";
    text += "\nSuggestion: ";
    text += suggestion;
  }
  return text;
}

WriteArchive& operator<<(WriteArchive& archive, const Error& error) {
  const unsigned count = error.GetLayerCount();
  archive << (count != 0);
  if (count == 0) return archive;
  const Error::Record& record = *error.mpData;
  archive.Reserve(count * 8 + 20);
  archive << record.mVersion << record.mBinary << record.mSuggestion << record.mMarkedLayer << count;
  for (const Error::Layer& layer : record.mLayers) archive << layer.code << layer.message;
  return archive;
}

// The count is trusted for nothing: each layer takes bytes of the stream, whose end ends the loop.
void Error::ReadRecord(ReadArchive& archive) {
  bool hasContent = false;
  archive >> hasContent;
  if (!hasContent) return;
  MakeWritable(false);
  archive >> mpData->mVersion;
  if (mpData->mVersion != kVersion) {
    throw Error(ERROR_IMPORT_VERSION,
                String::FormatInserts("Incompatible version (0x%1!x!) of external data was detected.",
                                      mpData->mVersion));
  }
  int marked = -1;
  uint32_t count = 0;
  archive >> mpData->mBinary >> mpData->mSuggestion >> marked >> count;
  if (marked < -1 || (marked >= 0 && static_cast<uint32_t>(marked) >= count)) {
    throw Error(ERROR_ARCHIVE_INVALID, "The data are not valid archive data.");
  }
  mpData->mMarkedLayer = marked;
  for (; count > 0; --count) {
    Layer layer{0, {}};
    archive >> layer.code >> layer.message;
    mpData->mLayers.push_back(std::move(layer));
  }
}

ReadArchive& operator>>(ReadArchive& archive, Error& error) {
  error.Clear();
  try {
    Error read;
    read.ReadRecord(archive);
    // A record without layers is kept too, for the bytes that came with it.
    if (read.mpData) error = read;
  } catch (Error& failure) {
    failure.AddLayer(ERROR_LAYER_BELOW, "Failed to deserialize error description from external data.", true);
    failure.SetSuggestion("Make sure that you are not mixing incompatible versions of this software.", false);
    throw;
  }
  return archive;
}

Binary Error::Export() const {
  Binary data;
  if (IsEmpty()) return data;
  WriteArchive archive(data);
  archive << *this;
  return data;
}

Error Error::Import(const Binary& data) {
  Error error;
  if (data.IsEmpty()) return error;
  ReadArchive archive(data);
  archive >> error;
  return error;
}

}  // namespace orm
