// A damaged file of the registry: what the check lets pass can be read and written without harm. The input
// begins with the pages that the file keeps (0 for all) and goes on with bytes that are laid over a sound
// one: place and content.
#include <fcntl.h>
#include <lmdb.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

#include "Require.h"
#include "Script.h"
#include "TemporaryFile.h"
#include "registry/Hive.h"
#include "registry/PageCheck.h"
#include "registry/Records.h"

namespace orm::platform {

// The records' only need of the rest of the registry.
DWORD ErrorFromStore(int code) {
  return code == MDB_NOTFOUND ? DWORD{ERROR_FILE_NOT_FOUND} : DWORD{ERROR_BADDB};
}

}  // namespace orm::platform

namespace {

using namespace orm::platform;
using fuzz::Require;

// One opened store file, as Hive opens it.
class Environment {
 public:
  explicit Environment(const std::string& path) {
    Require(mdb_env_create(&mEnvironment) == 0 && mdb_env_set_mapsize(mEnvironment, 16 << 20) == 0);
    const std::string folder = path.substr(0, path.rfind('/'));
    mError = mdb_env_open(mEnvironment, folder.c_str(), MDB_NOLOCK | MDB_NOTLS | MDB_NOSYNC, 0600);
  }
  ~Environment() { mdb_env_close(mEnvironment); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  // Null when it cannot begin.
  MDB_txn* Begin(unsigned flags) {
    MDB_txn* txn = nullptr;
    if (mError != 0 || mdb_txn_begin(mEnvironment, nullptr, flags, &txn) != 0) return nullptr;
    MDB_dbi main = 0;
    if (mdb_dbi_open(txn, nullptr, 0, &main) == 0) return txn;
    mdb_txn_abort(txn);
    return nullptr;
  }

 private:
  MDB_env* mEnvironment = nullptr;
  int mError = 0;
};

void PutNumbers(MDB_txn* txn, std::uint64_t key) {
  for (unsigned i = 0; i < 24; ++i) {
    const std::string name = "value" + std::to_string(i * 7919) + std::string(i == 9 ? 600 : 0, 'n');
    const std::string data(i == 20 ? 9000 : i * 5, 'd');
    PutValue(txn, key, {3, name, data});
  }
}

// Pages of every kind: branches, leaves, one value on pages of its own, and pages that were given back.
std::string MakeSound(const std::string& path) {
  {
    Environment environment(path);
    MDB_txn* txn = environment.Begin(0);
    Require(txn != nullptr);
    for (const char* name : {"Alpha", "Beta", "Gamma"}) {
      std::uint64_t id = noKey;
      Require(MakeKey(txn, rootKey, "", &id) == ERROR_SUCCESS);
      Require(PutSubKey(txn, rootKey, {id, false, name}) == ERROR_SUCCESS);
      PutNumbers(txn, id);
    }
    Require(mdb_txn_commit(txn) == 0);
    txn = environment.Begin(0);
    for (unsigned i = 0; i < 24; i += 2) DropValue(txn, 3, "value" + std::to_string(i * 7919));
    Require(mdb_txn_commit(txn) == 0);
  }
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void ReadAll(MDB_txn* txn, std::uint64_t key, unsigned depth) {
  if (CheckAlive(txn, key) != ERROR_SUCCESS || depth > 4) return;
  Position position;
  MDB_val record{};
  size_t total = 0;
  for (DWORD i = 0;
       GetByIndex(txn, PrefixOf(RecordKind::Value, key), i, {}, &position, &record) == ERROR_SUCCESS; ++i) {
    ValueRecord value, again;
    if (!Parse(record, &value)) continue;
    for (const char c : value.data) total += static_cast<unsigned char>(c);
    GetValue(txn, key, value.name, &again);
  }
  ForEach(txn, PrefixOf(RecordKind::SubKey, key), [&](const MDB_val&, const MDB_val& found) {
    SubKeyRecord subKey;
    if (Parse(found, &subKey)) ReadAll(txn, subKey.id, depth + 1);
    return true;
  });
  Require(total < SIZE_MAX);
}

void WriteSome(MDB_txn* txn, std::uint64_t key) {
  PutValue(txn, key, {1, "new", "data"});
  PutValue(txn, key, {1, "value7919", std::string(5000, 'x')});
  DropValue(txn, key, "value15838");
  std::uint64_t id = noKey;
  if (MakeKey(txn, key, "class", &id) == ERROR_SUCCESS) PutSubKey(txn, key, {id, false, "Made"});
  DropSubKey(txn, key, "Made");
}

// Whether the check let it pass.
bool Use(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const DWORD head = CheckHead(file);
  close(file);
  if (head != ERROR_SUCCESS) return false;
  Environment environment(path);
  MDB_txn* txn = environment.Begin(MDB_RDONLY);
  if (txn == nullptr) return false;
  const bool isSound = CheckPages(path, mdb_txn_id(txn), nullptr) == ERROR_SUCCESS;
  if (isSound) ReadAll(txn, rootKey, 0);
  mdb_txn_abort(txn);
  if (!isSound) return false;
  for (std::uint64_t key = rootKey; key < rootKey + 2; ++key) {
    txn = environment.Begin(0);
    if (txn == nullptr) break;
    WriteSome(txn, key);
    DropKey(txn, key + 1);
    mdb_txn_commit(txn);
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::TemporaryFile file("data.mdb");
  static const std::string sound = MakeSound(file.GetPath());
  static const bool isSound = Use(file.GetPath());
  Require(isSound);
  fuzz::Script script(data, size);
  std::string content = sound;
  if (const size_t pages = script.Byte(); pages != 0) content.resize(std::min(content.size(), pages * 2048));
  while (!script.IsAtEnd() && !content.empty()) {
    const size_t place = (static_cast<size_t>(script.Byte()) * 4096 + script.Word() % 4096) % content.size();
    const std::string bytes = script.Text();
    content.replace(place, std::min(bytes.size(), content.size() - place), bytes, 0, content.size() - place);
  }
  file.Write(content);
  Use(file.GetPath());
  return 0;
}
