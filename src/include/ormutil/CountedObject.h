// A copy-on-write holder of counted data.
#pragma once

#include <ormutil/AtomicCounter.h>

#include <utility>

namespace orm {

// Holds a pointer to a heap record shared by all copies of the holder; null while there is no record. `Data`
// is default and copy constructible. Different holders of one record may be used by different threads; one
// holder is for one thread at a time. A record with more than one holder is never written.
template <class Data>
class CountedObject {
 public:
  CountedObject() = default;
  CountedObject(const CountedObject& other) : mpData(other.mpData) {
    if (mpData) ++mpData->counter;
  }
  CountedObject(CountedObject&& other) noexcept : mpData(std::exchange(other.mpData, nullptr)) {}
  CountedObject& operator=(CountedObject other) noexcept {
    std::swap(mpData, other.mpData);
    return *this;
  }
  ~CountedObject() { Release(); }

  bool IsNull() const { return mpData == nullptr; }

  // Read access; asserts that there is a record.
  const Data* operator->() const { return &Get(); }
  const Data& operator*() const { return Get(); }

  // Gives this holder a record of its own, a new default one when it had none and a copy when it was shared,
  // and yields it for writing.
  Data& MakeWritable() {
    if (!mpData) {
      mpData = new Record();
    } else if (mpData->counter != 1) {
      auto* copy = new Record(mpData->data);
      Release();
      mpData = copy;
    }
    ORM_ASSERT(mpData != nullptr, "mpData != 0", "src/include/CountedObject", 557);
    return mpData->data;
  }

  // Drops this holder's share of the record and becomes null.
  void Release() {
    if (auto* record = std::exchange(mpData, nullptr); record && --record->counter == 0) delete record;
  }

 private:
  struct Record {
    Record() = default;
    explicit Record(const Data& other) : data(other) {}
    Data data{};
    AtomicCounter counter{1};
  };

  const Data& Get() const {
    ORM_ASSERT(mpData != nullptr, "mpData != 0", "src/include/CountedObject", 530);
    return mpData->data;
  }

  Record* mpData = nullptr;
};

}  // namespace orm
