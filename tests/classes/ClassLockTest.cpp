// The class manager's lock over a fork.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "ClassLock.h"
#include "support/Forked.h"

namespace {

// The parent's thread never gives its share back in the child.
TEST(ManagerLock, AChildIsAloneWithItOnceItForgetsTheSharers) {
  orm::ManagerLock lock;
  std::promise<void> sharing, forked;
  std::thread other([&] {
    const orm::SharedClassLock share(lock);
    sharing.set_value();
    forked.get_future().wait();
  });
  sharing.get_future().wait();
  EXPECT_TRUE(test::ForkSome(1, [&lock] {
    lock.ForgetSharers();
    const orm::ClassLock alone(lock);
  }));
  forked.set_value();
  other.join();
}

}  // namespace
