// veldra-index export: a copy of the index for another host.
#include <iostream>
#include <memory>

#include "veldra-index/commands/command.h"
#include "veldra-index/index/open_index.h"
#include "veldra-index/terminal/failure.h"
#include "veldra-index/terminal/json_output.h"
#include "veldra-index/terminal/number_text.h"
#include "veldra-index/terminal/style.h"

namespace veldra::tool {
namespace {

int export_index(const Options& options, const std::filesystem::path& file) {
  OpenIndex index = OpenIndex::existing(index_of(options.directory, options.db).place);
  const std::int64_t bytes = index->export_to(file);
  if (options.json)
    print_json({{"file", file.string()}, {"bytes", bytes}});
  else if (!options.quiet)
    std::cout << as_size(bytes) << " in " << one_line(file.string()) << '\n';
  return EXIT_DONE;
}

}  // namespace

Command export_command(const Options& options) {
  const auto file = std::make_shared<std::filesystem::path>();
  return {
      .name = "export",
      .summary = "Copy the index, as it is, into a file",
      .details =
          "One file that can be moved to another host and imported there. It is written whole or "
          "not at all, while others search and update.",
      .examples = {{"veldra-index export /srv/indexes/project.db"}},
      .arguments = {{.names = "FILE",
                     .value = "",
                     .text = "The file to write; one that is there is replaced",
                     .target = file.get(),
                     .required = true,
                     .completion = Argument::Completion::File}},
      .exit_status = "",
      .run = [&options, file] { return export_index(options, *file); },
  };
}

}  // namespace veldra::tool
