// What an argument says of itself.
#include "veldra-index/commands/command.h"

#include <sstream>
#include <type_traits>

namespace veldra::tool {

ParseLimits limits_of(const Options& options) {
  return {options.jobs, std::chrono::seconds(options.file_limit_s)};
}

std::vector<std::string> Argument::spellings() const {
  std::vector<std::string> all;
  std::istringstream stream(names);
  for (std::string name; std::getline(stream, name, ',');) all.push_back(name);
  return all;
}

std::string Argument::default_text() const {
  if (!standard.empty() || is_flag()) return standard;
  return std::visit(
      [](const auto* held) -> std::string {
        using Held = std::remove_cvref_t<decltype(*held)>;
        if constexpr (std::is_arithmetic_v<Held>)
          return std::to_string(*held);
        else if constexpr (std::is_same_v<Held, std::string>)
          return *held;
        else
          return {};
      },
      target);
}

}  // namespace veldra::tool
