// Counts, the integrity check and the error records of files.
#include <gtest/gtest.h>

#include "support/temp_database.h"

namespace veldra {
namespace {

TEST(HealthTest, ErrorsAreRecordedCountedAndClearedByFileAndType) {
  TempDatabase db;
  db->execute("INSERT INTO files VALUES (1, 'a', '', '', 0, NULL), (2, 'b', '', '', 0, NULL)");
  db->execute(
      "INSERT INTO symbols (file_id, name, kind) VALUES (1, 'a', 'anchor'), (1, 'f', 'function'),"
      " (1, 'Anchor', 'Anchor'), (2, 'b', 'anchor'), (2, 'g', ''), (2, 'h', 'x')");
  db->execute("INSERT INTO edges (source_id, target_id, kind) VALUES (1, 2, 'calls')");
  db->record_error("a", PARTIAL_PARSE_ERROR);
  db->record_error("a", FQN_COLLISION_ERROR, "", 0);
  db->record_error("b'?", "io_error", std::string_view("no\0text", 7), std::int64_t{1} << 40);
  std::string stats;
  for (const auto& [name, count] : db->get_stats()) stats += name + std::to_string(count) + " ";
  EXPECT_EQ(stats, "files2 symbols4 edges1 components0 errors3 ") << "a user sees no anchors";
  EXPECT_EQ(db->get_error_count(), 2) << "rows were counted instead of files";
  EXPECT_EQ(dump(*db, "SELECT file_path, error_type, message, line FROM index_errors"),
            std::string("a|partial_parse|NULL|NULL\na|fqn_collision||0\nb'?|io_error|no") + '\0' +
                "text|1099511627776");
  db->clear_file_errors("a", PARTIAL_PARSE_ERROR);
  db->clear_file_errors("b'?", PARTIAL_PARSE_ERROR);
  EXPECT_EQ(dump(*db, "SELECT error_type FROM index_errors"), "fqn_collision\nio_error");
  db->clear_file_errors("b'?");
  EXPECT_EQ(dump(*db, "SELECT file_path FROM index_errors"), "a");
}

TEST(HealthTest, ADamagedFileIsNotSoundAndThatIsNoError) {
  TempDatabase db;
  EXPECT_TRUE(db->check_integrity());
  // The index holds names where its definition says kinds: queries go on, the check finds it out.
  db->execute("INSERT INTO files (path, language, hash) VALUES ('a', 'C', 'h')");
  db->execute("INSERT INTO symbols (file_id, name, kind) VALUES (1, 'f', 'function')");
  db->execute("PRAGMA writable_schema=ON").fetchall();
  db->execute(
      "UPDATE sqlite_master SET sql = replace(sql, '(name)', '(kind)')"
      " WHERE name = 'symbols_by_name'");
  db->close();
  db->connect();
  EXPECT_FALSE(db->check_integrity());
}

}  // namespace
}  // namespace veldra
