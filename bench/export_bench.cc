// A copy of the index at one commit, beside a copy of the file by the system.
#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "support.h"
#include "veldra/storage/database.h"

namespace veldra::bench {
namespace {

namespace fs = std::filesystem;

void sync(const fs::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0 || ::fsync(descriptor) != 0)
    throw std::runtime_error("cannot sync " + path.string());
  ::close(descriptor);
}

void export_index(benchmark::State& state) {
  const TempDirectory directory;
  Database db(directory / "index.db");
  make_index(db.db_path, {.files = 5000, .symbols = 250'000, .edges = 750'000, .chunks = 10'000});
  db.connect();
  const fs::path copied = directory / "copied.db";
  const fs::path exported = directory / "exported.db";
  compare(state, 1, 1.5,
          {.bare = {.run =
                        [&] {
                          fs::copy_file(db.db_path, copied);
                          sync(copied);
                          sync(copied.parent_path());
                        },
                    .before = [&] { fs::remove(copied); }},
           .veldra = {.run = [&] { db.export_to(exported); },
                      .before = [&] { fs::remove(exported); }}});
  db.close();
}

BENCHMARK(export_index)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace veldra::bench
