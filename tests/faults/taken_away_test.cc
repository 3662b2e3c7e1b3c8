// The index file is removed or replaced under an open database: no write is acknowledged and lost,
// what lies there now is not touched, and another connect is all it takes.
#include <gmock/gmock.h>

#include "faults/measured.h"
#include "faults/operations.h"
#include "support/temp_database.h"

namespace veldra {
namespace {

using testing::HasSubstr;

using TakenAwayTest = OperationTest;

TEST_P(TakenAwayTest, NeverTouchesWhatLiesThereNow) {
  int errors = 0;
  for (const bool replaced : {false, true}) {
    SCOPED_TRACE(replaced ? "replaced" : "removed");
    TempDirectory directory;
    copy_files(directory);
    const std::filesystem::path index = index_in(directory.path());
    Database db(index);
    prepare(db);
    for (const char* const suffix : {"", "-wal", "-shm"})
      std::filesystem::remove(index.string() + suffix);
    if (replaced) make_index(index, "another");
    const std::string before = replaced ? look_at(index).content : "";

    const std::string error = outcome_of([&] { GetParam().run(db); });
    errors += error.empty() ? 0 : 1;
    const bool reads = GetParam().kind == Operation::Kind::Reads;
    // A query may be answered from what the writer has open, but never from what lies there now.
    const bool must_fail = !GetParam().name.starts_with("compact") && (replaced || !reads);
    EXPECT_THAT(error,
                HasSubstr(must_fail ? "was removed or replaced: close and connect again" : ""));
    EXPECT_EQ(outcome_of([&] { db.close(); }), "");
    EXPECT_EQ(std::filesystem::exists(index), replaced);
    if (replaced) {
      const FileState after = look_at(index);
      EXPECT_EQ(after.content, before);
      EXPECT_EQ(after.damage, "");
    }
    open(db);
    db.record_error("taken", PARTIAL_PARSE_ERROR);
    EXPECT_EQ(dump(db, "SELECT count(*) FROM index_errors WHERE file_path = 'taken'"), "1");
    db.close();
    EXPECT_TRUE(nothing_left_beside(index));
  }
  measured("taken away", GetParam().name, 2, std::to_string(errors));
}

bool has_the_file_open(const Operation& it) {
  return it.kind != Operation::Kind::Connects;
}

INSTANTIATE_TEST_SUITE_P(Operations, TakenAwayTest,
                         testing::ValuesIn(operations_that(has_the_file_open)), name_of);

}  // namespace
}  // namespace veldra
