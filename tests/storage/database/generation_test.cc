// The generation is seen by everyone once it is committed; the stamp and its marks land together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "support/database_test_access.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/statement_watch.h"
#include "support/temp_database.h"
#include "veldra/utils/flat_json.h"

namespace veldra {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view STAMP = "SELECT value FROM schema_info WHERE key = 'extractor_versions'";
constexpr std::string_view STALE =
    "SELECT group_concat(path, ' ') FROM (SELECT path FROM files WHERE hash = 'stale' ORDER BY "
    "path)";

TEST(GenerationTest, ABumpIsSeenInItsTransactionAtOnceAndByOthersAfterTheCommit) {
  TempDatabase db;
  const auto elsewhere = [&] {
    return std::async(std::launch::async, [&] { return db->index_generation(); }).get();
  };
  EXPECT_EQ(db->index_generation(), 0);
  db->transaction([&](Cursor& cursor) {
    DatabaseTestAccess::bump_index_generation(*db, &cursor);
    DatabaseTestAccess::bump_index_generation(*db, &cursor);
    EXPECT_EQ(db->index_generation(), 2);
    EXPECT_EQ(elsewhere(), 0) << "an uncommitted generation was seen";
  });
  EXPECT_EQ(elsewhere(), 2);
  EXPECT_THROW(db->transaction([&](Cursor& cursor) {
    DatabaseTestAccess::bump_index_generation(*db, &cursor);
    throw 7;
  }),
               int);
  EXPECT_EQ(elsewhere(), 2) << "a rolled back generation stayed";
  DatabaseTestAccess::bump_index_generation(*db);
  EXPECT_EQ(as_another_process(db->db_path, "PRAGMA user_version"), "3");
}

TEST(GenerationTest, AStampOfUnknownFormatIsNoneWithOneWarning) {
  const LogCapture log;
  EXPECT_EQ(_parse_extractor_stamp(std::nullopt), std::nullopt);
  EXPECT_EQ(_parse_extractor_stamp("{}"), ExtractorVersions());
  EXPECT_EQ(_parse_extractor_stamp(R"({"typescript": 3})"), (ExtractorVersions{{"typescript", 3}}));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(_parse_extractor_stamp("it's\n\x01 no stamp"), std::nullopt);
  EXPECT_THAT(
      log.lines(),
      ElementsAre("WARNING storage/database: Extractor stamp 'it\\'s\\n\\x01 no stamp' has an"
                  " unknown format; treating it as absent"));
}

TEST(GenerationTest, RefreshMarksTheFilesOfChangedLanguagesAndRecordsTheVersions) {
  struct Case {
    const char* why;
    const char* stored;    // none: no stamp
    const char* versions;  // in the stored form
    const char* stamp;     // afterwards
    const char* changed;   // as the log names them; none: no line
    const char* stale;
  };
  static constexpr const char* both = R"({"kotlin": 1, "typescript": 3})";
  static constexpr const char* odd = "{ \"typescript\":3,\"kotlin\":1 }";
  static constexpr const char* one = R"({"typescript": 3})";
  static constexpr const char* more = R"({"ruby": 1, "typescript": 4})";
  static constexpr const char* ruby = R"({"ruby": 1})";
  static constexpr const char* far = R"({"c\u00e9\ud83d\ude00\udcff\"": 1})";
  static constexpr Case cases[] = {
      {"no stamp", nullptr, both, both, "kotlin, typescript: 3", "a.kt b.kt c.ts"},
      {"nothing new", both, both, both, nullptr, "NULL"},
      {"another form of the same stays", odd, both, odd, nullptr, "NULL"},
      {"a language dropped", both, one, one, nullptr, "NULL"},
      {"one newer, one without files", one, more, more, "ruby, typescript: 1", "c.ts"},
      {"only languages without files", nullptr, ruby, ruby, nullptr, "NULL"},
      {"no versions and no stamp", nullptr, "{}", "", nullptr, "NULL"},
      {"no versions any more", one, "{}", "{}", nullptr, "NULL"},
      {"an unknown format is no stamp", "soup", one, one, "typescript: 1", "c.ts"},
      {"and equal to no versions", "12", "{}", "12", nullptr, "NULL"},
      {"names beyond ASCII and UTF-8", nullptr, far, far, nullptr, "NULL"}};
  for (const auto& [why, stored, versions, stamp, changed, stale] : cases) {
    SCOPED_TRACE(why);
    TempDatabase db;
    db->execute(
        "INSERT INTO files (path, language, hash) VALUES ('a.kt', 'kotlin', '1'),"
        " ('b.kt', 'kotlin', '2'), ('c.ts', 'typescript', '3'), ('d', 'Kotlin', '4')");
    if (stored != nullptr)
      db->execute("INSERT INTO schema_info VALUES ('extractor_versions', ?)", {stored});
    std::vector<std::string> lines;
    if (stored != nullptr && !parse_flat_json(stored))
      lines.push_back(std::string("WARNING storage/database: Extractor stamp '") + stored +
                      "' has an unknown format; treating it as absent");
    if (changed != nullptr)
      lines.push_back(std::string("INFO storage/database: Extractor changed for ") + changed +
                      " files marked for re-indexing");
    const ExtractorVersions current = parse_flat_json(versions).value();
    const LogCapture log;
    const std::int64_t marked = db->refresh_extractor_stamp(current);
    EXPECT_EQ(marked, dump(*db, "SELECT count(*) FROM files WHERE hash = 'stale'")[0] - '0');
    EXPECT_EQ(dump(*db, STAMP), stamp);
    EXPECT_EQ(dump(*db, STALE), stale);
    EXPECT_EQ(log.lines(), lines);
    EXPECT_EQ(db->refresh_extractor_stamp(current), 0) << "the stamp was not read as written";
  }
}

TEST(GenerationTest, AFailedRefreshLeavesStampAndMarksAsTheyWere) {
  TempDatabase db;
  db->execute("INSERT INTO files (path, language, hash) VALUES ('a.kt', 'kotlin', '1')");
  db->execute(
      "CREATE TRIGGER no BEFORE INSERT ON schema_info BEGIN SELECT raise(ABORT, 'no'); END");
  const LogCapture log;
  EXPECT_THROW(db->refresh_extractor_stamp({{"kotlin", 1}}), IntegrityError);
  EXPECT_EQ(dump(*db, STAMP), "");
  EXPECT_EQ(dump(*db, STALE), "NULL");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(GenerationTest, AnUnchangedStampWaitsForNobodysWrite) {
  TempDatabase db;
  db->refresh_extractor_stamp({{"kotlin", 1}});
  Connection other(db->db_path);
  other.execute("BEGIN IMMEDIATE");
  auto refreshed = std::async(std::launch::async, [&] {
    return db->refresh_extractor_stamp({{"kotlin", 1}});
  });
  EXPECT_TRUE(finished(refreshed, std::chrono::seconds(3))) << "it waited for the write lock";
  other.execute("ROLLBACK");
  EXPECT_EQ(refreshed.get(), 0);
}

TEST(GenerationTest, AnotherProcessesWriteAfterTheLookAtTheStampIsNoError) {
  // this process            another process
  // BEGIN, looks at stamp
  //                         writes, commits
  // writes: refused, its snapshot is old; begins again
  TempDatabase db;
  db->execute("INSERT INTO files (path, language, hash) VALUES ('a.kt', 'kotlin', '1')");
  db->execute("INSERT INTO schema_info VALUES ('extractor_versions', 'soup')");
  Connection other(db->db_path);
  bool written = false;
  const LogCapture log;
  {
    const StatementWatch watch(*db->connection(), [&](std::string_view sql) {
      if (written || !sql.starts_with("UPDATE files")) return;
      written = true;
      other.execute("INSERT INTO files (path, language, hash) VALUES ('b.kt', 'kotlin', '2')");
    });
    EXPECT_EQ(db->refresh_extractor_stamp({{"kotlin", 1}}), 2);
  }
  EXPECT_TRUE(written);
  EXPECT_EQ(dump(*db, STALE), "a.kt b.kt");
  EXPECT_EQ(log.lines().size(), 2U) << "the second look at the same stamp warned again";
}

}  // namespace
}  // namespace veldra
