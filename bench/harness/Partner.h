// Other processes that do a row's work at the same time.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "support/Child.h"

namespace bench {

// Processes of this program that serve a kind of work (see RunTracePartner), from construction on.
class Partners {
 public:
  Partners(const std::string& kind, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      mChildren.push_back(
          std::make_unique<test::Child>(std::vector<std::string>{"/proc/self/exe", "--partner", kind}));
    }
  }

  // All work n times, this process too; returns when the last is done.
  void Run(size_t n, const Operation& work) {
    for (const auto& child : mChildren) child->WriteLine(std::to_string(n));
    work(n);
    for (const auto& child : mChildren) child->ReadLine();
  }
  // The n operations are shared out among all.
  void Share(size_t n, const Operation& work) { Run((n + mChildren.size()) / (mChildren.size() + 1), work); }

 private:
  std::vector<std::unique_ptr<test::Child>> mChildren;
};

// The partner's side: works for each count that comes, until the input ends.
inline void Serve(const Operation& work) {
  size_t n = 0;
  while (std::scanf("%zu", &n) == 1) {
    work(n);
    std::puts("done");
    std::fflush(stdout);
  }
}

}  // namespace bench
