#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "veldra/storage/database.h"

namespace veldra {

/// Makes an index of a few files, all of whose rows carry `mark`, and the table `kept` with a row
/// in it, which no operation of the layer touches. The tables are made by the layer; a file that is
/// there already keeps its pages and its auto-vacuum mode.
void make_index(const std::filesystem::path& path, std::string_view mark);

/// Makes an empty file with pages of 512 bytes, so that a small one has many.
void make_small_pages(const std::filesystem::path& path, std::string_view auto_vacuum);

/// Leaves enough free pages in a file of small pages for a compaction to have something to do.
void leave_free_pages(const std::filesystem::path& path);

/// The marks in a file, one a line: more than one is two generations at once.
inline constexpr std::string_view MARKS =
    "SELECT name FROM components UNION SELECT hash FROM files UNION SELECT name FROM symbols UNION"
    " SELECT kind FROM edges UNION SELECT module FROM external_imports UNION SELECT message FROM"
    " index_errors UNION SELECT substr(text, 1, instr(text, ' ') - 1) FROM code_chunks";

/// A file as another program finds it.
struct FileState {
  std::string content;  ///< generation, schema and every row, as text
  std::string damage;   ///< what the integrity, foreign-key and full-text checks say; "" when sound

  friend bool operator<(const FileState& a, const FileState& b) { return a.content < b.content; }
};
FileState look_at(const std::filesystem::path& path);

/// True when neither the log nor its index is beside the file.
bool nothing_left_beside(const std::filesystem::path& path);

}  // namespace veldra
