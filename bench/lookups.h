#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "veldra/storage/database.h"

namespace veldra::bench {

/// One way to look a symbol up, used by one thread at a time. Each operation finds one row and
/// reads its six columns.
class Lookup {
 public:
  Lookup() = default;
  Lookup(const Lookup&) = delete;
  Lookup& operator=(const Lookup&) = delete;
  virtual ~Lookup() = default;

  virtual void by_key(std::int64_t key) = 0;
  virtual void by_name(const std::string& name) = 0;
};

/// A connection of the C interface with statements cached by hand.
std::unique_ptr<Lookup> bare_lookup(const std::filesystem::path& path, int flags);

/// `fetchone` of a database that outlives the lookup.
std::unique_ptr<Lookup> veldra_lookup(Database& db);

/// A connection of SQLiteCpp, whose users prepare a statement for each query.
std::unique_ptr<Lookup> sqlitecpp_lookup(const std::filesystem::path& path);

}  // namespace veldra::bench
