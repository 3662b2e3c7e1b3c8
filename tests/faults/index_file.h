#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "veldra/storage/database.h"

namespace veldra {

/// Makes an index of a few files, all of whose rows carry `mark`, and the table `kept` with a row
/// in it, which no operation of the layer touches. The tables are made by the layer; a file that is
/// there already keeps its pages and its auto-vacuum mode.
void make_index(const std::filesystem::path& path, std::string_view mark);

/// The marks in a file, one a line: more than one is two generations at once.
inline constexpr std::string_view MARKS =
    "SELECT name FROM components UNION SELECT hash FROM files UNION SELECT name FROM symbols UNION"
    " SELECT kind FROM edges UNION SELECT module FROM external_imports UNION SELECT message FROM"
    " index_errors UNION SELECT substr(text, 1, instr(text, ' ') - 1) FROM code_chunks";

/// A file as another program finds it.
struct FileState {
  std::string content;  ///< generation, schema and every row, as text
  std::string damage;   ///< what the integrity, foreign-key and full-text checks say; "" when sound
};
FileState look_at(const std::filesystem::path& path);

/// True when neither the log nor its index is beside the file.
bool nothing_left_beside(const std::filesystem::path& path);

}  // namespace veldra
