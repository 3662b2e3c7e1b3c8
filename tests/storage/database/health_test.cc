// Counts, the integrity check and the error records of files.
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/temp_database.h"
#include "veldra/storage/database.h"

namespace veldra {
namespace {

std::string rendered(const Statistics& stats) {
  std::string text;
  for (const auto& [name, count] : stats) text += name + "=" + std::to_string(count) + " ";
  return text;
}

TEST(HealthTest, StatisticsCountWhatAUserSees) {
  TempDatabase db;
  EXPECT_EQ(rendered(db->get_stats()), "files=0 symbols=0 edges=0 components=0 errors=0 ");
  EXPECT_EQ(db->get_error_count(), 0);
  EXPECT_TRUE(db->check_integrity());

  db->execute("INSERT INTO components (id, name, path) VALUES (1, 'c', 'c')");
  db->execute(
      "INSERT INTO files (id, path, language, hash) VALUES (1, 'a', '', ''), (2, 'b', '', '')");
  db->execute(
      "INSERT INTO symbols (file_id, name, kind) VALUES (1, 'a', 'anchor'),"
      " (1, 'f', 'function'), (1, 'Anchor', 'Anchor'), (2, 'b', 'anchor'), (2, 'g', '')");
  db->execute(
      "INSERT INTO edges (source_id, target_id, kind) SELECT id, 1, 'calls' FROM symbols LIMIT 4");
  for (int line = 1; line <= 3; ++line) db->record_error("a", "parse_error", "bad", line);
  EXPECT_EQ(rendered(db->get_stats()), "files=2 symbols=3 edges=4 components=1 errors=3 ");
  EXPECT_EQ(db->get_error_count(), 1) << "rows were counted instead of files";
}

TEST(HealthTest, ErrorsAreRecordedAndClearedByFileAndType) {
  static constexpr std::string_view errors =
      "SELECT file_path, error_type, message, line FROM index_errors ORDER BY id";
  TempDatabase db;
  db->record_error("a", PARTIAL_PARSE_ERROR);
  db->record_error("a", PARTIAL_PARSE_ERROR);
  db->record_error("a", FQN_COLLISION_ERROR, "", 0);
  db->record_error("b'?", "io_error", std::string_view("no\0text", 7), std::int64_t{1} << 40);
  EXPECT_EQ(dump(*db, errors), std::string("a|partial_parse|NULL|NULL\na|partial_parse|NULL|NULL\n"
                                           "a|fqn_collision||0\nb'?|io_error|no") +
                                   '\0' + "text|1099511627776");
  EXPECT_THROW(db->transaction([&](Cursor&) {
    db->clear_file_errors("a");
    db->record_error("c", "io_error");
    EXPECT_EQ(db->get_error_count(), 2) << "a transaction did not see its own records";
    throw std::runtime_error("undo");
  }),
               std::runtime_error);
  db->clear_file_errors("a", PARTIAL_PARSE_ERROR);
  db->clear_file_errors("nobody", "io_error");
  EXPECT_EQ(dump(*db, "SELECT file_path, error_type FROM index_errors"),
            "a|fqn_collision\nb'?|io_error");
  db->clear_file_errors("b'?");
  db->clear_file_errors("nobody");
  EXPECT_EQ(dump(*db, "SELECT file_path FROM index_errors"), "a");
}

TEST(HealthTest, ADamagedFileIsNotSoundAndThatIsNoError) {
  TempDatabase db;
  db->execute("INSERT INTO files (path, language, hash) VALUES ('a', 'C', 'h')");
  // The index holds names where its definition says kinds: queries go on, the check finds it out.
  db->execute("PRAGMA writable_schema=ON").fetchall();
  db->execute(
      "UPDATE sqlite_master SET sql = replace(sql, '(name)', '(kind)')"
      " WHERE name = 'symbols_by_name'");
  db->execute("INSERT INTO symbols (file_id, name, kind) VALUES (1, 'f', 'function')");
  db->close();
  db->connect();
  EXPECT_FALSE(db->check_integrity());
  EXPECT_EQ(db->get_stats().at("symbols"), 1);
}

TEST(HealthTest, EveryMemberNeedsAnOpenDatabase) {
  TempDatabase db(TempDatabase::State::Unconnected);
  EXPECT_THROW(db->get_stats(), RuntimeError);
  EXPECT_THROW(db->check_integrity(), RuntimeError);
  EXPECT_THROW(db->record_error("a", "io_error"), RuntimeError);
  EXPECT_THROW(db->clear_file_errors("a"), RuntimeError);
  EXPECT_THROW(db->get_error_count(), RuntimeError);
}

}  // namespace
}  // namespace veldra
