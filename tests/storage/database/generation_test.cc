// The generation is seen by everyone once it is committed; the stamp and its marks land together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <limits>

#include "support/database_test_access.h"
#include "support/finished.h"
#include "support/log_capture.h"
#include "support/old_file.h"
#include "support/statement_watch.h"
#include "support/temp_database.h"

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
    Value stored;
    ExtractorVersions versions;
    std::int64_t marked;
    std::string stamp;
    std::string stale;
    std::vector<std::string> lines;
  };
  const std::string changed = "INFO storage/database: Extractor changed for ";
  const auto unknown = [](std::string_view text) {
    return "WARNING storage/database: Extractor stamp '" + std::string(text) +
           "' has an unknown format; treating it as absent";
  };
  const ExtractorVersions both = {{"kotlin", 1}, {"typescript", 3}};
  const std::string both_stored = R"({"kotlin": 1, "typescript": 3})";
  const std::string other_form = "{ \"typescript\":3,\"kotlin\":1 }";
  const Case cases[] = {
      {"no stamp: every language is new",
       nullptr,
       both,
       3,
       both_stored,
       "a.kt b.kt c.ts",
       {changed + "kotlin, typescript: 3 files marked for re-indexing"}},
      {"nothing new", both_stored, both, 0, both_stored, "NULL", {}},
      {"another form of the same", other_form, both, 0, other_form, "NULL", {}},
      {"a language dropped",
       both_stored,
       {{"typescript", 3}},
       0,
       R"({"typescript": 3})",
       "NULL",
       {}},
      {"one newer, one without files",
       R"({"typescript": 3})",
       {{"ruby", 1}, {"typescript", 4}},
       1,
       R"({"ruby": 1, "typescript": 4})",
       "c.ts",
       {changed + "ruby, typescript: 1 files marked for re-indexing"}},
      {"an older extractor counts too",
       both_stored,
       {{"kotlin", 0}, {"typescript", 3}},
       2,
       R"({"kotlin": 0, "typescript": 3})",
       "a.kt b.kt",
       {changed + "kotlin: 2 files marked for re-indexing"}},
      {"only languages without files", nullptr, {{"ruby", 1}}, 0, R"({"ruby": 1})", "NULL", {}},
      {"no versions and no stamp", nullptr, {}, 0, "", "NULL", {}},
      {"no versions any more", R"({"typescript": 3})", {}, 0, "{}", "NULL", {}},
      {"no JSON",
       "soup",
       {{"typescript", 3}},
       1,
       R"({"typescript": 3})",
       "c.ts",
       {unknown("soup"), changed + "typescript: 1 files marked for re-indexing"}},
      {"unknown values and no versions",
       R"({"a": true})",
       {},
       0,
       R"({"a": true})",
       "NULL",
       {unknown(R"({"a": true})")}},
      {"a number in place of a text",
       12,
       {{"ruby", 1}},
       0,
       R"({"ruby": 1})",
       "NULL",
       {unknown("12")}},
      {"names beyond ASCII",
       nullptr,
       {{"c\xc3\xa9\xf0\x9f\x98\x80\xff\"", 1}},
       0,
       R"({"c\u00e9\ud83d\ude00\udcff\"": 1})",
       "NULL",
       {}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.why);
    TempDatabase db;
    db->execute(
        "INSERT INTO files (path, language, hash) VALUES ('a.kt', 'kotlin', '1'),"
        " ('b.kt', 'kotlin', '2'), ('c.ts', 'typescript', '3'), ('d', 'Kotlin', '4')");
    if (!one.stored.is_null())
      db->execute("INSERT INTO schema_info VALUES ('extractor_versions', ?)", {one.stored});
    const LogCapture log;
    EXPECT_EQ(db->refresh_extractor_stamp(one.versions), one.marked);
    EXPECT_EQ(dump(*db, STAMP), one.stamp);
    EXPECT_EQ(dump(*db, STALE), one.stale);
    EXPECT_EQ(log.lines(), one.lines);
    EXPECT_EQ(db->refresh_extractor_stamp(one.versions), 0) << "the stamp was not read as written";
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
