// The mark belongs to one thread and lasts until the last guard is gone.
#include "veldra/platform/event_loop.h"

#include <gtest/gtest.h>

#include <future>

#include "veldra/storage/database_internal.h"

namespace veldra {
namespace {

TEST(EventLoopScopeTest, MarksItsThreadAloneUntilTheLastGuardIsGone) {
  EXPECT_FALSE(_on_event_loop());
  {
    const EventLoopScope outer;
    {
      const EventLoopScope inner;
      EXPECT_TRUE(_on_event_loop());
    }
    EXPECT_TRUE(_on_event_loop()) << "an inner guard took the mark away";
    EXPECT_FALSE(std::async(std::launch::async, _on_event_loop).get())
        << "another thread was marked too";
  }
  EXPECT_FALSE(_on_event_loop()) << "the mark outlived its guard";
}

}  // namespace
}  // namespace veldra
