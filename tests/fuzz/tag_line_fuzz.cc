// libFuzzer: the scanner of ctags' lines reads from every flat JSON object what nlohmann's parser
// reads, and no bytes take it out of the line.
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "veldra-index/parse/tag_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string line = text;
  veldra::tool::TagLine tag;
  const bool read = veldra::tool::read_tag_line(line, tag);

  // A line has no end of line in it, and a NUL is the end to nlohmann's parser.
  if (text.find_first_of(std::string_view("\0\n\r", 3)) != std::string::npos) return 0;
  const auto json = nlohmann::json::parse(text, nullptr, false);
  if (!json.is_object()) return 0;
  for (const auto& member : json)
    if (member.is_structured()) return 0;
  if (!read) std::abort();
  const auto agrees = [&](const char* name, std::string_view value) {
    const auto member = json.find(name);
    return member == json.end() || !member->is_string() || member->get<std::string>() == value;
  };
  if (!agrees("_type", tag.type) || !agrees("name", tag.name) || !agrees("kind", tag.kind) ||
      !agrees("language", tag.language) || !agrees("scope", tag.scope))
    std::abort();
  return 0;
}
