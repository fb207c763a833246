// orm class cache: the class lists that the processes of a machine share.
#include <memory>

#include "ClassCacheView.h"
#include "Command.h"
#include "Console.h"
#include "Failure.h"
#include "Text.h"

namespace orm::tool {

namespace {

using Json = nlohmann::ordered_json;

std::string StampText(uint64_t stamp) {
  const FILETIME time{static_cast<DWORD>(stamp), static_cast<DWORD>(stamp >> 32)};
  SYSTEMTIME elements;
  if (stamp == 0 || !FileTimeToSystemTime(&time, &elements)) return "-";
  char text[64];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", elements.wYear, elements.wMonth,
                elements.wDay, elements.wHour, elements.wMinute, elements.wSecond);
  return text;
}

class Handle {
 public:
  explicit Handle(HANDLE handle) : mHandle(handle) {}
  ~Handle() {
    if (mHandle) CloseHandle(mHandle);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  HANDLE Get() const { return mHandle; }

 private:
  HANDLE mHandle;
};

// A copy of the block, taken while its mutex is held so that no change is half done.
std::string CopyBlock() {
  constexpr DWORD SIZE = 0x10000, PATIENCE = 5000;
  const Handle mutex(OpenMutexA(SYNCHRONIZE, FALSE, "zr41_clsmgr_mtx"));
  const Handle mapping(OpenFileMappingA(FILE_MAP_READ, FALSE, "zr41_clsmgr_map"));
  if (!mapping.Get()) throw Failure("no process of this machine has a class cache: it could not be opened");
  const DWORD waited = mutex.Get() ? WaitForSingleObject(mutex.Get(), PATIENCE) : WAIT_TIMEOUT;
  if (waited == WAIT_TIMEOUT)
    std::fprintf(stderr, "orm: the mutex of the cache was not free; the copy may be of a change half done\n");
  std::string block;
  if (const void* view = MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, SIZE)) {
    block.assign(static_cast<const char*>(view), SIZE);
    UnmapViewOfFile(view);
  }
  if (waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED) ReleaseMutex(mutex.Get());
  if (block.empty()) throw SystemFailure("cannot map the class cache", GetLastError());
  return block;
}

Json CacheToJson(const ClassCacheView& view) {
  Json json{{"magic", {view.magic[0], view.magic[1], view.magic[2]}},
            {"blockSize", view.blockSize},
            {"dataStart", view.dataStart},
            {"capacity", view.capacity},
            {"lastSlot", view.lastSlot},
            {"usedBytes", view.usedBytes},
            {"slots", Json::array()},
            {"faults", view.faults}};
  for (const ClassCacheSlot& slot : view.slots) {
    json["slots"].push_back({{"offset", slot.offset},
                             {"size", slot.size},
                             {"order", slot.order},
                             {"lastUse", slot.lastUse},
                             {"stamp", slot.stamp},
                             {"hash", slot.hash},
                             {"name", ToDisplay(slot.name)},
                             {"payloadSize", slot.payloadSize},
                             {"classes", slot.classes}});
  }
  return json;
}

void PrintCache(const ClassCacheView& view) {
  char head[160];
  std::snprintf(head, sizeof head,
                "magic %08x %08x %08x, %u bytes, data from %u, %zu of %u slots, %u bytes used", view.magic[0],
                view.magic[1], view.magic[2], view.blockSize, view.dataStart, view.slots.size(),
                view.capacity, view.usedBytes);
  PrintLine(head);
  Table table(
      {"SLOT", "ORDER", "OFFSET", "SIZE", "HASH", "FILE TIME", "LAST USE", "PAYLOAD", "CLASSES", "NAME"});
  for (std::size_t i = 0; i < view.slots.size(); ++i) {
    const ClassCacheSlot& slot = view.slots[i];
    char hash[16];
    std::snprintf(hash, sizeof hash, "%08x", slot.hash);
    std::string classes;
    for (const Json& item : slot.classes)
      classes += (classes.empty() ? "" : " ") + item["class"].get<std::string>();
    table.Add({std::to_string(i), std::to_string(slot.order), std::to_string(slot.offset),
               std::to_string(slot.size), hash, StampText(slot.stamp), StampText(slot.lastUse),
               std::to_string(slot.payloadSize), classes.empty() ? "(none)" : classes,
               ToDisplayLine(slot.name)});
  }
  if (!table.IsEmpty()) table.Print();
}

}  // namespace

void AddClassCacheCommand(CLI::App& classCommand) {
  struct Options {
    std::string file;
    bool verify = false, json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command =
      AddSubcommand(classCommand, "cache", "Show or check the class lists that processes share",
                    "  orm class cache\n"
                    "  orm class cache --verify                exit code 0: sound, 2: damaged\n"
                    "  orm class cache --file zrclrg41.tmp     a copy of the block\n");
  command->add_flag("--verify", options->verify, "Only check the block, and say what is wrong");
  command->add_option("--file", options->file, "Read this file instead of the machine's block");
  command->add_flag("--json", options->json, "Print JSON");
  command->callback([options] {
    const ClassCacheView view =
        ReadClassCache(options->file.empty() ? CopyBlock() : ReadWholeFile(options->file));
    if (options->json) {
      PrintJson(CacheToJson(view));
    } else if (!options->verify) {
      PrintCache(view);
    }
    if (!options->json) {
      for (const std::string& fault : view.faults) PrintLine(Coloured(Colour::Red, fault));
      if (options->verify && view.faults.empty())
        PrintLine(Coloured(Colour::Green, "sound") + ", " + std::to_string(view.slots.size()) + " records");
    }
    if (options->verify && !view.faults.empty()) throw Exit{EXIT_DIFFERENT};
  });
}

}  // namespace orm::tool
