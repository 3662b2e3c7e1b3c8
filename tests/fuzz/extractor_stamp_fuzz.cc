// libFuzzer: no bytes in the place of the extractor stamp crash its parser, and what it reads it
// writes back so that it reads the same.
#include <spdlog/spdlog.h>

#include <cstdlib>

#include "veldra/storage/database_internal.h"
#include "veldra/utils/flat_json.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const bool quiet = (spdlog::set_level(spdlog::level::off), true);
  (void)quiet;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto stamp = veldra::_parse_extractor_stamp(text);
  if (stamp && veldra::_parse_extractor_stamp(veldra::format_flat_json(*stamp)) != stamp)
    std::abort();
  return 0;
}
