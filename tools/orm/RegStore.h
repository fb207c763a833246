// The registry as the command sees it: whole trees read and sets of changes applied, each in one transaction.
#pragma once

#include <win32/registryx.h>

#include <functional>
#include <utility>

#include "RegDocument.h"

namespace orm::tool {

// A handle to an open key.
class RegKey {
 public:
  RegKey() = default;
  ~RegKey() {
    if (mKey) RegCloseKey(mKey);
  }
  RegKey(RegKey&& other) noexcept : mKey(std::exchange(other.mKey, nullptr)) {}
  RegKey& operator=(RegKey&& other) noexcept {
    std::swap(mKey, other.mKey);
    return *this;
  }

  // Empty when there is no such key; throws Failure for every other reason.
  static RegKey Open(const RegPath& path, REGSAM access);
  // Makes what is missing of the path.
  static RegKey Create(const RegPath& path);

  explicit operator bool() const { return mKey != nullptr; }
  HKEY Get() const { return mKey; }

  // In the order of the names without regard to case.
  std::vector<std::string> GetSubKeys() const;
  std::vector<RegEntry> GetValues() const;
  // Nothing when there is no such value.
  std::optional<RegData> GetValue(const std::string& name) const;

 private:
  HKEY mKey = nullptr;
};

bool RegKeyExists(const RegPath& path);

// Tells whether anything was committed to the part of the registry that holds a key, without a system call.
class RegChangeMark {
 public:
  explicit RegChangeMark(const RegPath& path);
  // Whether something was since the last call (the first one: since construction).
  bool HasMoved();

 private:
  struct Word {
    const volatile uint64_t* word;
    uint64_t seen;
  };
  std::vector<Word> mWords;
};

// A string value's text, without its terminator, for reading configuration.
std::optional<std::string> ReadRegText(const RegPath& path, const std::string& name);

// The key and, with `recursive`, everything below it, parents before children; nothing when it does not
// exist.
RegDocument ReadRegTree(const RegPath& path, bool recursive = true);

// Makes the registry what the document says, all or nothing, and returns the document that takes it back.
// Failures throw RegApplyError. `beforeCommit` (may be null) is handed that document while the change can
// still fail; what it throws leaves the registry unchanged.
class RegApplyError : public std::runtime_error {
 public:
  RegApplyError(RegPosition where, const std::string& why) : std::runtime_error(why), at(where) {}
  RegPosition at;
};
void ApplyRegDocument(const RegDocument& document,
                      const std::function<void(const RegDocument& undo)>& beforeCommit);

// What differs between two sets of keys and values.
struct RegDifference {
  enum class Kind { KeyAdded, KeyRemoved, ValueAdded, ValueRemoved, ValueChanged };
  Kind kind;
  RegPath key;
  std::string name;
  std::optional<RegData> before;
  std::optional<RegData> after;
};
// Both documents list keys and values that exist, as ReadRegTree gives them.
std::vector<RegDifference> CompareRegTrees(const RegDocument& before, const RegDocument& after);
// A settings file against the registry, which is the later one. With `subset` what the file does not mention
// is no difference, else values and subkeys of the keys that it names count.
std::vector<RegDifference> CompareWithStore(const RegDocument& document, bool subset);

}  // namespace orm::tool
