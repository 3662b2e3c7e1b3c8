#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "veldra/export.h"

namespace veldra {

/// An ordered mapping from a name to a count; iteration gives pairs in the order they were added.
class VELDRA_EXPORT Counts {
 public:
  using Entry = std::pair<std::string, std::int64_t>;

  Counts() = default;
  Counts(std::initializer_list<Entry> entries) : _entries(entries) {}

  /// Throws `std::out_of_range` when there is no such name.
  std::int64_t at(std::string_view name) const;
  bool contains(std::string_view name) const noexcept;
  std::size_t size() const noexcept { return _entries.size(); }
  auto begin() const noexcept { return _entries.begin(); }
  auto end() const noexcept { return _entries.end(); }

  /// Adds a name behind the others; the caller adds each name once.
  void add(std::string_view name, std::int64_t count) { _entries.emplace_back(name, count); }

  friend bool operator==(const Counts&, const Counts&) = default;

 private:
  std::vector<Entry> _entries;  // few and short-lived: searched, not hashed
};

}  // namespace veldra
