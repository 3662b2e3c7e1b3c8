#pragma once

#include <string>
#include <vector>

namespace veldra::tool {

/// Prints lines of cells in columns as wide as needed, numbers to the right. The first
/// `LINES_MEASURED` say how wide that is; those behind them are printed as they come.
class Table {
 public:
  explicit Table(std::vector<std::string> headings) : _headings(std::move(headings)) {}

  static constexpr std::size_t LINES_MEASURED = 1000;

  void add(std::vector<std::string> cells);

  /// What is not printed yet; afterwards the table is done.
  void print();

 private:
  void _print_line(const std::vector<std::string>& cells) const;

  std::vector<std::string> _headings;
  std::vector<std::vector<std::string>> _lines;  // not printed yet
  std::vector<std::size_t> _widths;              // none before the first is printed
};

}  // namespace veldra::tool
