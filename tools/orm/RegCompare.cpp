// Sets two trees, or a settings file and the registry, side by side.
#include <algorithm>
#include <map>

#include "RegStore.h"

namespace orm::tool {

namespace {

// A document's keys and values by name without regard to case.
struct NameLess {
  bool operator()(const std::string& left, const std::string& right) const {
    return _mbsicmp(reinterpret_cast<const unsigned char*>(left.c_str()),
                    reinterpret_cast<const unsigned char*>(right.c_str())) < 0;
  }
};
using Values = std::map<std::string, const RegEntry*, NameLess>;

Values IndexValues(const RegSection* section) {
  Values values;
  if (!section) return values;
  for (const RegEntry& entry : section->entries) values.emplace(entry.name, &entry);
  return values;
}

using Kind = RegDifference::Kind;

void CompareValues(const RegSection* before, const RegSection* after, std::vector<RegDifference>& found) {
  const Values olds = IndexValues(before);
  const Values news = IndexValues(after);
  const RegPath& key = after ? after->key : before->key;
  for (const auto& [name, entry] : olds) {
    const auto other = news.find(name);
    if (other == news.end()) {
      found.push_back({Kind::ValueRemoved, key, entry->name, entry->data, std::nullopt});
    } else if (other->second->data != entry->data) {
      found.push_back({Kind::ValueChanged, key, entry->name, entry->data, other->second->data});
    }
  }
  for (const auto& [name, entry] : news) {
    if (!olds.contains(name))
      found.push_back({Kind::ValueAdded, key, entry->name, std::nullopt, entry->data});
  }
}

}  // namespace

std::vector<RegDifference> CompareRegTrees(const RegDocument& before, const RegDocument& after) {
  std::map<std::string, std::pair<const RegSection*, const RegSection*>, NameLess> keys;
  for (const RegSection& section : before) keys[section.key.GetName()].first = &section;
  for (const RegSection& section : after) keys[section.key.GetName()].second = &section;
  std::vector<RegDifference> found;
  for (const auto& [name, pair] : keys) {
    const auto& [old, now] = pair;
    if (!old) found.push_back({Kind::KeyAdded, now->key, "", std::nullopt, std::nullopt});
    if (!now) found.push_back({Kind::KeyRemoved, old->key, "", std::nullopt, std::nullopt});
    CompareValues(old, now, found);
  }
  return found;
}

namespace {

// What a settings file wants a key to be: sections of one key add up, later lines win.
struct WantedKey {
  RegSection section;
  bool isDeleted = false;
};
using WantedKeys = std::map<std::string, WantedKey, NameLess>;

bool IsBelow(const std::string& name, const std::string& above) {
  return name.size() > above.size() && name[above.size()] == '\\' &&
         !NameLess()(name.substr(0, above.size()), above) && !NameLess()(above, name.substr(0, above.size()));
}

void WantValue(RegSection& wanted, const RegEntry& entry) {
  for (RegEntry& known : wanted.entries) {
    if (!NameLess()(known.name, entry.name) && !NameLess()(entry.name, known.name)) {
      known.data = entry.data;
      return;
    }
  }
  wanted.entries.push_back(entry);
}

WantedKeys CollectWanted(const RegDocument& document) {
  WantedKeys wanted;
  for (const RegSection& section : document) {
    const std::string name = section.key.GetName();
    if (section.isDeleted) {
      std::erase_if(wanted, [&](const auto& key) { return IsBelow(key.first, name); });
      wanted[name] = {{section.key, true, {}, section.at}, true};
      continue;
    }
    WantedKey& key = wanted.try_emplace(name, WantedKey{{section.key, false, {}, section.at}}).first->second;
    if (key.isDeleted) key = {{section.key, false, {}, section.at}, false};
    for (const RegEntry& entry : section.entries) WantValue(key.section, entry);
  }
  return wanted;
}

// Values to be deleted are those that must not be there: they are dropped from the wanted ones, and with
// `subset` looked for.
void CompareKey(const WantedKey& wanted, const RegDocument& store, bool subset,
                std::vector<RegDifference>& found) {
  RegSection present = wanted.section;
  std::erase_if(present.entries, [](const RegEntry& entry) { return !entry.data; });
  std::vector<RegDifference> differences;
  CompareValues(&present, &store.front(), differences);
  for (RegDifference& difference : differences) {
    const bool unmentioned =
        difference.kind == Kind::ValueAdded &&
        std::none_of(
            wanted.section.entries.begin(), wanted.section.entries.end(), [&](const RegEntry& entry) {
              return !NameLess()(entry.name, difference.name) && !NameLess()(difference.name, entry.name);
            });
    if (!(subset && unmentioned)) found.push_back(std::move(difference));
  }
}

}  // namespace

std::vector<RegDifference> CompareWithStore(const RegDocument& document, bool subset) {
  const WantedKeys wanted = CollectWanted(document);
  std::vector<RegDifference> found;
  for (const auto& [name, key] : wanted) {
    const RegPath& path = key.section.key;
    const RegDocument store = ReadRegTree(path, false);
    if (key.isDeleted) {
      if (!store.empty()) found.push_back({Kind::KeyAdded, path, "", std::nullopt, std::nullopt});
      continue;
    }
    if (store.empty()) {
      found.push_back({Kind::KeyRemoved, path, "", std::nullopt, std::nullopt});
      continue;
    }
    CompareKey(key, store, subset, found);
    if (subset) continue;
    for (const std::string& child : RegKey::Open(path, KEY_READ).GetSubKeys()) {
      const RegPath childPath = path.GetChild(child);
      if (!wanted.contains(childPath.GetName())) {
        found.push_back({Kind::KeyAdded, childPath, "", std::nullopt, std::nullopt});
      }
    }
  }
  return found;
}

}  // namespace orm::tool
