// Preparing statements, and keeping them prepared between their uses.
#include "veldra/sqlite/statement.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "veldra/errors.h"
#include "veldra/utils/ascii.h"

namespace veldra {
namespace {

/// Every process asks for it before it trusts its caches; it is carried out when it is stepped.
constexpr std::string_view POLLED_PRAGMA = "PRAGMA user_version";

bool is_word(std::string_view sql, std::string_view upper_case_word) {
  return sql.size() >= upper_case_word.size() &&
         sqlite3_strnicmp(sql.data(), upper_case_word.data(),
                          static_cast<int>(upper_case_word.size())) == 0;
}

bool begins_with_any(std::string_view sql, std::span<const std::string_view> words) {
  return std::ranges::any_of(words, [&](std::string_view word) { return is_word(sql, word); });
}

constexpr std::array<std::string_view, 5> CHANGES = {"INSERT", "UPDATE", "DELETE", "REPLACE",
                                                     "WITH"};

/// They write nothing themselves, so SQLite calls them read-only.
constexpr std::array<std::string_view, 8> CONTROLS = {"BEGIN",     "COMMIT",  "END",    "ROLLBACK",
                                                      "SAVEPOINT", "RELEASE", "ATTACH", "DETACH"};

}  // namespace

std::string_view skip_blank_sql(std::string_view sql) noexcept {
  while (!sql.empty()) {
    if (sql.find_first_of(" \t\n\f\r;") == 0) {
      sql.remove_prefix(1);
    } else if (sql.starts_with("--")) {
      sql.remove_prefix(std::min(sql.find('\n'), sql.size()));
    } else if (sql.starts_with("/*")) {
      const std::size_t end = sql.find("*/", 2);
      sql.remove_prefix(end == std::string_view::npos ? sql.size() : end + 2);
    } else {
      break;
    }
  }
  return sql;
}

std::unique_ptr<Statement> Statement::prepare(sqlite3* db, std::string_view sql) {
  if (sql.find('\0') != std::string_view::npos) {
    throw ProgrammingError(
        "the SQL text contains a NUL character: bind such a value as a parameter");
  }
  if (sql.size() > std::numeric_limits<int>::max())
    throw_error(SQLITE_TOOBIG, "the SQL text is too long");
  if (sql.empty()) return nullptr;  // it may have no address
  sqlite3_stmt* raw = nullptr;
  const char* tail = nullptr;
  const int code = sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &raw, &tail);
  if (code != SQLITE_OK) throw_error(code, sqlite3_errmsg(db));
  if (raw == nullptr) return nullptr;  // nothing but what SQLite skips
  struct FinalizeOnError {
    sqlite3_stmt* statement;
    ~FinalizeOnError() { sqlite3_finalize(statement); }
  } on_error{raw};
  const auto used = static_cast<std::size_t>(tail - sql.data());
  if (!skip_blank_sql(sql.substr(used)).empty())
    throw ProgrammingError("the SQL text holds more than one statement: run them one by one");
  std::unique_ptr<Statement> statement(new Statement(raw, sql));
  on_error.statement = nullptr;
  return statement;
}

Statement::Statement(sqlite3_stmt* statement, std::string_view sql)
    : _statement(statement),
      _sql(sql),
      _parameters(sqlite3_bind_parameter_count(statement)),
      _only_reads(sqlite3_stmt_readonly(statement) != 0),
      _is_query(_only_reads && !begins_with_any(skip_blank_sql(sql), CONTROLS)),
      _counts_changes(!_only_reads && begins_with_any(skip_blank_sql(sql), CHANGES)),
      _reusable(!is_word(skip_blank_sql(sql), "PRAGMA") ||
                equal_ignoring_case(sql, POLLED_PRAGMA)) {}

Statement::~Statement() {
  finalize();
}

const std::shared_ptr<const ColumnNames>& Statement::column_names() {
  const int preparation = sqlite3_stmt_status(_statement, SQLITE_STMTSTATUS_REPREPARE, 0);
  if (preparation == _names_of_preparation) return _names;
  auto names = std::make_shared<ColumnNames>();
  const int count = sqlite3_column_count(_statement);
  names->reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    const char* const name = sqlite3_column_name(_statement, i);
    if (name == nullptr) throw_error(SQLITE_NOMEM, "out of memory");
    names->emplace_back(name);
  }
  _names = std::move(names);
  _names_of_preparation = preparation;
  return _names;
}

void require_query(const Statement* statement) {
  if (statement != nullptr && !statement->is_query())
    throw_error(SQLITE_READONLY, sqlite3_errstr(SQLITE_READONLY));
}

void Statement::reset() noexcept {
  gave_row = false;
  sqlite3_reset(_statement);
  if (_parameters > 0) sqlite3_clear_bindings(_statement);
}

void Statement::finalize() noexcept {
  sqlite3_finalize(_statement);
  _statement = nullptr;
}

Statement* StatementCache::lend(std::string_view sql) noexcept {
  for (auto kept = _kept.rbegin(); kept != _kept.rend(); ++kept) {
    if (kept->length != sql.size() || kept->lent || kept->statement->sql() != sql) continue;
    kept->lent = true;
    std::rotate(_kept.rbegin(), kept, std::next(kept));
    return _kept.back().statement.get();
  }
  return nullptr;
}

Statement* StatementCache::add(std::unique_ptr<Statement> statement) {
  const std::size_t length = statement->sql().size();
  _kept.push_back({.length = length, .statement = std::move(statement), .lent = true});
  return _kept.back().statement.get();
}

const Statement* StatementCache::running() const noexcept {
  const auto found = std::ranges::find_if(_kept, [](const Kept& kept) {
    return kept.lent && sqlite3_stmt_busy(kept.statement->get()) != 0;
  });
  return found == _kept.end() ? nullptr : found->statement.get();
}

std::vector<StatementCache::Kept>::iterator StatementCache::_find(
    const Statement* statement) noexcept {
  const auto kept = std::ranges::find(_kept.rbegin(), _kept.rend(), statement,
                                      [](const Kept& it) { return it.statement.get(); });
  return std::next(kept).base();
}

void StatementCache::abandon(const Statement* statement) noexcept {
  _find(statement)->abandoned = _any_abandoned = true;
}

void StatementCache::take_back_abandoned() noexcept {
  _any_abandoned = false;
  while (true) {
    const auto kept = std::ranges::find(_kept, true, &Kept::abandoned);
    if (kept == _kept.end()) return;
    kept->abandoned = false;
    take_back(kept->statement.get());
  }
}

void StatementCache::take_back(Statement* statement) noexcept {
  const auto kept = _find(statement);
  if (statement->get() == nullptr || !statement->reusable()) {
    _kept.erase(kept);
    return;
  }
  statement->reset();
  kept->lent = false;
  if (_kept.size() > CAPACITY) _kept.erase(std::ranges::find(_kept, false, &Kept::lent));
}

void StatementCache::finalize() noexcept {
  std::erase_if(_kept, [](const Kept& kept) { return !kept.lent; });
  for (const Kept& kept : _kept) kept.statement->finalize();
}

}  // namespace veldra
