// A flag that is set for a scope.
#pragma once

#include <utility>

namespace orm {

// Marks what calls components while it lasts, since those may call back; ends as it was before.
class Running {
 public:
  explicit Running(bool& rFlag) : mrFlag(rFlag), mFormer(std::exchange(rFlag, true)) {}
  ~Running() { mrFlag = mFormer; }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  bool& mrFlag;
  const bool mFormer;
};

}  // namespace orm
