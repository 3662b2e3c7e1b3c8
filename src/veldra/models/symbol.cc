// Which symbols are listed to a user.
#include "veldra/models/symbol.h"

namespace veldra {

std::string listed_sql() {
  return std::string("kind <> '").append(ANCHOR_KIND).append("'");
}

}  // namespace veldra
