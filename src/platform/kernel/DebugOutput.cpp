// Debugger output. Watchers enter themselves into a table in the machine's `debug` file, which every sender
// has mapped: without a watcher a text costs a look at that table. With one it goes to the watcher's datagram
// socket beside the file, `debug.0` to `debug.7`.
//
// The file is written by the machine's owner only, so nobody else can cut it short under a sender's mapping;
// other users may send, but not watch.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "kernel/Fork.h"
#include "kernel/Futex.h"
#include "kernel/Machine.h"
#include "win32/debugwatch.h"
#include "win32/kernel.h"

namespace orm::platform {

namespace {

constexpr int kSlots = 8;
constexpr size_t kLongestText = 60000;  // of one datagram; longer texts go in pieces
constexpr DWORD kRetryMilliseconds = 1000;

struct WatcherTable {
  std::atomic<uint32_t> processes[kSlots];  // 0: free
};

// The table as this process sees it, and what it sends with. Kept for the life of the process.
class Output {
 public:
  static Output& Get() {
    static Output& output = *new Output;
    return output;
  }

  // Null while there is no table.
  WatcherTable* Table() {
    WatcherTable* const table = mTable.load(std::memory_order_acquire);
    return table != nullptr ? table : Open();
  }
  bool IsWritable() const { return mWritable; }
  std::mutex& Lock() { return mLock; }

  // The address of a slot's socket. It is named through the folder's descriptor: the path of the folder may
  // be longer than a socket address holds.
  sockaddr_un AddressOf(int slot) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/debug.%d", mFolder, slot);
    return address;
  }

  void Send(int slot, const char* text, size_t length) {
    const int descriptor = Socket();
    if (descriptor < 0) return;
    const sockaddr_un address = AddressOf(slot);
    do {
      const size_t piece = length < kLongestText ? length : kLongestText;
      uint32_t process = static_cast<uint32_t>(getpid());
      iovec parts[] = {{&process, sizeof(process)}, {const_cast<char*>(text), piece}};
      msghdr message{};
      message.msg_name = const_cast<sockaddr_un*>(&address);
      message.msg_namelen = sizeof(address);
      message.msg_iov = parts;
      message.msg_iovlen = 2;
      ssize_t sent;
      while ((sent = sendmsg(descriptor, &message, MSG_NOSIGNAL)) < 0 && errno == EINTR) {
      }
      if (sent < 0) {
        if (errno == ECONNREFUSED || errno == ENOENT) Forget(slot);
        return;
      }
      text += piece;
      length -= piece;
    } while (length != 0);
  }

 private:
  WatcherTable* Open() {
    const std::lock_guard lock(mLock);
    if (WatcherTable* const table = mTable.load(std::memory_order_relaxed)) return table;
    const DWORD now = GetTickCount();
    if (mTried && now - mLastTry < kRetryMilliseconds) return nullptr;
    WatcherTable* const table = MapTable();
    mTried = true;
    mLastTry = now;
    mTable.store(table, std::memory_order_release);
    return table;
  }

  WatcherTable* MapTable() {
    const std::string& folder = MachineFolder();
    if (folder.empty()) return nullptr;
    if (mFolder < 0) mFolder = open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    int descriptor = openat(mFolder, "debug", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    mWritable = descriptor >= 0;
    if (descriptor < 0) descriptor = openat(mFolder, "debug", O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0) return nullptr;
    void* view = MAP_FAILED;
    struct stat status;
    if ((!mWritable || (fchmod(descriptor, MachineMode(0644)), ftruncate(descriptor, 4096) == 0)) &&
        fstat(descriptor, &status) == 0 && status.st_size >= static_cast<off_t>(sizeof(WatcherTable))) {
      view = mmap(nullptr, sizeof(WatcherTable), PROT_READ | (mWritable ? PROT_WRITE : 0), MAP_SHARED,
                  descriptor, 0);
    }
    close(descriptor);
    return view != MAP_FAILED ? static_cast<WatcherTable*>(view) : nullptr;
  }

  int Socket() {
    const std::lock_guard lock(mLock);
    if (mSocket >= 0) return mSocket;
    mSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const timeval patience{0, 200'000};
    setsockopt(mSocket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    return mSocket;
  }

  // A watcher that was killed left its entry.
  void Forget(int slot) {
    WatcherTable* const table = Table();
    if (!mWritable || table == nullptr) return;
    uint32_t process = table->processes[slot].load();
    if (process != 0 && kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH) {
      table->processes[slot].compare_exchange_strong(process, 0);
    }
  }

  std::mutex mLock;
  std::atomic<WatcherTable*> mTable{nullptr};
  bool mWritable = false;
  bool mTried = false;
  DWORD mLastTry = 0;
  int mFolder = -1;
  int mSocket = -1;
};

void SendToAll(const char* text) {
  Output& output = Output::Get();
  const WatcherTable* const table = output.Table();
  if (table == nullptr) return;
  for (int slot = 0; slot < kSlots; ++slot) {
    if (table->processes[slot].load(std::memory_order_relaxed) != 0) output.Send(slot, text, strlen(text));
  }
}

bool ClaimSlot(WatcherTable& table, int slot) {
  const auto self = static_cast<uint32_t>(getpid());
  uint32_t holder = table.processes[slot].load();
  const bool gone = holder == 0 || (kill(static_cast<pid_t>(holder), 0) != 0 && errno == ESRCH);
  return gone && table.processes[slot].compare_exchange_strong(holder, self);
}

}  // namespace

std::mutex& DebugOutputLock() noexcept {
  return Output::Get().Lock();
}

DebugWatch::DebugWatch() {
  Output& output = Output::Get();
  WatcherTable* const table = output.Table();
  if (table == nullptr || !output.IsWritable()) return;
  for (int slot = 0; slot < kSlots && mSlot < 0; ++slot) {
    if (ClaimSlot(*table, slot)) mSlot = slot;
  }
  if (mSlot < 0) return;
  mSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = output.AddressOf(mSlot);
  unlink(address.sun_path);
  if (mSocket >= 0 && bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
    chmod(address.sun_path, MachineMode(0622));
    return;
  }
  if (mSocket >= 0) close(mSocket);
  mSocket = -1;
  table->processes[mSlot].store(0);
  mSlot = -1;
}

DebugWatch::~DebugWatch() {
  if (mSlot < 0) return;
  Output& output = Output::Get();
  std::atomic<uint32_t>& process = output.Table()->processes[mSlot];
  // A child made by fork has a copy of a watch that stays its parent's.
  if (process.load() == static_cast<uint32_t>(getpid())) {
    unlink(output.AddressOf(mSlot).sun_path);  // first: whoever has the slot next has a socket of that name
    process.store(0);
  }
  close(mSocket);
}

bool DebugWatch::Read(DebugRecord& record, DWORD milliseconds) {
  if (mSocket < 0) return false;
  const Deadline deadline(milliseconds);
  pollfd ready{mSocket, POLLIN, 0};
  int count;
  do {
    const int64_t left = deadline.Remaining();
    count = poll(&ready, 1, left > INT_MAX ? INT_MAX : static_cast<int>(left));
  } while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  record.processId = 0;
  record.text.resize(kLongestText);
  iovec parts[] = {{&record.processId, sizeof(record.processId)}, {record.text.data(), record.text.size()}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  const ssize_t got = recvmsg(mSocket, &message, MSG_DONTWAIT);
  const auto header = static_cast<ssize_t>(sizeof(record.processId));
  record.text.resize(got > header ? static_cast<size_t>(got - header) : 0);
  return got >= header;
}

}  // namespace orm::platform

using namespace orm::platform;

void OutputDebugStringA(const char* text) noexcept {
  if (text == nullptr) return;
  const int savedErrno = errno;
  try {
    SendToAll(text);
  } catch (const std::bad_alloc&) {
    // The first text needs memory to find the table; without it the text is dropped, as without a watcher.
  }
  errno = savedErrno;
}
