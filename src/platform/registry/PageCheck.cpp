// Checks a store's file. The format is that of LMDB 0.9 (lmdb.h and its documentation): pages of 4096 bytes,
// two heads, a tree of free pages and a tree of records, in the byte order of the machine.
#include "registry/PageCheck.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "kernel/Errno.h"
#include "win32/errors.h"

namespace orm::platform {
namespace {

constexpr std::size_t pageSize = 4096;
constexpr std::size_t pageHeader = 16;
constexpr std::size_t nodeHeader = 8;
constexpr std::size_t maxKey = 511;
constexpr unsigned maxDepth = 32;
constexpr std::uint64_t noPage = ~std::uint64_t{0};
constexpr std::uint64_t largestMap = std::uint64_t{1} << 40;

constexpr unsigned pageBranch = 1, pageLeaf = 2, pageOverflow = 4, pageHead = 8;
constexpr unsigned nodeBig = 1;  // the data lie on pages of their own
constexpr std::uint16_t treeOfNumbers = 8;

struct Tree {
  std::uint32_t pad;
  std::uint16_t flags;
  std::uint16_t depth;
  std::uint64_t branchPages, leafPages, overflowPages, entries;
  std::uint64_t root;
};

struct Head {
  std::uint32_t magic, version;
  std::uint64_t address, mapSize;
  Tree free, main;
  std::uint64_t lastPage, txnId;
};

template <class T>
T Load(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

bool IsTreeSound(const Tree& tree, std::uint64_t pages) {
  const bool isEmpty = tree.root == noPage;
  return isEmpty ? tree.depth == 0 : tree.root < pages && tree.depth >= 1 && tree.depth <= maxDepth;
}

bool IsHeadSound(const unsigned char* page, std::uint64_t pages) {
  const Head head = Load<Head>(page + pageHeader);
  return (Load<std::uint16_t>(page + 10) & pageHead) != 0 && head.magic == 0xBEEFC0DE && head.version == 1 &&
         head.free.pad == pageSize && (head.free.flags & 0x7FFF) == treeOfNumbers &&
         (head.main.flags & 0x7FFF) == 0 && head.mapSize <= largestMap &&
         head.lastPage < largestMap / pageSize && IsTreeSound(head.free, pages) &&
         IsTreeSound(head.main, pages);
}

// The walk over one snapshot. Every page may be reached once only, which also ends loops. Pages at the end of
// a store that were taken and given back in one transaction were never written: free pages may lie beyond the
// end of the file, used ones may not.
class Walk {
 public:
  Walk(const unsigned char* file, std::uint64_t pages, std::uint64_t lastPage)
      : mFile(file), mPages(std::min(pages, lastPage + 1)), mLastPage(lastPage), mSeen(mPages) {}

  bool Run(const Head& head) { return RunTree(head.main, false) && RunTree(head.free, true) && ClaimFree(); }

  [[nodiscard]] std::string Fault() const { return "page " + std::to_string(mPage) + ": " + mFault; }

 private:
  bool Fail(std::uint64_t page, const char* text) {
    mPage = page;
    mFault = text;
    return false;
  }

  bool RunTree(const Tree& tree, bool isFreeTree) {
    mLastKey = {};
    mMayRepeat = true;
    return tree.root == noPage || Follow(tree.root, tree.depth, isFreeTree);
  }

  bool Claim(std::uint64_t first, std::uint64_t count) {
    if (first < 2 || first >= mPages || count > mPages - first) return Fail(first, "outside the file");
    for (std::uint64_t page = first; page < first + count; ++page) {
      if (mSeen[page]) return Fail(page, "used twice");
      mSeen[page] = true;
    }
    return true;
  }

  bool Follow(std::uint64_t number, unsigned depth, bool isFreeTree) {
    if (!Claim(number, 1)) return false;
    const unsigned char* page = mFile + number * pageSize;
    const unsigned flags = Load<std::uint16_t>(page + 10);
    const std::size_t lower = Load<std::uint16_t>(page + 12);
    const std::size_t upper = Load<std::uint16_t>(page + 14);
    if (Load<std::uint64_t>(page) != number) return Fail(number, "carries another number");
    if (flags != (depth > 1 ? pageBranch : pageLeaf)) return Fail(number, "is of the wrong kind");
    if (lower < pageHeader || lower > upper || upper > pageSize || lower % 2 != 0) {
      return Fail(number, "has no sound bounds");
    }
    const std::size_t count = (lower - pageHeader) / 2;
    if (count < (depth > 1 ? 2u : 1u)) return Fail(number, "has too few entries");
    if (!AreNodesApart(page, number, count, upper, depth > 1)) return false;
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned char* node = page + Load<std::uint16_t>(page + pageHeader + 2 * i);
      // The first key of a branch is not looked at by anybody.
      if ((depth == 1 || i > 0) && !TakeKey(node, depth > 1, isFreeTree)) {
        return Fail(number, "has keys out of order");
      }
      if (depth > 1 ? !Follow(ChildOf(node), depth - 1, isFreeTree)
                    : !CheckLeafNode(number, node, isFreeTree)) {
        return false;
      }
    }
    return true;
  }

  // Whether the key of a node stands behind those before it. A search that is led astray by the order finds a
  // record again that it has passed, and listing them would never end. A branch has the least key that its
  // child may begin with.
  bool TakeKey(const unsigned char* node, bool isBranch, bool isFreeTree) {
    const std::string_view key(reinterpret_cast<const char*>(node + nodeHeader),
                               Load<std::uint16_t>(node + 6));
    if (isFreeTree && key.size() != sizeof(std::uint64_t)) return false;
    const int order = mLastKey.empty() ? 1
                      : isFreeTree     ? CompareNumbers(key, mLastKey)
                                       : key.compare(mLastKey);
    if (order < 0 || (order == 0 && !mMayRepeat)) return false;
    mLastKey = key;
    mMayRepeat = isBranch;
    return true;
  }

  static int CompareNumbers(std::string_view left, std::string_view right) {
    const auto a = Load<std::uint64_t>(reinterpret_cast<const unsigned char*>(left.data()));
    const auto b = Load<std::uint64_t>(reinterpret_cast<const unsigned char*>(right.data()));
    return a < b ? -1 : a > b ? 1 : 0;
  }

  static std::uint64_t ChildOf(const unsigned char* node) {
    return Load<std::uint16_t>(node) | std::uint64_t{Load<std::uint16_t>(node + 2)} << 16 |
           std::uint64_t{Load<std::uint16_t>(node + 4)} << 32;
  }

  // Bytes of a node within its page; more than a page when it is not sound.
  static std::size_t NodeSize(const unsigned char* node, bool isBranch) {
    const std::size_t key = Load<std::uint16_t>(node + 6);
    if (key > maxKey) return pageSize + 1;
    if (isBranch) return (nodeHeader + key + 1) & ~std::size_t{1};
    const bool isBig = Load<std::uint16_t>(node + 4) == nodeBig;
    const std::size_t data = isBig ? sizeof(std::uint64_t) : Load<std::uint32_t>(node);
    return data > pageSize ? pageSize + 1 : (nodeHeader + key + data + 1) & ~std::size_t{1};
  }

  bool AreNodesApart(const unsigned char* page, std::uint64_t number, std::size_t count, std::size_t upper,
                     bool isBranch) {
    std::array<std::uint16_t, pageSize / 2> offsets;
    std::memcpy(offsets.data(), page + pageHeader, count * 2);
    std::sort(offsets.begin(), offsets.begin() + static_cast<std::ptrdiff_t>(count));
    std::size_t end = upper;
    for (std::size_t i = 0; i < count; ++i) {
      const std::size_t offset = offsets[i];
      if (offset < end || offset % 2 != 0 || offset + nodeHeader > pageSize) {
        return Fail(number, "has overlapping entries");
      }
      end = offset + NodeSize(page + offset, isBranch);
      if (end > pageSize) return Fail(number, "has an entry beyond its end");
    }
    return true;
  }

  bool CheckLeafNode(std::uint64_t number, const unsigned char* node, bool isFreeTree) {
    const std::size_t keySize = Load<std::uint16_t>(node + 6);
    const unsigned flags = Load<std::uint16_t>(node + 4);
    const std::uint64_t size = Load<std::uint32_t>(node);
    const unsigned char* data = node + nodeHeader + keySize;
    if (keySize == 0 || (flags & ~nodeBig) != 0) return Fail(number, "has an entry of an unknown kind");
    if (flags == nodeBig) {
      const auto first = Load<std::uint64_t>(data);
      if (first < 2 || first >= mPages) return Fail(number, "refers to a page outside the file");
      const unsigned char* overflow = mFile + first * pageSize;
      const std::uint64_t count = Load<std::uint32_t>(overflow + 12);
      if (Load<std::uint64_t>(overflow) != first || Load<std::uint16_t>(overflow + 10) != pageOverflow ||
          count * pageSize < size + pageHeader) {
        return Fail(first, "does not hold the data that are said to be there");
      }
      if (!Claim(first, count)) return false;
      data = overflow + pageHeader;
    }
    return !isFreeTree || CheckFreeList(number, data, keySize, size);
  }

  // A list of page numbers, falling, with their count in front.
  bool CheckFreeList(std::uint64_t number, const unsigned char* data, std::size_t keySize,
                     std::uint64_t size) {
    if (keySize != 8 || size < 8) return Fail(number, "has an unsound list of free pages");
    const auto count = Load<std::uint64_t>(data);
    if (count > size / 8 - 1) return Fail(number, "has a list of free pages that is too long");
    std::uint64_t last = mLastPage + 1;
    for (std::uint64_t i = 1; i <= count; ++i) {
      const auto page = Load<std::uint64_t>(data + 8 * i);
      if (page < 2 || page >= last) return Fail(number, "lists free pages out of order");
      mFree.push_back(page);
      last = page;
    }
    return true;
  }

  bool ClaimFree() {
    std::sort(mFree.begin(), mFree.end());
    for (std::size_t i = 0; i < mFree.size(); ++i) {
      const std::uint64_t page = mFree[i];
      if (i > 0 && page == mFree[i - 1]) return Fail(page, "is listed as free twice");
      if (page < mPages && mSeen[page]) return Fail(page, "is in use and listed as free");
    }
    return true;
  }

  const unsigned char* mFile;
  std::uint64_t mPages;
  std::uint64_t mLastPage;
  std::vector<bool> mSeen;
  std::vector<std::uint64_t> mFree;
  std::string_view mLastKey;  // in the file, of the tree that is walked
  bool mMayRepeat = true;     // the last key was a branch's
  std::uint64_t mPage = 0;
  const char* mFault = "is no sound head";
};

// The file from its beginning, for a walk: read when it is small, which costs less than mapping it, unmapping
// it and touching each page. Empty, with errno, when it cannot be had.
class Content {
 public:
  Content(int file, std::size_t size) : mSize(size) {
    if (size <= smallSize) {
      mRead = std::make_unique_for_overwrite<unsigned char[]>(size);
      const ssize_t read = pread(file, mRead.get(), size, 0);
      if (read == static_cast<ssize_t>(size)) mStart = mRead.get();
    } else if (void* view = mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0); view != MAP_FAILED) {
      mStart = static_cast<const unsigned char*>(view);
    }
  }
  ~Content() {
    if (mStart != nullptr && mSize > smallSize) munmap(const_cast<unsigned char*>(mStart), mSize);
  }
  Content(const Content&) = delete;
  Content& operator=(const Content&) = delete;

  [[nodiscard]] const unsigned char* Start() const { return mStart; }

 private:
  static constexpr std::size_t smallSize = 64 * 1024;

  const std::size_t mSize;
  std::unique_ptr<unsigned char[]> mRead;
  const unsigned char* mStart = nullptr;
};

// A process that lacks descriptors or memory has not found a damaged store.
DWORD ErrorOfLooking() {
  const int error = errno;
  return error == EMFILE || error == ENFILE || error == ENOMEM ? ErrorFromErrno(error) : ERROR_BADDB;
}

DWORD CheckPages(int file, std::uint64_t txnId, std::string* fault) {
  errno = 0;
  // LMDB writes the heads in turn: the second commit from now overwrites this one.
  alignas(8) std::array<unsigned char, pageSize> page{}, again{};
  const auto offset = static_cast<off_t>((txnId & 1) * pageSize);
  const bool isRead = pread(file, page.data(), pageSize, offset) == static_cast<ssize_t>(pageSize) &&
                      pread(file, again.data(), pageSize, offset) == static_cast<ssize_t>(pageSize);
  if (!isRead) return ErrorOfLooking();
  const Head head = Load<Head>(page.data() + pageHeader);
  if (page != again || head.txnId != txnId) return ERROR_BUSY;
  struct stat status {};
  if (fstat(file, &status) != 0 || status.st_size <= 0) return ErrorOfLooking();
  const Content content(file, static_cast<std::size_t>(status.st_size));
  if (content.Start() == nullptr) return ErrorOfLooking();
  const std::uint64_t pages = static_cast<std::uint64_t>(status.st_size) / pageSize;
  const bool isSound = IsHeadSound(page.data(), pages);
  Walk walk(content.Start(), pages, isSound ? head.lastPage : 0);
  const bool result = isSound && walk.Run(head);
  if (!result && fault != nullptr) *fault = walk.Fault();
  return result ? ERROR_SUCCESS : ERROR_BADDB;
}

}  // namespace

DWORD CheckHead(int file) {
  struct stat before {};
  if (fstat(file, &before) != 0) return ERROR_BADDB;
  if (before.st_size == 0) return ERROR_SUCCESS;
  alignas(8) std::array<unsigned char, 2 * pageSize> heads{};
  if (pread(file, heads.data(), heads.size(), 0) != static_cast<ssize_t>(heads.size())) return ERROR_BADDB;
  // The size afterwards: a writer may be at work, and the file grows before its head tells of it.
  struct stat status {};
  if (fstat(file, &status) != 0) return ERROR_BADDB;
  const std::uint64_t pages = static_cast<std::uint64_t>(status.st_size) / pageSize;
  const bool sound = IsHeadSound(heads.data(), pages) && IsHeadSound(heads.data() + pageSize, pages);
  return sound ? ERROR_SUCCESS : ERROR_BADDB;
}

DWORD CheckPages(const std::string& path, std::uint64_t txnId, std::string* fault) {
  const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0) return ErrorOfLooking();
  DWORD error = ERROR_NOT_ENOUGH_MEMORY;
  try {
    error = CheckPages(file, txnId, fault);
  } catch (const std::bad_alloc&) {  // a process that lacks memory has not found a damaged store
  }
  close(file);
  return error;
}

}  // namespace orm::platform
