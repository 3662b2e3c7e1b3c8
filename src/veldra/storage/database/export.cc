// A copy of the file as it is at one commit.
#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <system_error>

#include "veldra/platform/new_file.h"
#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"
#include "veldra/storage/index_file.h"

namespace veldra {
namespace {

void refuse_the_index_itself(const std::filesystem::path& target,
                             const std::filesystem::path& index) {
  std::error_code code;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(target, code);
  for (const char* const part : {"", "-wal", "-shm", "-journal"}) {
    const std::filesystem::path taken = index.string() + part;
    if (resolved == taken || std::filesystem::equivalent(target, taken, code))
      throw ProgrammingError("cannot export onto the open index: " + target.string() +
                             " is a part of it, choose another name");
  }
}

/// The pages of one step of a copy; the disk writes them while the next are copied.
constexpr int PAGES_AT_ONCE = 1024;

/// Copies every page of `from`, as one read transaction sees them: no writer waits.
void copy_pages(Connection& from, Connection& to, const NewFile& file) {
  from.execute("BEGIN");
  from.fetchone("SELECT 1 FROM sqlite_master");  // the state is that of the first read
  const std::unique_ptr<sqlite3_backup, decltype(&sqlite3_backup_finish)> backup(
      sqlite3_backup_init(to.handle(), "main", from.handle(), "main"), &sqlite3_backup_finish);
  if (!backup) throw_error(sqlite3_extended_errcode(to.handle()), sqlite3_errmsg(to.handle()));
  int code = SQLITE_OK;
  while ((code = sqlite3_backup_step(backup.get(), PAGES_AT_ONCE)) == SQLITE_OK)
    file.start_writing();
  if (code != SQLITE_DONE) throw_error(code, sqlite3_errstr(code));
}

/// Marks a file that nobody has open as one in rollback-journal mode, which can be read on
/// read-only media: the two version numbers at offset 18 of its header
/// (https://www.sqlite.org/fileformat.html#file_format_version_numbers).
void leave_wal_mode(const NewFile& file) {
  constexpr std::array<unsigned char, 2> ROLLBACK_JOURNAL = {1, 1};
  if (::pwrite(file.descriptor(), ROLLBACK_JOURNAL.data(), ROLLBACK_JOURNAL.size(), 18) !=
      static_cast<ssize_t>(ROLLBACK_JOURNAL.size()))
    throw_os_error({errno, std::generic_category()}, "cannot write to", file.path());
}

}  // namespace

std::int64_t Database::export_to(const std::filesystem::path& path) {
  const std::shared_ptr<const IndexFile> index = _file.load();  // `close` forgets it last
  (void)connection();  // throws when the database is not open
  if (db_path == ":memory:")
    throw ProgrammingError("a database in memory cannot be exported: it has no file");
  (void)plain_file_name(path);  // throws for a name that no file can have
  refuse_the_index_itself(path, index->path());

  Connection from(index->path(), Connection::Mode::ReadOnly);
  index->require_in_place();
  NewFile file(path);
  {
    Connection to(file.path());
    // Nobody reads the file before it is published, and then it is synced as a whole.
    for (const char* const pragma : {"PRAGMA journal_mode=OFF", "PRAGMA synchronous=OFF"})
      to.fetchall(pragma);
    copy_pages(from, to, file);
    to.close();
  }
  leave_wal_mode(file);
  return file.publish();
}

}  // namespace veldra
