// Opening and closing: what connect sets up, what a failure leaves.
#include <fstream>

#include "support/database_test.h"
#include "support/environment.h"

namespace veldra {
namespace {

constexpr const char* NOT_CONNECTED = "Database not connected. Call connect() first.";

/// Nothing works, for the reason `message`, and the lock is free after each attempt.
void expect_not_open(Database& db, const std::string& message) {
  const std::function<void()> operations[] = {
      [&] { db.transaction([](Cursor&) {}); }, [&] { db.executemany("SELECT 1", {}); },
      [&] { db.fetchone("SELECT 1"); }, [&] { db.fetchall("VALUES (1)"); }};
  for (const auto& operation : operations) {
    EXPECT_THAT(operation, ThrowsMessage<RuntimeError>(message));
    EXPECT_EQ(Access::tx_depth(db), 0);
    EXPECT_FALSE(Access::lock(db).held_by_this_thread());
  }
  EXPECT_EQ(db.closed(), message == "Database is closed.");
}

TEST(ReaderCountTest, ReadsTheEnvironmentAtEveryCall) {
  const std::pair<int, std::vector<const char*>> cases[] = {
      {6, {nullptr, " \t\n", "4.5", "0x10", "4 4", "+", "--4", "+ 4", "_4", "4_", "1__0"}},
      {0, {"0", "-3", "-99999999999999999999"}},
      {4, {"4", "+4", " 4\t", "0000000000000000000000000000000000000004"}},
      {10, {"1_0"}},
      {32, {"33", "1234567890123456789012345678901234567890"}},
  };
  for (const auto& [expected, texts] : cases) {
    for (const char* const text : texts) {
      const EnvironmentVariable variable(_READERS_ENV, text);
      EXPECT_EQ(reader_count(), expected) << (text != nullptr ? text : "unset");
    }
  }
}

TEST(LifecycleTest, ANewFileIsMadeForTheLayerAndAnExistingOneKeepsItsPages) {
  const TempDirectory directory;
  std::filesystem::create_directory(directory / "old");
  for (Connection old(directory / "old/index.db");
       const char* const sql : {"PRAGMA page_size=1024", "CREATE TABLE t (i)"})
    old.execute(sql);
  for (const auto& [name, settings] : {std::pair("old/index.db", "1024 0 wal 1 1 5000 "),
                                       std::pair("missing/too/index.db", "8192 2 wal 1 1 5000 ")}) {
    Database db(directory / name);
    EXPECT_FALSE(std::filesystem::exists(directory / "missing")) << "made before its need";
    db.connect();
    std::string found;
    for (const char* const pragma : {"page_size", "auto_vacuum", "journal_mode", "foreign_keys",
                                     "synchronous", "busy_timeout"})
      found += dump(db, std::string("PRAGMA ") + pragma) + " ";
    EXPECT_EQ(found, settings);
    db.create_schema();
    db.close();
    EXPECT_FALSE(std::filesystem::exists(db.db_path.string() + "-wal")) << "a reader closed last";
  }
}

TEST(LifecycleTest, GoesFromUnconnectedToOpenToClosedAndBack) {
  TempDatabase db(TempDatabase::State::Unconnected);
  db->close();
  expect_not_open(*db, NOT_CONNECTED);
  for (int round = 0; round < 2; ++round) {
    db->connect();
    EXPECT_FALSE(db->closed());
    const std::shared_ptr<Connection> replaced = db->connection();
    db->connect();  // on an open one
    EXPECT_NE(db->connection(), replaced);
    EXPECT_EQ(dump(*replaced, "SELECT 1"), "1") << "closed under a caller who still uses it";
    const std::shared_ptr<ReaderPool> pool = Access::readers(*db);
    db->close();
    db->close();
    expect_not_open(*db, "Database is closed.");
    EXPECT_THROW((void)pool->lease(0ms), ReaderUnavailable);
  }
}

TEST(LifecycleTest, AFailedConnectLeavesTheStateOfItsStep) {
  const TempDirectory directory;
  std::ofstream(directory / "text") << std::string(200, 'x');
  Database below_a_file(directory / "text/index.db");
  EXPECT_THROW(below_a_file.connect(), OSError);
  expect_not_open(below_a_file, NOT_CONNECTED);

  Database text(directory / "text");
  EXPECT_THAT([&] { text.connect(); }, ThrowsMessage<Error>("file is not a database"));
  EXPECT_NO_THROW((void)text.connection()) << "the partly configured writer was lost";
  EXPECT_EQ(Access::readers(text), nullptr);
  text.close();
  expect_not_open(text, "Database is closed.");
}

}  // namespace
}  // namespace veldra
