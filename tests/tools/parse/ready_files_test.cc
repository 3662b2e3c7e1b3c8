// How files are divided among the threads, and how they come back.
#include "veldra-index/parse/ready_files.h"

#include <gtest/gtest.h>

#include <future>

#include "support/finished.h"
#include "veldra-index/parse/batches.h"

namespace veldra::tool {
namespace {

TEST(BatchesTest, AreLargeFirstAndFitOnACommandLine) {
  constexpr std::int64_t KIB = 1024;
  struct Case {
    std::size_t files;
    std::int64_t size;
    std::size_t path_length;
    int jobs;
    std::size_t first, last;  // how many files these batches have
  };
  const Case cases[] = {{1, 100'000 * KIB, 9, 2, 1, 1}, {10, 1, 9, 4, 10, 10},
                        {1000, 64 * KIB, 9, 1, 64, 2},  {1000, 64 * KIB, 9, 16, 32, 2},
                        {1000, 0, 1000, 1, 66, 10},     {0, 0, 1, 1, 0, 0}};
  for (const auto& [count, size, path_length, jobs, first, last] : cases) {
    const std::vector<PassFile> files(count, {{std::string(path_length, 'p'), size, 0}, {}});
    const auto batches = make_batches(files, jobs);
    const PassFile* next = files.data();
    for (const auto& batch : batches) {
      ASSERT_FALSE(batch.empty());
      EXPECT_EQ(batch.data(), next) << "a file was left out or came twice";
      next += batch.size();
    }
    EXPECT_EQ(next, files.data() + files.size());
    EXPECT_EQ(batches.empty() ? 0 : batches.front().size(), first);
    EXPECT_EQ(batches.empty() ? 0 : batches.back().size(), last);
  }
}

std::unique_ptr<ParsedFile> file_of(std::size_t bytes) {
  auto file = std::make_unique<ParsedFile>();
  file->tags.resize(bytes);
  return file;
}

TEST(ReadyFilesTest, HoldsProducersBackUntilThereIsRoomOrNobodyWantsMore) {
  using namespace std::chrono_literals;
  ReadyFiles ready(2);
  std::future<bool> waiter;
  EXPECT_TRUE(ready.put(file_of(ReadyFiles::READY_BYTES)));
  waiter = std::async(std::launch::async, [&] { return ready.put(file_of(1)); });
  EXPECT_FALSE(finished(waiter, 50ms)) << "more was taken than there is room for";
  EXPECT_NE(ready.take(), nullptr);
  ASSERT_TRUE(finished(waiter));
  EXPECT_TRUE(waiter.get());
  ready.producer_done(nullptr);
  ready.producer_done(nullptr);
  EXPECT_NE(ready.take(), nullptr) << "what is ready is lost when its producer is done";
  EXPECT_EQ(ready.take(), nullptr);

  EXPECT_TRUE(ready.put(file_of(ReadyFiles::READY_BYTES)));
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
