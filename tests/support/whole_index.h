#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace veldra {

/// Makes an index of a few files, all of whose rows carry `mark`, and the table `kept` with a row
/// in it, which no operation of the layer touches. The tables are made by the layer; a file that is
/// there already keeps its pages and its auto-vacuum mode.
void make_index(const std::filesystem::path& path, std::string_view mark);

/// A file as another program finds it.
struct FileState {
  std::string content;  ///< generation, schema and every row, as text
  std::string damage;   ///< what the integrity, foreign-key and full-text checks say; "" when sound
};
FileState look_at(const std::filesystem::path& path);

}  // namespace veldra
