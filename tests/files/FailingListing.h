// Folders that cannot be read to their end.
#pragma once

namespace filestest {

// While it lives, reading a folder gives `entries` entries and then fails with `error`, an errno value.
class FailingListing {
 public:
  FailingListing(int entries, int error);
  ~FailingListing();
  FailingListing(const FailingListing&) = delete;
  FailingListing& operator=(const FailingListing&) = delete;
};

}  // namespace filestest
