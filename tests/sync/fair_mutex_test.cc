// The mutex is reentrant, and who waits gets it in the order of arrival.
#include "veldra/sync/fair_mutex.h"

#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "support/finished.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;

bool another_thread_gets(FairMutex& mutex) {
  return std::async(std::launch::async,
                    [&] {
                      if (!mutex.try_lock()) return false;
                      mutex.unlock();
                      return true;
                    })
      .get();
}

TEST(FairMutexTest, IsFreeWhenEveryAcquisitionOfItsThreadIsReleased) {
  FairMutex mutex;
  mutex.lock();
  mutex.lock();
  EXPECT_TRUE(mutex.try_lock()) << "its own thread was kept out";
  for (int held = 3; held > 0; --held) {
    EXPECT_TRUE(mutex.held_by_this_thread());
    EXPECT_FALSE(another_thread_gets(mutex)) << "given away while held " << held << " times";
    mutex.unlock();
  }
  EXPECT_FALSE(mutex.held_by_this_thread());
  EXPECT_TRUE(another_thread_gets(mutex));
  EXPECT_TRUE(mutex.try_lock()) << "lost after another thread had it";
  mutex.unlock();
}

TEST(FairMutexTest, ServesItsWaitersInTheOrderOfTheirArrival) {
  // this thread   waiter 0   waiter 1   waiter 2
  // lock twice
  //               lock()
  //                          lock()
  //                                     lock()
  // unlock
  // unlock
  //               runs       runs       runs
  // lock()  <- behind all of them
  FairMutex mutex;
  std::vector<int> order;  // guarded by the mutex
  std::vector<std::future<void>> waiters;
  mutex.lock();
  mutex.lock();
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(std::async(std::launch::async, [&, i] {
      const std::lock_guard guard(mutex);
      order.push_back(i);
    }));
    // Nothing shows that a thread waits, so it gets time to arrive.
    ASSERT_FALSE(finished(waiters.back(), 50ms)) << "two threads held the mutex";
  }
  mutex.unlock();
  EXPECT_FALSE(finished(waiters[0], 50ms)) << "released by the first of two unlocks";
  mutex.unlock();
  mutex.lock();
  order.push_back(3);
  mutex.unlock();
  for (std::future<void>& waiter : waiters) EXPECT_TRUE(finished(waiter));
  EXPECT_EQ(order, (std::vector{0, 1, 2, 3})) << "a waiter was overtaken";
}

}  // namespace
}  // namespace veldra
