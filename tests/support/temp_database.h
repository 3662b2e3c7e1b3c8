#pragma once

#include <string>
#include <string_view>

#include "support/temp_directory.h"
#include "veldra/storage/database.h"

namespace veldra {

/// What `sql` gives, rendered so that one comparison covers it: columns joined by "|", rows by a
/// newline; NULL, texts and numbers as they are, blobs as "x'00ff'".
std::string dump(Database& db, std::string_view sql);
std::string dump(Connection& connection, std::string_view sql);

/// A database in a directory of its own, open and with its schema unless told otherwise.
class TempDatabase {
 public:
  enum class State { Unconnected, Connected, Ready };

  explicit TempDatabase(State state = State::Ready);

  Database& operator*() { return db; }
  Database* operator->() { return &db; }

  TempDirectory directory;  // first: it outlives the database in it
  Database db;
};

/// Connects, creates and migrates, as every program does at its start.
void open(Database& db);

}  // namespace veldra
