// The SQL functions on paths, as SQLite calls them.
#include "veldra/sqlite/path_functions.h"

#include <sqlite3.h>

#include <string_view>

#include "veldra/errors.h"
#include "veldra/sqlite/connection.h"
#include "veldra/utils/path_filter.h"

namespace veldra {

namespace {

std::string_view text_of(sqlite3_value* value) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
  return text == nullptr
             ? std::string_view()
             : std::string_view(text, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

template <bool (*answer)(std::string_view, std::string_view)>
void path_function(sqlite3_context* context, int /*count*/, sqlite3_value** arguments) {
  if (sqlite3_value_type(arguments[0]) == SQLITE_NULL ||
      sqlite3_value_type(arguments[1]) == SQLITE_NULL)
    return;  // a function that sets no result returns NULL
  sqlite3_result_int(context, answer(text_of(arguments[0]), text_of(arguments[1])) ? 1 : 0);
}

}  // namespace

void register_path_functions(Connection& connection) {
  struct Function {
    const char* name;
    void (*run)(sqlite3_context*, int, sqlite3_value**);
  };
  static constexpr Function FUNCTIONS[] = {{"path_under", &path_function<path_is_under>},
                                           {"path_glob", &path_function<path_matches>}};
  static constexpr int HARMLESS = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  for (const auto& [name, run] : FUNCTIONS) {
    const int code = sqlite3_create_function_v2(connection.handle(), name, 2, HARMLESS, nullptr,
                                                run, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) throw_error(code, sqlite3_errmsg(connection.handle()));
  }
}

}  // namespace veldra
