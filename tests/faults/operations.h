#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_directory.h"
#include "support/whole_index.h"
#include "veldra/storage/database.h"

namespace veldra {

/// A public operation of `Database` on a file made for it.
struct Operation {
  enum class Kind { Connects, Reads, Writes, Closes };  ///< all but the first on an open database
  /// What the index file is before: an index with a staging file beside it, for instance.
  enum class File { Missing, Index, OldVersion, FreePages, FreePagesWithoutAutoVacuum };

  std::string name;
  Kind kind;
  File file;
  std::function<void(Database& db)> run;
  std::function<bool(Database& db)> done = {};  // beside what the rows say

  friend std::ostream& operator<<(std::ostream& out, const Operation& it) { return out << it.name; }
};

const std::vector<Operation>& operations();
std::vector<Operation> operations_that(bool (*are_wanted)(const Operation&));
inline bool change_the_file(const Operation& it) {
  return it.kind != Operation::Kind::Reads;
}
/// They work on one open index side by side, again and again.
inline bool share_an_index(const Operation& it) {
  return it.file == Operation::File::Index &&
         (it.kind == Operation::Kind::Reads || it.kind == Operation::Kind::Writes);
}
std::string name_of(const testing::TestParamInfo<Operation>& operation);

/// The marks in a file, one a line: more than one is two generations at once.
inline constexpr std::string_view MARKS =
    "SELECT name FROM components UNION SELECT hash FROM files UNION SELECT name FROM symbols UNION"
    " SELECT kind FROM edges UNION SELECT module FROM external_imports UNION SELECT message FROM"
    " index_errors UNION SELECT substr(text, 1, instr(text, ' ') - 1) FROM code_chunks";

/// True when neither the log nor its index is beside the file.
bool nothing_left_beside(const std::filesystem::path& path);

/// Makes the file, "index.db", in `directory`; beside an index "staging.db" with the mark "new".
void make_file(Operation::File file, const std::filesystem::path& directory);
inline std::filesystem::path index_in(const std::filesystem::path& directory) {
  return directory / "index.db";
}

/// What a run came to: the text of a documented error, or "". Anything else fails the test.
std::string outcome_of(const std::function<void()>& run);

/// An operation, a copy of its files for every try, and every state of the index file that another
/// program may ever see: what a failure leaves must be one of them, whole.
class OperationTest : public testing::TestWithParam<Operation> {
 protected:
  OperationTest() { make_file(GetParam().file, _template.path()); }

  void copy_files(const TempDirectory& to) const;

  /// Connects, unless that is the operation's own part.
  static void prepare(Database& db);

  /// Lets the operation run twice without a fault.
  void note_states();

  /// The file is one of the noted states, and every check of SQLite finds it sound.
  void expect_whole(const std::filesystem::path& index) const;

  /// The operation runs on `db`, or on a database of its own, and leaves what it should.
  void expect_works(Database& db) const;
  void expect_works(const std::filesystem::path& index) const;

  std::set<std::string> states;
  std::set<std::string> ends;  ///< after one run, and after two
  std::string start;           ///< before the first
  std::string end;             ///< after one

 private:
  TempDirectory _template;
  LogCapture _log;
};

}  // namespace veldra
