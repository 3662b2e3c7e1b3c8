// Runs a number of point queries one way, for callgrind to count their instructions: see
// instructions.sh.
#include <iostream>
#include <string>
#include <vector>

#include "lookups.h"
#include "support.h"

namespace veldra::bench {
namespace {

void look_up(Lookup& lookup, const std::string& query, std::int64_t count) {
  for (std::int64_t number = 1; number <= count; ++number)
    if (query == "key")
      lookup.by_key(number);
    else
      lookup.by_name(symbol(number).name);
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() == 2 && arguments[0] == "make") {
    make_index(arguments[1], SHARED);
    return 0;
  }
  if (arguments.size() != 4) {
    std::cerr << "veldra_instructions make FILE\n"
                 "veldra_instructions bare|veldra|sqlitecpp key|name FILE COUNT\n";
    return 2;
  }
  const std::filesystem::path path = arguments[2];
  Database db(path);
  db.connect();  // whichever way: an open database keeps the file's log as it is for every reader
  std::unique_ptr<Lookup> lookup;
  if (arguments[0] == "bare")
    lookup = bare_lookup(path, SQLITE_OPEN_READWRITE);
  else if (arguments[0] == "sqlitecpp")
    lookup = sqlitecpp_lookup(path);
  else
    lookup = veldra_lookup(db);
  look_up(*lookup, arguments[1], std::stoll(arguments[3]));
  return 0;
}

}  // namespace
}  // namespace veldra::bench

int main(int count, char** arguments) {
  return veldra::bench::run({arguments + 1, arguments + count});
}
