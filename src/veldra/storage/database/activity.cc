// What is going on, told without waiting for any of it.
#include "veldra/storage/activity.h"

#include <sys/stat.h>

#include <cerrno>

#include "veldra/platform/coarse_clock.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"

namespace veldra {
namespace {

std::chrono::milliseconds time_since(std::chrono::steady_clock::time_point moment) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(coarse_now() - moment);
}

std::int64_t size_of_log(const IndexFile& file) {
  const std::string log = file.path().string() + "-wal";
  struct stat found {};
  if (::stat(log.c_str(), &found) == 0) return found.st_size;
  if (errno == ENOENT || errno == ENOTDIR) return 0;
  throw_os_error({errno, std::generic_category()}, "cannot read the size of", log);
}

}  // namespace

Activity Database::activity() const {
  (void)connection();
  Activity activity;
  if (const std::shared_ptr<const IndexFile> file = _file.load())
    activity.log_bytes = size_of_log(*file);
  if (const std::shared_ptr<ReaderPool> readers = _readers.load()) {
    ReaderPool::Use use = readers->use();
    activity.readers_open = use.open;
    activity.readers_lent = use.lent;
    if (use.oldest) activity.oldest_read = time_since(*use.oldest);
    activity.oldest_read_sql = std::move(use.oldest_sql);
  }
  FairMutex::Use use = _lock.use();
  if (use.since) activity.writer_busy = time_since(*use.since);
  activity.writer_operation = std::move(use.purpose);
  activity.writers_waiting = use.waiting;
  return activity;
}

}  // namespace veldra
