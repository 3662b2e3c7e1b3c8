// A search box: each key that is pressed ends the query before it, on whatever it waits.
#include <chrono>
#include <filesystem>
#include <iostream>
#include <stop_token>
#include <string>
#include <thread>

#include "veldra/storage/database.h"

namespace {

class SearchBox {
 public:
  explicit SearchBox(veldra::Database& db) : _db(db) {}

  /// The user has typed on: asks for `text`, and for nothing before it any more.
  void type(std::string text) {
    _query = std::jthread(  // the thread before is told to stop, and joined
        [this, text = std::move(text)](const std::stop_token& stop) { _search(text, stop); });
  }

  void wait() { _query.join(); }

 private:
  void _search(const std::string& text, const std::stop_token& stop) {
    const veldra::Limits limits = {.timeout = std::chrono::seconds(2), .stop = stop};
    try {
      for (const veldra::Row& row : _db.fetchall(
               "SELECT name FROM symbols WHERE name LIKE ? ORDER BY name", {text + "%"}, limits))
        std::cout << text << ": " << row["name"].as_text() << '\n';
    } catch (const veldra::QueryInterrupted&) {
      // A newer text is asked for, or this one takes too long to be of use.
    }
  }

  veldra::Database& _db;
  std::jthread _query;
};

}  // namespace

int main() {
  std::filesystem::remove("searched.db");
  veldra::Database db("searched.db");
  db.connect();
  db.create_schema();
  db.execute("INSERT INTO files (id, path, language, hash) VALUES (1, 'a.cc', 'C++', 'd41d8cd9')");
  for (const char* const name : {"compact", "connect", "close"})
    db.execute("INSERT INTO symbols (file_id, name, kind) VALUES (1, ?, 'function')", {name});

  SearchBox box(db);
  for (const char* const text : {"c", "co", "con"}) box.type(text);
  box.wait();  // "con: connect", and what the others found before they were told to stop
  db.close();
}
