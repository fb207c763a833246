// Memory that runs out when a test wants it.
#pragma once

namespace test {

// While it exists, the at-th allocation by the calling thread's operator new (1 is the next one) fails, in
// this program and in the libraries that it is linked to. One at a time.
class FailingNew {
 public:
  explicit FailingNew(unsigned at);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  // Whether it has come to that.
  bool HasFailed() const;
};

}  // namespace test
