// Paths of the interfaces and of the disk, each turned into the other.
#include "kernel/Paths.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cwctype>
#include <vector>

#include "kernel/CodePage.h"
#include "kernel/CodePageTables.h"
#include "kernel/Errno.h"
#include "kernel/FolderReader.h"
#include "kernel/Machine.h"
#include "kernel/NameMatch.h"
#include "kernel/Utf8.h"
#include "win32/errors.h"

namespace orm::platform {
namespace {

bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string CurrentFolder() {
  char buffer[PATH_MAX];
  return getcwd(buffer, sizeof buffer) != nullptr ? buffer : std::string();
}

// Folder that a drive letter stands for, without a slash at its end ("" for the root of the disk).
bool DriveTarget(char letter, std::string* target) {
  const char lower = static_cast<char>(letter | 0x20);
  const std::string link = MachinePath(std::string("drives/") + lower + ':');
  char real[PATH_MAX];
  // The usual drive of a path on the disk: whatever else there is, that link leads to the root.
  if (!link.empty() && readlink(link.c_str(), real, sizeof real) == 1 && real[0] == '/') {
    target->clear();
    return true;
  }
  if (!link.empty() && realpath(link.c_str(), real) != nullptr) {
    *target = real[1] == 0 ? "" : real;
    return true;
  }
  // Without a machine folder the disk itself is still there.
  target->clear();
  return lower == 'z' && link.empty();
}

// The letters that may have a target, in order; all of them when the links cannot be listed.
std::string DriveLetters() {
  const std::string links = MachinePath("drives");
  if (links.empty()) return "z";
  std::string letters;
  FolderReader listing(links);
  while (const dirent* entry = listing.Next()) {
    const char* name = entry->d_name;
    if (name[0] >= 'a' && name[0] <= 'z' && name[1] == ':' && name[2] == 0) letters += name[0];
  }
  if (listing.GetError() != 0) return "abcdefghijklmnopqrstuvwxyz";
  std::sort(letters.begin(), letters.end());
  return letters;
}

// What stands for something else in a path, or in no name at all.
bool IsForbiddenInNames(char c) {
  static constexpr std::string_view forbidden = "<>\"|:*?\\/";
  return static_cast<unsigned char>(c) < 32 || forbidden.find(c) != std::string_view::npos;
}

// Folds "." and ".." into what came before; ".." does not climb above the root. False for what is no name.
bool AppendComponent(std::string_view name, std::vector<std::string>* parts) {
  if (name == "..") {
    if (!parts->empty()) parts->pop_back();
  } else if (!name.empty() && name != ".") {
    std::string converted;
    if (!Utf8FromName(name, false, &converted)) return false;
    parts->push_back(std::move(converted));
  }
  return true;
}

// Splits at separators, character by character: a trail byte 0x5C is part of a name.
bool AppendComponents(std::string_view text, std::vector<std::string>* parts) {
  const CodePage& page = AnsiCodePage();
  const auto* start = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = page.CharacterSize(start + at, start + text.size());
    if (size == 1 && IsSeparator(text[at])) {
      if (!AppendComponent(text.substr(begin, at - begin), parts)) return false;
      begin = at + 1;
    }
    at += size;
  }
  return AppendComponent(text.substr(begin), parts);
}

std::string Join(const std::string& root, const std::vector<std::string>& parts) {
  std::string path = root;
  for (const std::string& part : parts) path += '/' + part;
  return path.empty() ? "/" : path;
}

// What is in a folder that is none, or that may be entered but not listed, is there as spelled or not at all.
bool HasNoListing(int error) {
  return error == ENOENT || error == ENOTDIR || error == EACCES || error == EPERM || error == ELOOP ||
         error == ENAMETOOLONG;
}

// Looks for the entry of `folder` that equals `name` apart from case; the first in byte order when there are
// several. *found is empty when there is none. 0, or an errno value when it cannot be known.
int FindIgnoringCase(const std::string& folder, const std::string& name, std::string* found) {
  FolderReader listing(folder);
  while (const dirent* entry = listing.Next()) {
    const std::string_view candidate = entry->d_name;
    if (CompareNames(candidate, name) == 0 && (found->empty() || candidate < *found)) *found = candidate;
  }
  return HasNoListing(listing.GetError()) ? 0 : listing.GetError();
}

// Next character of a UTF-8 text; a byte that begins none counts for itself, above every character.
char32_t NextCharacter(std::string_view* text) {
  const auto* start = reinterpret_cast<const unsigned char*>(text->data());
  const Utf8Character next = ReadUtf8(start, start + text->size());
  text->remove_prefix(next.valid ? next.size : 1);
  return next.valid ? next.value : 0x110000u + *start;
}

char32_t Lower(char32_t code) {
  if (code < 0x80) return code >= 'A' && code <= 'Z' ? code + 32 : code;
  if (code >= 0x110000) return code;
  return static_cast<char32_t>(towlower_l(static_cast<wint_t>(code), UnicodeLocale()));
}

}  // namespace

int CompareNames(std::string_view left, std::string_view right) {
  while (!left.empty() && !right.empty()) {
    const char32_t a = Lower(NextCharacter(&left));
    const char32_t b = Lower(NextCharacter(&right));
    if (a != b) return a < b ? -1 : 1;
  }
  return static_cast<int>(!left.empty()) - static_cast<int>(!right.empty());
}

std::u32string FoldName(std::string_view name) {
  std::u32string folded;
  folded.reserve(name.size());
  while (!name.empty()) folded.push_back(Lower(NextCharacter(&name)));
  return folded;
}

bool Utf8FromName(std::string_view name, bool isPattern, std::string* converted) {
  const CodePage& page = AnsiCodePage();
  const auto* current = reinterpret_cast<const unsigned char*>(name.data());
  const unsigned char* end = current + name.size();
  for (std::size_t size = 0; current != end; current += size) {
    size = page.CharacterSize(current, end);
    const bool isWildcard = *current == '*' || *current == '?';
    if (size == 1 && IsForbiddenInNames(static_cast<char>(*current)) && !(isPattern && isWildcard))
      return false;
    if (page.kind == CodePage::Kind::Utf8) continue;
    const std::uint16_t unit = size == 2
                                   ? page.pairToWide[static_cast<std::size_t>(current[0] << 8 | current[1])]
                                   : page.toWide[*current];
    // The character that stands for such bytes elsewhere may be a wildcard, and would be another name.
    if (unit == CodePage::noCharacter) return false;
  }
  *converted = Utf8FromAnsi(name);
  return true;
}

std::string AnsiFromName(std::string_view name) {
  std::string plain(name);
  for (char& c : plain) {
    if (IsForbiddenInNames(c)) c = '?';
  }
  return AnsiFromUtf8(plain);
}

std::string ResolveCase(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0 || path.empty() || path[0] != '/') return path;
  std::string resolved;
  for (std::size_t start = 1; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, end - start);
    std::string exact = resolved;
    exact.append(1, '/').append(name);
    if (lstat(exact.c_str(), &status) == 0) {
      resolved = exact;
    } else {
      std::string found;
      if (const int error = FindIgnoringCase(resolved.empty() ? "/" : resolved, name, &found); error != 0) {
        errno = error;
        return {};
      }
      if (found.empty()) return resolved + path.substr(start - 1);
      resolved += '/' + found;
    }
    start = end + 1;
  }
  return resolved;
}

std::string TranslatePath(std::string_view text, DWORD* error) {
  *error = ERROR_PATH_NOT_FOUND;
  if (text.empty()) return {};
  if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1])) {
    const bool isLocal = text.size() >= 4 && (text[2] == '?' || text[2] == '.') && IsSeparator(text[3]);
    if (isLocal) text.remove_prefix(4);
    if (!isLocal || text.size() < 2 || text[1] != ':') {
      *error = ERROR_BAD_NETPATH;
      return {};
    }
  }
  std::string root;
  std::vector<std::string> parts;
  if (text.size() >= 2 && IsLetter(text[0]) && text[1] == ':' && (text.size() == 2 || IsSeparator(text[2]))) {
    if (!DriveTarget(text[0], &root)) return {};
    text.remove_prefix(2);
  } else if (!IsSeparator(text[0])) {
    root = CurrentFolder();
    if (root.empty()) return {};
    if (root == "/") root.clear();
    // The current folder's own names can be climbed out of.
    for (std::size_t start = 1; start < root.size();) {
      const std::size_t end = std::min(root.find('/', start), root.size());
      parts.push_back(root.substr(start, end - start));
      start = end + 1;
    }
    root.clear();
  }
  if (!AppendComponents(text, &parts)) {
    *error = ERROR_INVALID_NAME;
    return {};
  }
  *error = ERROR_SUCCESS;
  return Join(root, parts);
}

std::string UnixPath(const char* ansiPath, DWORD* error) {
  DWORD code = ERROR_SUCCESS;
  std::string path = TranslatePath(ansiPath == nullptr ? "" : ansiPath, &code);
  if (!path.empty()) {
    path = ResolveCase(path);
    if (path.empty()) code = ErrorFromErrno(errno);
  }
  if (error != nullptr) *error = code;
  return path;
}

std::string AnsiPath(const std::string& unixPath) {
  std::string best;
  char bestLetter = 0;
  if (!unixPath.empty() && unixPath[0] == '/') {
    for (const char letter : DriveLetters()) {
      std::string target;
      if (!DriveTarget(letter, &target)) continue;
      const bool below = unixPath.compare(0, target.size(), target) == 0 &&
                         (unixPath.size() == target.size() || unixPath[target.size()] == '/');
      if (below && (bestLetter == 0 || target.size() > best.size())) {
        best = target;
        bestLetter = letter;
      }
    }
  }
  std::string rest = unixPath.substr(best.size());
  for (char& c : rest) {
    if (c != '/' && IsForbiddenInNames(c)) c = '?';
  }
  if (bestLetter != 0) {
    if (rest.empty()) rest = '/';
    rest = std::string(1, static_cast<char>(bestLetter - 32)) + ':' + rest;
  }
  // No page has the slash as the second byte of a character.
  std::string text = AnsiFromUtf8(rest);
  for (char& c : text) {
    if (c == '/') c = '\\';
  }
  return text;
}

}  // namespace orm::platform
