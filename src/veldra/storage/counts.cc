// Looking a count up by its name.
#include "veldra/storage/counts.h"

#include <algorithm>
#include <stdexcept>

namespace veldra {

std::int64_t Counts::at(std::string_view name) const {
  const auto entry = std::ranges::find(_entries, name, &Entry::first);
  if (entry == _entries.end())
    throw std::out_of_range("no count named '" + std::string(name) + "'");
  return entry->second;
}

bool Counts::contains(std::string_view name) const noexcept {
  return std::ranges::find(_entries, name, &Entry::first) != _entries.end();
}

}  // namespace veldra
