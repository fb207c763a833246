// Writes settings files.
//
// A value is written in the most readable form that reads back to the same bytes: a quoted text, dword:, or a
// list of bytes. Lists are broken as the original editor breaks them: no line is longer than 80 characters
// once it has bytes, continuation lines begin with two blanks.
#include <algorithm>
#include <cstdio>

#include "Failure.h"
#include "RegDocument.h"
#include "Text.h"

namespace orm::tool {

namespace {

constexpr std::size_t LONGEST_LIST_LINE = 79;  // and then the back slash

class Writer {
 public:
  explicit Writer(RegForm form) : mForm(form) {}

  std::string Write(const RegDocument& document) {
    mText = mForm == RegForm::Version4 ? "REGEDIT4\r\n" : "Windows Registry Editor Version 5.00\r\n";
    for (const RegSection& section : document) AddSection(section);
    return std::move(mText) + "\r\n";
  }

 private:
  // The text of the file is in the ANSI code page in version 4 and in UTF-8 here in version 5.
  std::string Encode(std::string_view ansi) const {
    if (mForm == RegForm::Version4) return std::string(ansi);
    try {
      return TextFromAnsi(ansi);
    } catch (const TextError& error) {
      throw Failure(mWhere + ": " + error.what() + ", which version 5.00 cannot say; use --form 4");
    }
  }

  void AddSection(const RegSection& section) {
    mWhere = ToDisplayLine(section.key.GetName());
    if (section.key.path.find_first_of("\r\n") != std::string::npos) {
      throw Failure(mWhere + ": no settings file can name a key whose name holds a line break");
    }
    mText += section.isDeleted ? "\r\n[-" : "\r\n[";
    mText += Encode(section.key.GetName()) + "]\r\n";
    for (const RegEntry& entry : section.entries) AddEntry(section, entry);
  }

  void AddEntry(const RegSection& section, const RegEntry& entry) {
    mWhere = ToDisplayLine(section.key.GetName() + " \"" + entry.name + "\"");
    const std::size_t start = mText.size();
    mText += entry.name.empty() ? "@" : Quote(entry.name);
    mText += '=';
    if (!entry.data) {
      mText += '-';
    } else if (entry.data->type == REG_SZ && IsPlainText(entry.data->bytes)) {
      mText += Quote({entry.data->bytes.data(), entry.data->bytes.size() - 1});
    } else if (entry.data->type == REG_DWORD && entry.data->bytes.size() == 4) {
      AddNumber(entry.data->bytes);
    } else {
      AddList(*entry.data, start);
    }
    mText += "\r\n";
  }

  // Terminated, and without characters that would not stay as they are between quotes on one line.
  static bool IsPlainText(std::string_view bytes) {
    if (bytes.empty() || bytes.back() != '\0') return false;
    return std::none_of(bytes.begin(), bytes.end() - 1,
                        [](char c) { return c == '\0' || c == '\r' || c == '\n'; });
  }

  std::string Quote(std::string_view ansi) const {
    const std::string text = Encode(ansi);
    std::string quoted = "\"";
    for (std::size_t at = 0, size = 0; at < text.size(); at += size) {
      size = mForm == RegForm::Version4 ? AnsiCharacterSize(text, at) : 1;
      if (text[at] == '"' || text[at] == '\\') quoted += '\\';
      quoted.append(text, at, size);
    }
    return quoted + '"';
  }

  void AddNumber(std::string_view bytes) {
    DWORD number = 0;
    for (std::size_t i = 4; i-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[i]);
    char text[32];
    std::snprintf(text, sizeof text, "dword:%08x", number);
    mText += text;
  }

  void AddList(const RegData& data, std::size_t lineStart) {
    char head[32];
    std::snprintf(head, sizeof head, data.type == REG_BINARY ? "hex:" : "hex(%x):", data.type);
    mText += head;
    const std::string bytes =
        mForm == RegForm::Version5 && IsRegText(data.type) ? WideBytes(data.bytes) : data.bytes;
    std::size_t width = DisplayWidth(std::string_view(mText).substr(lineStart));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const bool last = i + 1 == bytes.size();
      if (width + (last ? 2 : 3) > LONGEST_LIST_LINE && i > 0) {
        mText += "\\\r\n  ";
        width = 2;
      }
      mText += HexOf({&bytes[i], 1});
      if (!last) mText += ',';
      width += 3;
    }
  }

  std::string WideBytes(std::string_view ansi) const {
    std::string bytes;
    try {
      for (const char16_t unit : WideFromAnsi(ansi)) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
      }
    } catch (const TextError& error) {
      throw Failure(mWhere + ": " + error.what() + ", which version 5.00 cannot say; use --form 4");
    }
    return bytes;
  }

  RegForm mForm;
  std::string mText;
  std::string mWhere;  // for messages
};

std::string Utf16File(std::string_view text) {
  std::string bytes = "\xFF\xFE";
  const std::u16string wide = WideFromText(text);
  bytes.reserve(2 + wide.size() * 2);
  for (const char16_t unit : wide) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

}  // namespace

std::string WriteRegFile(const RegDocument& document, RegForm form, bool utf8) {
  std::string text = Writer(form).Write(document);
  return form == RegForm::Version5 && !utf8 ? Utf16File(text) : text;
}

}  // namespace orm::tool
