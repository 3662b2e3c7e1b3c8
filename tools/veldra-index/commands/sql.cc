// veldra-index sql: read-only questions in SQL.
#include <algorithm>
#include <array>
#include <cctype>
#include <iostream>
#include <memory>
#include <optional>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/read_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/output.h"
#include "veldra-index/terminal/style.h"
#include "veldra-index/terminal/table.h"

namespace veldra::tool {
namespace {

/// By its first word. Others may write even where writes to tables are refused: VACUUM INTO makes a
/// file, a PRAGMA changes the journal mode.
bool is_question(std::string_view query) {
  static constexpr std::array<std::string_view, 4> WORDS = {"select", "values", "with", "explain"};
  const std::size_t begin = std::min(query.find_first_not_of(" \t\r\n("), query.size());
  std::string word;
  for (const char letter : query.substr(begin)) {
    if (std::isalpha(static_cast<unsigned char>(letter)) == 0) break;
    word += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return std::find(WORDS.begin(), WORDS.end(), word) != WORDS.end();
}

std::vector<std::string> column_names(const Row& row) {
  std::vector<std::string> names;
  for (std::size_t at = 0; at < row.size(); ++at) names.push_back(row.column_name(at));
  return names;
}

/// Prints rows as they come: `{"columns": […], "rows": […]}`, a row per line.
class JsonRows {
 public:
  void add(const Row& row) {
    if (!_begun) _begin(column_names(row));
    Json cells = Json::array();
    for (std::size_t at = 0; at < row.size(); ++at) cells.push_back(to_json(row[at]));
    std::cout << (_any ? ",\n    " : "\n    ") << compact_json(cells);
    _any = true;
  }

  void end() {
    if (!_begun) _begin({});
    std::cout << (_any ? "\n  ]\n}\n" : "]\n}\n");
  }

 private:
  void _begin(const std::vector<std::string>& columns) {
    std::cout << "{\n  \"columns\": " << compact_json(columns) << ",\n  \"rows\": [";
    _begun = true;
  }

  bool _begun = false;
  bool _any = false;
};

/// Prints rows as a table, as they come.
class TableRows {
 public:
  void add(const Row& row) {
    if (!_table) _table.emplace(column_names(row));
    std::vector<std::string> cells;
    for (std::size_t at = 0; at < row.size(); ++at) cells.push_back(one_line(to_text(row[at])));
    _table->add(std::move(cells));
  }

  void end(bool quiet) {
    if (_table)
      _table->print();
    else if (!quiet)
      std::cout << "no rows\n";
  }

 private:
  std::optional<Table> _table;
};

int sql(const Options& options, const std::string& query) {
  if (!is_question(query)) {
    throw Failure("only questions are answered: begin with SELECT, VALUES, WITH or EXPLAIN",
                  EXIT_USAGE);
  }
  ReadIndex index(index_of(options.directory, options.db).place);
  JsonRows as_json;
  TableRows as_table;
  try {
    index.fetcheach(query, {}, [&](const Row& row) {
      options.json ? as_json.add(row) : as_table.add(row);
      return output_error() == 0;
    });
  } catch (const Error& error) {
    throw Failure(std::string(error.what()) + "; `veldra-index sql --help` shows an example");
  }
  options.json ? as_json.end() : as_table.end(options.quiet);
  return EXIT_DONE;
}

}  // namespace

Command sql_command(const Options& options) {
  const auto query = std::make_shared<std::string>();
  return {
      .name = "sql",
      .summary = "Ask the index a question in SQL, read-only",
      .details = "One statement that begins with SELECT, VALUES, WITH or EXPLAIN.",
      .examples = {{"veldra-index sql 'SELECT kind, count(*) FROM symbols GROUP BY kind'"}},
      .arguments = {{"QUERY", "", "One SELECT, VALUES, WITH or EXPLAIN", query.get(), true}},
      .exit_status = "",
      .run = [&options, query] { return sql(options, *query); },
  };
}

}  // namespace veldra::tool
