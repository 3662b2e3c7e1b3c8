// A report made of five queries that all see one state of the index, and say which.
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>

#include "veldra/storage/database.h"

namespace {

std::int64_t count(veldra::Snapshot& state, std::string_view table) {
  const auto row = state.fetchone(std::string("SELECT count(*) FROM ").append(table));
  return (*row)[0].as_integer();
}

void report(veldra::Database& db) {
  db.snapshot([&](veldra::Snapshot& state) {
    std::cout << "generation " << state.index_generation() << '\n';
    for (const std::string_view table : {"files", "symbols", "edges"})
      std::cout << count(state, table) << ' ' << table << '\n';
    // Another process may swap the index now: what follows still fits what was counted.
    const auto languages =
        state.fetchall("SELECT language, count(*) FROM files GROUP BY language ORDER BY language");
    for (const veldra::Row& row : languages)
      std::cout << row[0].as_text() << ": " << row[1].as_integer() << '\n';
    // Row by row: a list of any length takes no memory.
    state.fetcheach("SELECT path FROM files ORDER BY path", {}, [](const veldra::Row& row) {
      std::cout << row["path"].as_text() << '\n';
      return static_cast<bool>(std::cout);
    });
  });
}

}  // namespace

int main() {
  std::filesystem::remove("report.db");
  veldra::Database db("report.db");
  db.connect();
  db.create_schema();
  db.executemany("INSERT INTO files (path, language, hash) VALUES (?, ?, ?)",
                 {{"src/main.cc", "C++", "d41d8cd9"}, {"run.py", "Python", "a3f5"}});
  report(db);
  db.close();
}
