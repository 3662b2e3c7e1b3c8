#pragma once

#include <string>
#include <vector>

namespace veldra::tool {

/// Prints lines of cells in columns as wide as needed, numbers to the right.
class Table {
 public:
  explicit Table(std::vector<std::string> headings) : _headings(std::move(headings)) {}

  void add(std::vector<std::string> cells) { _lines.push_back(std::move(cells)); }
  void print() const;

 private:
  std::vector<std::string> _headings;
  std::vector<std::vector<std::string>> _lines;
};

}  // namespace veldra::tool
