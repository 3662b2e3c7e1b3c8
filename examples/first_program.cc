#include <iostream>

#include "veldra/storage/database.h"

int main() {
  veldra::Database db("first.db");
  db.connect();
  db.create_schema();
  db.migrate_schema();

  db.transaction([](veldra::Cursor& cursor) {
    cursor.execute("REPLACE INTO files(path, language, hash) VALUES (?, ?, ?)",
                   {"src/main.cc", "C++", "5d41402a"});
    cursor.execute(
        "INSERT INTO symbols(file_id, name, kind, start_line) SELECT id, ?, ?, ? FROM files",
        {"main", "function", 12});
  });

  const auto rows =
      db.fetchall("SELECT path, name, start_line FROM symbols JOIN files ON files.id = file_id");
  for (const veldra::Row& row : rows) {
    std::cout << row["path"].as_text() << ':' << row["start_line"].as_integer() << ' '
              << row["name"].as_text() << '\n';
  }
  db.close();
}
