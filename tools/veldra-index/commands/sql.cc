// veldra-index sql: read-only questions in SQL.
#include <algorithm>
#include <array>
#include <cctype>
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
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

void print_as_json(const std::vector<Row>& rows) {
  Json json = {{"columns", Json::array()}, {"rows", Json::array()}};
  for (std::size_t at = 0; !rows.empty() && at < rows[0].size(); ++at) {
    json["columns"].push_back(rows[0].column_name(at));
  }
  for (const Row& row : rows) {
    Json cells = Json::array();
    for (std::size_t at = 0; at < row.size(); ++at) cells.push_back(to_json(row[at]));
    json["rows"].push_back(std::move(cells));
  }
  print_json(json);
}

void print_as_table(const std::vector<Row>& rows) {
  std::vector<std::string> headings;
  for (std::size_t at = 0; at < rows[0].size(); ++at) headings.push_back(rows[0].column_name(at));
  Table table(std::move(headings));
  for (const Row& row : rows) {
    std::vector<std::string> cells;
    for (std::size_t at = 0; at < row.size(); ++at) cells.push_back(one_line(to_text(row[at])));
    table.add(std::move(cells));
  }
  table.print();
}

int sql(const Options& options, const std::string& query) {
  if (!is_question(query)) {
    throw Failure("only questions are answered: begin with SELECT, VALUES, WITH or EXPLAIN",
                  EXIT_USAGE);
  }
  const IndexPlace place = find_index(options.directory, options.db);
  OpenIndex index = OpenIndex::existing(place);
  // On the writer, which knows the functions on paths, made to refuse what a WITH may write.
  index->execute("PRAGMA query_only = ON").close();
  std::vector<Row> rows;
  try {
    rows = index->connection()->execute(query).fetchall();
  } catch (const Error& error) {
    throw Failure(std::string(error.what()) + "; `veldra-index sql --help` shows an example");
  }
  if (options.json) {
    print_as_json(rows);
  } else if (rows.empty()) {
    if (!options.quiet) std::cout << "no rows\n";
  } else {
    print_as_table(rows);
  }
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
