// Read connections are lent to one query at a time, and closing waits for the loans.
#include "veldra/storage/reader_pool.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <future>

#include "support/finished.h"
#include "support/temp_database.h"
#include "veldra/errors.h"

namespace veldra {
namespace {

using namespace std::chrono_literals;

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
  try {
    third->execute("INSERT INTO t VALUES (2)");
    ADD_FAILURE() << "a read connection wrote";
  } catch (const OperationalError& error) {
    EXPECT_STREQ(error.what(), "attempt to write a readonly database");
  }
}

TEST_F(ReaderPoolTest, CloseRefusesTheWaitingThreadAndOutlastsTheLoan) {
  // this thread     waiter           closer
  // lease()
  //                 lease() waits
  //                                  close() waits
  //                 refused
  // gives back
  //                                  returns
  ReaderPool pool(path, 1, {});
  std::future<void> waiter, closer;
  std::optional<ReaderPool::Lease> loan(
      pool.lease());  // declared last: a failure lets the others go

  // A wait for what must not happen can miss a fault, never invent one, so it may be short.
  waiter = std::async(std::launch::async, [&] { (void)pool.lease(30s); });
  ASSERT_FALSE(finished(waiter, 50ms)) << "the one connection was lent twice";
  closer = std::async(std::launch::async, [&] { pool.close(); });

  ASSERT_TRUE(finished(waiter)) << "close() left a thread waiting for a connection";
  EXPECT_THROW(waiter.get(), ReaderUnavailable);
  EXPECT_FALSE(finished(closer, 50ms)) << "close() returned while a connection was lent";

  loan.reset();
  EXPECT_TRUE(finished(closer)) << "close() did not notice that the loan came back";
  EXPECT_THROW((void)pool.lease(), ReaderUnavailable) << "a closed pool lent a connection";
  EXPECT_NO_THROW(pool.close());
}

TEST_F(ReaderPoolTest, AWaitingThreadGetsTheConnectionThatComesBack) {
  ReaderPool pool(path, 1, count);
  std::future<void> waiter;
  std::optional<ReaderPool::Lease> loan(pool.lease());
  EXPECT_THROW((void)pool.lease(0ms), ReaderUnavailable);
  waiter = std::async(std::launch::async, [&] { (void)pool.lease(30s); });
  ASSERT_FALSE(finished(waiter, 50ms)) << "the one connection was lent twice";
  loan.reset();
  EXPECT_TRUE(finished(waiter)) << "nobody woke the waiting thread";
  EXPECT_NO_THROW(waiter.get());
  EXPECT_EQ(configured, 1);
}

TEST_F(ReaderPoolTest, AFailedOpeningFreesItsPlace) {
  bool fail = true;
  ReaderPool pool(path, 1, [&](Connection&) {
    if (fail) throw std::domain_error("not now");
  });
  EXPECT_THROW((void)pool.lease(), std::domain_error);
  fail = false;
  EXPECT_NO_THROW((void)pool.lease(0ms)) << "a place was lost";

  ReaderPool nowhere(directory / "missing.db", 1, {});
  for (int i = 0; i < 2; ++i) EXPECT_THROW((void)nowhere.lease(0ms), OperationalError);
  nowhere.close();
}

TEST_F(ReaderPoolTest, AConnectionThatMetDamageIsNotLentAgain) {
  ReaderPool pool(path, 1, count);
  {
    const ReaderPool::Lease loan = pool.lease();
    EXPECT_THROW(loan->execute("SELECT * FROM missing"), OperationalError);
  }
  (void)pool.lease();
  EXPECT_EQ(configured, 1) << "dropped for a mistake of the query's";

  const std::filesystem::path damaged = directory / "damaged.db";
  {
    Connection connection(damaged);
    connection.execute("CREATE TABLE t AS SELECT randomblob(100000) AS i");
  }
  std::filesystem::resize_file(damaged, 3 * 4096);
  ReaderPool damaged_pool(damaged, 1, count);
  configured = 0;
  for (int i = 0; i < 2; ++i) {
    const ReaderPool::Lease loan = damaged_pool.lease(0ms);
    EXPECT_THROW(loan->execute("SELECT i FROM t").fetchall(), Error);
  }
  EXPECT_EQ(configured, 2) << "a connection that met a corrupt page was lent again";
}

TEST_F(ReaderPoolTest, EveryThreadThatClosesWaitsUntilAllIsClosed) {
  // The last connection of all deletes the log: who closes the writer after the pool relies on it.
  struct Meeting {
    std::promise<void> closing;
    std::promise<void> go_on;
  } meeting;
  const auto nothing = [](sqlite3_context*, int, sqlite3_value**) {};
  const auto meet = [](void* with) {
    static_cast<Meeting*>(with)->closing.set_value();
    static_cast<Meeting*>(with)->go_on.get_future().wait();
  };
  ReaderPool pool(path, 1, [&](Connection& connection) {
    sqlite3_create_function_v2(connection.handle(), "f", 0, SQLITE_UTF8, &meeting, nothing, nullptr,
                               nullptr, meet);
  });
  (void)pool.lease();
  std::future<void> first = std::async(std::launch::async, [&] { pool.close(); });
  ASSERT_TRUE(finished(meeting.closing.get_future()));
  std::future<void> second = std::async(std::launch::async, [&] { pool.close(); });
  EXPECT_FALSE(finished(second, 50ms)) << "returned while another thread was closing a connection";
  meeting.go_on.set_value();
  EXPECT_TRUE(finished(first));
  EXPECT_TRUE(finished(second));
}

TEST_F(ReaderPoolTest, NoMoreThanItsCountAreLentAtOnce) {
  ReaderPool pool(path, 2, {});
  std::atomic<int> lent = 0;
  std::atomic<int> most = 0;
  const auto work = [&] {
    for (int i = 0; i < 200; ++i) {
      const ReaderPool::Lease loan = pool.lease(30s);
      const int now = ++lent;
      int seen = most;
      while (now > seen && !most.compare_exchange_weak(seen, now)) {
      }
      loan->execute("SELECT i FROM t").fetchall();
      --lent;
    }
  };
  std::vector<std::future<void>> threads;
  for (int i = 0; i < 4; ++i) threads.push_back(std::async(std::launch::async, work));
  for (std::future<void>& thread : threads) thread.get();
  EXPECT_EQ(most, 2);
}

}  // namespace
}  // namespace veldra
