// The mutex is reentrant, and who waits gets it in the order of arrival.
#include "veldra/sync/fair_mutex.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

#include "support/finished.h"

namespace veldra {

TEST(FairMutexTest, ServesItsWaitersInTheOrderOfTheirArrivalOnceItIsReleasedAsOftenAsTaken) {
  // this thread   waiter 0   waiter 1   waiter 2
  // lock twice
  //               lock()
  //                          lock()
  //                                     lock()
  // unlock
  // unlock
  //               runs       runs       runs
  // lock()  <- behind all of them
  constexpr std::chrono::milliseconds A_WHILE(50);
  FairMutex mutex;
  std::vector<int> order;  // guarded by the mutex
  std::vector<std::future<void>> waiters;
  mutex.lock();
  EXPECT_TRUE(mutex.try_lock()) << "its own thread was kept out";
  EXPECT_FALSE(std::async(std::launch::async, [&] { return mutex.try_lock(); }).get());
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(std::async(std::launch::async, [&, i] {
      const std::lock_guard guard(mutex);
      order.push_back(i);
    }));
    // Nothing shows that a thread waits, so it gets time to arrive.
    ASSERT_FALSE(finished(waiters.back(), A_WHILE)) << "two threads held the mutex";
  }
  mutex.unlock();
  EXPECT_FALSE(finished(waiters[0], A_WHILE)) << "released by the first of two unlocks";
  mutex.unlock();
  mutex.lock();
  order.push_back(3);
  mutex.unlock();
  EXPECT_FALSE(mutex.held_by_this_thread());
  for (std::future<void>& waiter : waiters) EXPECT_TRUE(finished(waiter));
  EXPECT_EQ(order, (std::vector{0, 1, 2, 3})) << "a waiter was overtaken";
}

TEST(FairMutexTest, AThreadThatIsCancelledWhileItWaitsLeavesTheLine) {
  FairMutex mutex;
  mutex.lock();
  std::atomic<int> served = 0;
  const auto wait_for_it = [&] {
    const std::lock_guard guard(mutex);
    ++served;
  };
  std::thread cancelled(wait_for_it);
  auto next = std::async(std::launch::async, wait_for_it);
  EXPECT_FALSE(finished(next, std::chrono::milliseconds(50)));
  pthread_cancel(cancelled.native_handle());
  cancelled.join();
  mutex.unlock();
  EXPECT_TRUE(finished(next)) << "the turn went to a thread that is gone";
  EXPECT_EQ(served, 1);
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
}

}  // namespace veldra
