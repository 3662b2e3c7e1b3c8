// The generation is seen by everyone once it is committed; the stamp and its marks land together.
#include "support/database_test.h"
#include "veldra/utils/flat_json.h"

namespace veldra {
namespace {

constexpr std::string_view STAMP = "SELECT value FROM schema_info WHERE key = 'extractor_versions'";
constexpr std::string_view STALE =
    "SELECT group_concat(path, ' ') FROM (SELECT path FROM files WHERE hash = 'stale'"
    " ORDER BY path)";

TEST(GenerationTest, RefreshMarksTheFilesOfChangedLanguagesAndRecordsTheVersions) {
  struct Case {
    const char *why, *stored, *versions, *stamp;  // the last: afterwards; none stored: no stamp
    int marked;
    const char *changed, *stale;  // as the log names them, none: no line; in the file afterwards
  };
  static constexpr const char* BOTH = R"({"kotlin": 1, "typescript": 3})";
  static constexpr const char* ODD = "{ \"typescript\":3,\"kotlin\":1 }";
  static constexpr const char* ONE = R"({"typescript": 3})";
  static constexpr const char* MORE = R"({"ruby": 1, "typescript": 4})";
  static constexpr const char* FAR = R"({"c\u00e9\ud83d\ude00\udcff\"": 1})";
  static constexpr Case CASES[] = {
      {"no stamp", nullptr, BOTH, BOTH, 3, "kotlin, typescript", "a.kt b.kt c.ts old.kt"},
      {"another form of the same stays", ODD, BOTH, ODD, 0, nullptr, "old.kt"},
      {"one newer, one without files", ONE, MORE, MORE, 1, "ruby, typescript", "c.ts old.kt"},
      {"no versions any more", ONE, "{}", "{}", 0, nullptr, "old.kt"},
      {"names beyond ASCII and UTF-8", nullptr, FAR, FAR, 0, nullptr, "old.kt"}};
  for (const auto& [why, stored, versions, stamp, marked, changed, stale] : CASES) {
    SCOPED_TRACE(why);
    TempDatabase db;
    db->execute(
        "INSERT INTO files (path, language, hash) VALUES ('a.kt', 'kotlin', '1'),"
        " ('b.kt', 'kotlin', '2'), ('c.ts', 'typescript', '3'), ('d', 'Kotlin', '4'),"
        " ('old.kt', 'kotlin', 'stale')");
    if (stored != nullptr)
      db->execute("INSERT INTO schema_info VALUES ('extractor_versions', ?)", {stored});
    const ExtractorVersions current = parse_flat_json(versions).value();
    const LogCapture log;
    EXPECT_EQ(db->refresh_extractor_stamp(current), marked);
    EXPECT_EQ(dump(*db, STAMP), stamp);
    EXPECT_EQ(dump(*db, STALE), stale);
    std::vector<std::string> lines;
    if (changed != nullptr)
      lines.push_back(std::string("INFO storage/database: Extractor changed for ") + changed +
                      ": " + std::to_string(marked) + " files marked for re-indexing");
    EXPECT_EQ(log.lines(), lines);
    EXPECT_EQ(db->refresh_extractor_stamp(current), 0) << "the stamp was not read as written";
  }
}

TEST(GenerationTest, AnotherProcessesWriteIsNoError) {
  // this process            another process
  // BEGIN, looks at stamp
  //                         writes, commits
  // writes: refused, its snapshot is old; begins again
  TempDatabase db;
  db->execute("INSERT INTO files (path, language, hash) VALUES ('a.kt', 'kotlin', '1')");
  db->execute("INSERT INTO schema_info VALUES ('extractor_versions', ?)",
              {"it's\n\x1b[31m no stamp"});
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
  EXPECT_THAT(
      log.lines(),
      ElementsAre("WARNING storage/database: Extractor stamp 'it\\'s\\n\\x1b[31m no stamp' has an"
                  " unknown format; treating it as absent",
                  "INFO storage/database: Extractor changed for kotlin: 2 files marked for"
                  " re-indexing"))
      << "the second look at the same stamp warned again";
}

}  // namespace
}  // namespace veldra
