// Reads trees from the registry and applies changes to it.
#include "RegStore.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Failure.h"
#include "Text.h"

namespace orm::tool {

namespace {

std::string Shown(const RegPath& path) {
  return ToDisplayLine(path.GetName());
}

// Every user may write to the trace configuration, whoever made it first.
bool IsOpenToAll(const RegPath& path) {
  static constexpr std::string_view open = "software\\tdbg_trace\\1.0";
  if (path.root != HKEY_LOCAL_MACHINE || path.path.size() < open.size()) return false;
  std::string start = path.path.substr(0, open.size());
  std::transform(start.begin(), start.end(), start.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return start == open && (path.path.size() == open.size() || path.path[open.size()] == '\\');
}

// What the functions keep apart from the components of a path: nothing but the back slash.
std::size_t ParentEnd(std::string_view path) {
  std::size_t end = 0;
  for (std::size_t at = 0; at < path.size(); at += AnsiCharacterSize(path, at)) {
    if (path[at] == '\\') end = at;
  }
  return end;
}

RegPath Parent(const RegPath& path) {
  return {path.root, path.path.substr(0, ParentEnd(path.path))};
}

}  // namespace

RegKey RegKey::Open(const RegPath& path, REGSAM access) {
  RegKey key;
  const LSTATUS error = RegOpenKeyExA(path.root, path.path.c_str(), 0, access, &key.mKey);
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return {};
  if (error != 0) throw SystemFailure("cannot open " + Shown(path), static_cast<DWORD>(error));
  return key;
}

RegKey RegKey::Create(const RegPath& path) {
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  const SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
  RegKey key;
  const LSTATUS error =
      RegCreateKeyExA(path.root, path.path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                      IsOpenToAll(path) ? &attributes : nullptr, &key.mKey, nullptr);
  if (error != 0) throw SystemFailure("cannot create " + Shown(path), static_cast<DWORD>(error));
  return key;
}

std::vector<std::string> RegKey::GetSubKeys() const {
  std::vector<std::string> names;
  for (DWORD index = 0;; ++index) {
    char name[REG_LONGEST_KEY_NAME + 1];
    DWORD length = sizeof name;
    const LSTATUS error = RegEnumKeyExA(mKey, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (error == ERROR_NO_MORE_ITEMS) return names;
    if (error != 0) throw SystemFailure("cannot list the subkeys of a key", static_cast<DWORD>(error));
    names.emplace_back(name, length);
  }
}

std::vector<RegEntry> RegKey::GetValues() const {
  std::vector<RegEntry> values;
  std::string name(REG_LONGEST_VALUE_NAME + 1, '\0');
  for (DWORD index = 0;; ++index) {
    DWORD length = static_cast<DWORD>(name.size());
    const LSTATUS error =
        RegEnumValueA(mKey, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
    if (error == ERROR_NO_MORE_ITEMS) return values;
    if (error != 0) throw SystemFailure("cannot list the values of a key", static_cast<DWORD>(error));
    RegEntry entry{name.substr(0, length), std::nullopt, {}};
    entry.data = GetValue(entry.name);
    if (entry.data) values.push_back(std::move(entry));  // else it was deleted meanwhile
  }
}

std::optional<RegData> RegKey::GetValue(const std::string& name) const {
  RegData data;
  for (DWORD size = 256;;) {
    data.bytes.resize(size);
    const LSTATUS error = RegQueryValueExA(mKey, name.c_str(), nullptr, &data.type,
                                           reinterpret_cast<BYTE*>(data.bytes.data()), &size);
    if (error == ERROR_MORE_DATA) continue;
    if (error == ERROR_FILE_NOT_FOUND) return std::nullopt;
    if (error != 0)
      throw SystemFailure("cannot read value " + ToDisplayLine(name), static_cast<DWORD>(error));
    data.bytes.resize(size);
    return data;
  }
}

// The keys of the local machine that every user may write are kept apart and have a word of their own; the
// trace configuration is one of them, and there since this process loaded the library.
RegChangeMark::RegChangeMark(const RegPath& path) {
  const auto add = [&](HKEY key) {
    const volatile uint64_t* word = OrmRegistryChangeWord(key);
    mWords.push_back({word, *word});
  };
  add(path.root);
  if (path.root != HKEY_LOCAL_MACHINE) return;
  if (const RegKey open = RegKey::Open({path.root, "SOFTWARE\\tdbg_trace\\1.0"}, KEY_QUERY_VALUE))
    add(open.Get());
}

bool RegChangeMark::HasMoved() {
  bool moved = false;
  for (Word& word : mWords) {
    const uint64_t now = *word.word;
    moved |= now != word.seen;
    word.seen = now;
  }
  return moved;
}

bool RegKeyExists(const RegPath& path) {
  return static_cast<bool>(RegKey::Open(path, KEY_QUERY_VALUE));
}

std::optional<std::string> ReadRegText(const RegPath& path, const std::string& name) {
  const RegKey key = RegKey::Open(path, KEY_QUERY_VALUE);
  if (!key) return std::nullopt;
  const std::optional<RegData> data = key.GetValue(name);
  if (!data || data->type != REG_SZ) return std::nullopt;
  return data->bytes.substr(0, data->bytes.find('\0'));
}

RegDocument ReadRegTree(const RegPath& path, bool recursive) {
  RegDocument document;
  std::vector<RegPath> waiting{path};
  while (!waiting.empty()) {
    const RegPath current = std::move(waiting.back());
    waiting.pop_back();
    const RegKey key = RegKey::Open(current, KEY_READ);
    if (!key) continue;  // deleted meanwhile
    document.push_back({current, false, key.GetValues(), {}});
    if (!recursive) break;
    const std::vector<std::string> names = key.GetSubKeys();
    for (auto name = names.rbegin(); name != names.rend(); ++name) waiting.push_back(current.GetChild(*name));
  }
  return document;
}

namespace {

// A transaction on one half of the registry; taken back unless it was committed.
class Transaction {
 public:
  Transaction(HKEY root, uint64_t expectedBytes) : mRoot(root) {
    const LSTATUS error = OrmRegBeginTransaction(root, expectedBytes);
    if (error != 0)
      throw SystemFailure("cannot change " + RegPath{root, ""}.GetName(), static_cast<DWORD>(error));
  }
  ~Transaction() {
    if (mRoot) OrmRegAbortTransaction(mRoot);
  }
  Transaction(Transaction&& other) noexcept : mRoot(std::exchange(other.mRoot, nullptr)) {}
  Transaction& operator=(Transaction&&) = delete;

  void Commit() {
    const LSTATUS error = OrmRegCommitTransaction(std::exchange(mRoot, nullptr));
    if (error != 0) throw SystemFailure("cannot store the change", static_cast<DWORD>(error));
  }

 private:
  HKEY mRoot;
};

// Applies sections one after the other and collects what takes each of them back.
class Changer {
 public:
  void Apply(const RegSection& section) {
    mAt = section.at;
    if (section.isDeleted) {
      DeleteTree(section.key);
    } else {
      SetValues(section);
    }
  }

  // What was done last is taken back first.
  RegDocument TakeUndo() {
    RegDocument undo;
    for (auto group = mUndo.rbegin(); group != mUndo.rend(); ++group) {
      std::move(group->begin(), group->end(), std::back_inserter(undo));
    }
    return undo;
  }
  RegPosition GetPosition() const { return mAt; }

 private:
  void DeleteTree(const RegPath& path) {
    RegDocument tree = ReadRegTree(path);
    for (auto section = tree.rbegin(); section != tree.rend(); ++section) {
      const LSTATUS error = RegDeleteKeyA(section->key.root, section->key.path.c_str());
      if (error != 0) throw SystemFailure("cannot delete " + Shown(section->key), static_cast<DWORD>(error));
    }
    if (!tree.empty()) mUndo.push_back(std::move(tree));
  }

  void SetValues(const RegSection& section) {
    const bool isNew = !section.key.path.empty() && !RegKeyExists(section.key);
    const bool onlyDeletes = std::all_of(section.entries.begin(), section.entries.end(),
                                         [](const RegEntry& entry) { return !entry.data; });
    // A list of deletions does not bring the key into being; a bare [key] does.
    if (isNew && onlyDeletes && !section.entries.empty()) return;
    if (isNew) {
      RegSection taken{section.key, true, {}, {}};
      for (RegPath above = Parent(section.key); !above.path.empty() && !RegKeyExists(above);
           above = Parent(above)) {
        taken.key = above;
      }
      mUndo.push_back({taken});
    }
    const RegKey key = section.key.path.empty() ? RegKey::Open(section.key, KEY_READ | KEY_WRITE)
                                                : RegKey::Create(section.key);
    RegSection undo{section.key, false, {}, {}};
    for (const RegEntry& entry : section.entries) {
      mAt = entry.at;
      const std::optional<RegData> old = key.GetValue(entry.name);
      if (old == entry.data) continue;
      undo.entries.insert(undo.entries.begin(), RegEntry{entry.name, old, {}});
      SetValue(key, entry);
    }
    if (!isNew && !undo.entries.empty()) mUndo.push_back({std::move(undo)});
  }

  static void SetValue(const RegKey& key, const RegEntry& entry) {
    const LSTATUS error = entry.data ? RegSetValueExA(key.Get(), entry.name.c_str(), 0, entry.data->type,
                                                      reinterpret_cast<const BYTE*>(entry.data->bytes.data()),
                                                      static_cast<DWORD>(entry.data->bytes.size()))
                                     : RegDeleteValueA(key.Get(), entry.name.c_str());
    if (error != 0 && !(error == ERROR_FILE_NOT_FOUND && !entry.data)) {
      throw SystemFailure("cannot change value \"" + ToDisplayLine(entry.name) + "\"",
                          static_cast<DWORD>(error));
    }
  }

  RegPosition mAt;
  std::vector<RegDocument> mUndo;
};

uint64_t EstimateSize(const RegDocument& document, HKEY root) {
  uint64_t size = 0;
  for (const RegSection& section : document) {
    if (section.key.root != root) continue;
    size += 512 + section.key.path.size() * 2;
    for (const RegEntry& entry : section.entries) {
      size += 256 + entry.name.size() * 2 + (entry.data ? entry.data->bytes.size() : 0);
    }
  }
  return size;
}

}  // namespace

void ApplyRegDocument(const RegDocument& document,
                      const std::function<void(const RegDocument& undo)>& beforeCommit) {
  std::vector<Transaction> transactions;
  for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE}) {
    if (const uint64_t size = EstimateSize(document, root)) transactions.emplace_back(root, size);
  }
  Changer changer;
  try {
    for (const RegSection& section : document) changer.Apply(section);
  } catch (const Failure& failure) {
    throw RegApplyError(changer.GetPosition(), failure.what());
  }
  if (beforeCommit) beforeCommit(changer.TakeUndo());
  for (Transaction& transaction : transactions) transaction.Commit();
}

}  // namespace orm::tool
