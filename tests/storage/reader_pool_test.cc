// Read connections are lent to one query at a time, and closing waits for the loans.
#include "veldra/storage/reader_pool.h"

#include <sqlite3.h>

#include "support/database_test.h"

namespace veldra {
namespace {

class ReaderPoolTest : public ::testing::Test {
 protected:
  ReaderPoolTest() {
    writer.execute("PRAGMA journal_mode=WAL");
    writer.execute("CREATE TABLE t AS SELECT 1 AS i");
  }

  TempDirectory directory;
  std::filesystem::path path = directory / "index.db";
  Connection writer{path};
  int configured = 0;
  ReaderPool::Configure count = [this](Connection&) { ++configured; };
};

TEST_F(ReaderPoolTest, OpensWhatIsNeededAndLendsTheLastReturnedFirst) {
  ReaderPool pool(path, 3, count);
  EXPECT_EQ(configured, 0) << "a connection was opened before its need";
  std::optional<ReaderPool::Lease> first(pool.lease());
  std::optional<ReaderPool::Lease> second(pool.lease());
  const Connection* const last_returned = &**first;
  second.reset();
  first.reset();
  EXPECT_EQ(&*pool.lease(), last_returned);
  ReaderPool::Lease moved = pool.lease();
  const ReaderPool::Lease third(std::move(moved));
  EXPECT_EQ(configured, 2) << "opened although one was idle";
  EXPECT_EQ(third->execute("SELECT I FROM t").fetchone().value()["i"].as_integer(), 1);
  EXPECT_THAT([&] { third->execute("INSERT INTO t VALUES (2)"); },
              ThrowsMessage<OperationalError>("attempt to write a readonly database"));
}

TEST_F(ReaderPoolTest, ClosesThoseThatWereNotLentForAWhileButOneAndNoneThatIsLent) {
  for (const auto& [idle_time, kept] : {std::pair(0ms, 1), std::pair(1h + 0ms, 3)}) {
    ReaderPool pool(path, 3, count, idle_time);
    {
      const ReaderPool::Lease first = pool.lease();
      const ReaderPool::Lease second = pool.lease();
      { const ReaderPool::Lease third = pool.lease(); }
      pool.give_back_memory();
      EXPECT_EQ(pool.use().open, 3);
    }
    EXPECT_EQ(pool.use().open, kept);
    pool.give_back_memory();
    EXPECT_EQ(pool.use().open, 1);
    EXPECT_EQ(pool.use().lent, 0);
    EXPECT_NO_THROW((void)pool.lease());
  }
}

TEST_F(ReaderPoolTest, AWaitingThreadIsServedUntilCloseRefusesItAndOutlastsTheLoan) {
  // this thread     waiter           closer
  // lease()
  //                 lease() waits
  // gives back
  //                 served
  // lease()
  //                 lease() waits
  //                                  close() waits
  //                 refused
  // gives back
  //                                  returns
  ReaderPool pool(path, 1, count);
  std::future<void> waiter, closer;
  std::optional<ReaderPool::Lease> loan(
      pool.lease());  // declared last: a failure lets the others go

  const auto lease = [&] { (void)pool.lease(30s); };
  waiter = std::async(std::launch::async, lease);
  ASSERT_FALSE(finished(waiter, 50ms)) << "the one connection was lent twice";
  loan.reset();
  ASSERT_TRUE(finished(waiter)) << "nobody woke the waiting thread";
  EXPECT_NO_THROW(waiter.get());
  loan.emplace(pool.lease(0ms));

  // A wait for what must not happen can miss a fault, never invent one, so it may be short.
  waiter = std::async(std::launch::async, lease);
  ASSERT_FALSE(finished(waiter, 50ms)) << "the one connection was lent twice";
  closer = std::async(std::launch::async, [&] { pool.close(); });

  ASSERT_TRUE(finished(waiter)) << "close() left a thread waiting for a connection";
  EXPECT_THROW(waiter.get(), ReaderUnavailable);
  EXPECT_FALSE(finished(closer, 50ms)) << "close() returned while a connection was lent";

  loan.reset();
  EXPECT_TRUE(finished(closer)) << "close() did not notice that the loan came back";
  EXPECT_THROW((void)pool.lease(), ReaderUnavailable) << "a closed pool lent a connection";
}

TEST_F(ReaderPoolTest, WhoCameFirstIsServedFirstAndNobodyPassesThoseWhoWait) {
  // this thread   waiter 0   waiter 1    waiter 2
  // lease()
  //               waits      waits       waits
  //                          gives up
  // gives back
  // lease()  <- behind both
  //               served                 served
  ReaderPool pool(path, 1, count);
  std::vector<int> order;  // guarded by the one connection
  std::vector<std::future<void>> waiters;
  std::optional<ReaderPool::Lease> loan(pool.lease());
  for (int i = 0; i < 3; ++i) {
    waiters.push_back(std::async(std::launch::async, [&, i] {
      const ReaderPool::Lease lease = pool.lease(i == 1 ? 120ms : 30s);
      order.push_back(i);
    }));
    ASSERT_FALSE(finished(waiters.back(), 50ms)) << "the one connection was lent twice";
  }
  EXPECT_THROW(waiters[1].get(), ReaderUnavailable);
  loan.reset();
  loan.emplace(pool.lease(30s));
  EXPECT_EQ(order, (std::vector{0, 2}));
  for (const int i : {0, 2}) EXPECT_TRUE(finished(waiters[static_cast<std::size_t>(i)]));
}

TEST_F(ReaderPoolTest, AConnectionThatMetDamageIsNotLentAgain) {
  const std::filesystem::path damaged = directory / "damaged.db";
  Connection(damaged).execute("CREATE TABLE t AS SELECT randomblob(100000) AS i");
  std::filesystem::resize_file(damaged, 3 * 4096);
  ReaderPool pool(damaged, 1, count);
  for (int i = 0; i < 2; ++i)
    EXPECT_THROW(pool.lease(0ms)->execute("SELECT i FROM t").fetchall(), Error);
  EXPECT_EQ(configured, 2) << "a connection that met a corrupt page was lent again";
}

TEST_F(ReaderPoolTest, EveryThreadThatClosesWaitsUntilAllIsClosed) {
  // The last connection of all deletes the log: who closes the writer after the pool relies on it.
  const auto at_close = [](unsigned /*event*/, void* run, void*, void*) {
    (*static_cast<std::function<void()>*>(run))();
    return 0;
  };
  for (const auto way : {&ReaderPool::close, &ReaderPool::give_back_memory}) {
    std::promise<void> closing;
    std::promise<void> go_on;
    bool met = false;
    std::function<void()> meet = [&] {
      if (!std::exchange(met, true)) closing.set_value(), go_on.get_future().wait();
    };
    ReaderPool pool(path, 2, [&](Connection& connection) {
      sqlite3_trace_v2(connection.handle(), SQLITE_TRACE_CLOSE, at_close, &meet);
    });
    {
      const ReaderPool::Lease one = pool.lease();
      const ReaderPool::Lease other = pool.lease();
    }
    const auto first = std::async(std::launch::async, [&] { (pool.*way)(); });
    ASSERT_TRUE(finished(closing.get_future()));
    const auto second = std::async(std::launch::async, [&] { pool.close(); });
    EXPECT_FALSE(finished(second, 50ms)) << "returned while another was closing a connection";
    go_on.set_value();
    EXPECT_TRUE(finished(first));
    EXPECT_TRUE(finished(second));
  }
}

}  // namespace
}  // namespace veldra
