// How parsed files come back from the threads.
#include "veldra-index/parse/ready_files.h"

#include <gtest/gtest.h>

#include <future>

#include "support/finished.h"

namespace veldra::tool {
namespace {

std::unique_ptr<ParsedFile> file_of(std::size_t bytes) {
  auto file = std::make_unique<ParsedFile>();
  file->tags.resize(bytes);
  return file;
}

TEST(ReadyFilesTest, HoldsProducersBackUntilThereIsRoomOrNobodyWantsMore) {
  using namespace std::chrono_literals;
  ReadyFiles ready(2);
  std::future<bool> waiter;
  EXPECT_TRUE(ready.put(file_of(ReadyFiles::READY_BYTES - 1024)));
  waiter = std::async(std::launch::async, [&] { return ready.put(file_of(1)); });
  EXPECT_FALSE(finished(waiter, 50ms)) << "more was taken than there is room for";
  EXPECT_NE(ready.take(), nullptr);
  ASSERT_TRUE(finished(waiter));
  EXPECT_TRUE(waiter.get());
  ready.producer_done(nullptr);
  ready.producer_done(nullptr);
  EXPECT_NE(ready.take(), nullptr) << "what is ready is lost when its producer is done";
  EXPECT_EQ(ready.take(), nullptr);

  EXPECT_TRUE(ready.put(file_of(ReadyFiles::READY_BYTES - 1024)));
  waiter = std::async(std::launch::async, [&] { return ready.put(file_of(1)); });
  EXPECT_FALSE(ready.stopped());
  ready.stop();
  ASSERT_TRUE(finished(waiter)) << "a producer waits for a consumer that is gone";
  EXPECT_FALSE(waiter.get());
  ready.producer_done(std::make_exception_ptr(std::runtime_error("first")));
  ready.producer_done(std::make_exception_ptr(std::logic_error("second")));
  EXPECT_THROW((void)ready.take(), std::runtime_error);
}

}  // namespace
}  // namespace veldra::tool
