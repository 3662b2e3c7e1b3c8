// The mark belongs to one thread and lasts until the last guard is gone.
#include "veldra/platform/event_loop.h"

#include <gtest/gtest.h>

#include <future>
#include <optional>

#include "veldra/storage/database_internal.h"

namespace veldra {

TEST(EventLoopScopeTest, MarksItsThreadAloneUntilTheLastGuardIsGone) {
  std::optional<EventLoopScope> outer(std::in_place);
  { const EventLoopScope inner; }
  EXPECT_TRUE(_on_event_loop()) << "an inner guard took the mark away";
  EXPECT_FALSE(std::async(std::launch::async, _on_event_loop).get()) << "another thread was marked";
  outer.reset();
  EXPECT_FALSE(_on_event_loop()) << "the mark outlived its guard";
}

}  // namespace veldra
