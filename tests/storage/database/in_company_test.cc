// Other programs have the file open, hold it, or take it away.
#include <spdlog/sinks/base_sink.h>

#include "support/database_test.h"
#include "support/old_file.h"

namespace veldra {
namespace {

std::uintmax_t log_size(const Database& db) {
  return std::filesystem::file_size(db.db_path.string() + "-wal");
}

TEST(InCompanyTest, AnOpenNeitherWaitsForAWriterNorWritesAnything) {
  TempDatabase db;
  db->close();
  Connection writer(db->db_path);
  Connection other(db->db_path);
  for (const char* const sql : {"BEGIN IMMEDIATE", "INSERT INTO components VALUES (1, 'a', 'a')"})
    writer.execute(sql);
  const std::string seen = dump(other, "PRAGMA data_version");
  // The writer does not let go; whoever waits for it fails.
  open(*db);
  EXPECT_EQ(dump(*db, "SELECT count(*) FROM components"), "0");
  EXPECT_EQ(dump(other, "PRAGMA data_version"), seen) << "an open committed something";
  EXPECT_EQ(log_size(*db), 0U) << "an open wrote to the log";
  EXPECT_EQ(dump(*db->connection(), "PRAGMA auto_vacuum"), "2");
}

TEST(InCompanyTest, ANewFileWhoseMakingMustWaitStillGetsItsVersion) {
  // create_schema    other
  //                  begins to write
  // is refused
  // tries again      rolls back
  TempDatabase db(TempDatabase::State::Connected);
  Connection other(db->db_path);
  other.execute("BEGIN IMMEDIATE");
  int begun = 0;
  const StatementWatch watch(*db->connection(), [&](std::string_view statement) {
    if (statement == "BEGIN" && ++begun == 2) other.execute("ROLLBACK");
  });
  db->connection()->set_busy_timeout(20ms);
  db->create_schema();
  EXPECT_EQ(begun, 2);
  EXPECT_EQ(dump(*db, "SELECT key, value FROM schema_info"), "version|3");
  EXPECT_EQ(dump(*db, "SELECT name FROM sqlite_master WHERE name LIKE '%lock%'"), "");
}

TEST(InCompanyTest, TheLogOfALargeTransactionIsCutBackByTheWritesThatFollow) {
  TempDatabase db;
  db->execute("CREATE TABLE large (b BLOB)");
  db->execute("INSERT INTO large VALUES (zeroblob(40000000))");
  ASSERT_GT(log_size(*db), 40'000'000U);
  for (int i = 0; i < 2; ++i) db->execute("INSERT INTO large VALUES (zeroblob(1))");
  EXPECT_LE(log_size(*db), static_cast<std::uintmax_t>(_LOG_SIZE_LIMIT));
}

TEST(InCompanyTest, ReadersAndWriterStayOnOneFileWhereverTheNameLeads) {
  const TempDirectory directory;
  const std::filesystem::path before = std::filesystem::current_path();
  for (const char* const name : {"first", "second"}) {
    std::filesystem::create_directory(directory / name);
    Database db(directory / name / "index.db");
    open(db);
    db.execute("INSERT INTO components (name, path) VALUES (?, '')", {name});
  }
  const std::filesystem::path link = directory / "link";
  std::filesystem::create_directory_symlink(directory / "first", link);
  std::filesystem::current_path(directory / "first");
  Database by_working_directory("index.db");
  Database by_link(link / "index.db");
  by_working_directory.connect();
  by_link.connect();
  std::filesystem::current_path(directory / "second");
  std::filesystem::remove(link);
  std::filesystem::create_directory_symlink(directory / "second", link);
  for (Database* const db : {&by_working_directory, &by_link}) {
    EXPECT_EQ(dump(*db, "SELECT name FROM components"), "first") << db->db_path;
    EXPECT_EQ(db->index_generation(), 0);
    db->execute("UPDATE components SET path = 'written'");
    EXPECT_EQ(dump(*db, "SELECT path FROM components"), "written") << db->db_path;
  }
  std::filesystem::current_path(before);
}

/// A sink that waits for a thread that writes hangs where it is called under the connection lock.
struct LockWatch : spdlog::sinks::base_sink<std::mutex> {
  explicit LockWatch(FairMutex& watched) : lock(watched) {}
  void sink_it_(const spdlog::details::log_msg&) override {
    EXPECT_FALSE(lock.held_by_this_thread()) << "a line was logged under the connection lock";
    ++lines;
  }
  void flush_() override {}

  FairMutex& lock;
  int lines = 0;
};

TEST(InCompanyTest, NoLineIsLoggedUnderTheConnectionLock) {
  const LogCapture log;
  const TempDirectory directory;
  Database db(directory / "index.db");
  make_old_file(db.db_path, 20);
  const auto sink = std::make_shared<LockWatch>(Access::lock(db));
  for (const char* const name : {"storage/database", "storage/storage_size"})
    spdlog::get(name)->sinks().push_back(sink);
  db.connect();
  db.create_schema();
  std::optional<Connection> other(db.db_path);
  other->execute("BEGIN");
  dump(*other, "SELECT count(*) FROM files");
  db.execute("INSERT INTO schema_info VALUES ('extractor_versions', 'unreadable')");
  db.migrate_schema();
  EXPECT_EQ(sink->lines, 2) << "migrated, and not rewritten since the file is in use";
  db.refresh_extractor_stamp({{"C++", 1}});
  EXPECT_EQ(sink->lines, 3) << "the stamp is of no known format";
}

class CompanyOfARewriteTest : public testing::Test {
 protected:
  CompanyOfARewriteTest() {
    make_old_file(db.db_path, 200);
    db.connect();
    db.create_schema();
  }

  const TempDirectory directory;
  Database db{directory / "index.db"};
  LogCapture log;
};

TEST_F(CompanyOfARewriteTest, AThreadThatClosesClosesThePoolThatTheRewriteOpens) {
  std::future<void> closing;
  {
    const std::shared_ptr<Connection> connection = db.connection();
    const StatementWatch watch(*connection, [&](std::string_view statement) {
      if (statement != "VACUUM") return;
      closing = std::async(std::launch::async, [&] { db.close(); });
      EXPECT_FALSE(finished(closing, 50ms)) << "closed in the middle of the rewrite";
    });
    db.migrate_schema();
    ASSERT_TRUE(finished(closing));
  }
  EXPECT_THAT([&] { db.fetchone("SELECT 1"); }, ThrowsMessage<RuntimeError>("Database is closed."));
  EXPECT_FALSE(std::filesystem::exists(db.db_path.string() + "-wal")) << "a reader is open";
}

TEST_F(CompanyOfARewriteTest, AProgramThatLooksInForAMomentDoesNotKeepTheJournalOutOfWal) {
  std::optional<Connection> other;
  int attempts = 0;
  const StatementWatch watch(*db.connection(), [&](std::string_view statement) {
    if (!statement.starts_with("PRAGMA journal_mode=WAL")) return;
    if (++attempts == 1) {
      other.emplace(db.db_path);
      other->execute("BEGIN");
      dump(*other, "SELECT count(*) FROM files");
    } else {
      other.reset();
    }
  });
  db.migrate_schema();
  EXPECT_EQ(dump(*db.connection(), "PRAGMA journal_mode"), "wal");
  EXPECT_NE(Access::readers(db), nullptr);
}

}  // namespace
}  // namespace veldra
