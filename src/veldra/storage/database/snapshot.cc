// Queries on one state: the read transaction that holds it, on a reader or on the writer.
#include "veldra/storage/snapshot.h"

#include <utility>

#include "veldra/storage/database.h"
#include "veldra/storage/database_internal.h"

namespace veldra {
namespace {

/// A transaction on a read connection for a scope. There is nothing to commit.
class ReadTransaction {
 public:
  explicit ReadTransaction(Connection& reader) : _reader(reader) { _reader.begin(); }
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;
  ~ReadTransaction() { _reader.roll_back(); }

 private:
  Connection& _reader;
};

/// Asking is what begins a deferred transaction, so what follows is of that generation.
std::int64_t generation_of(Connection& connection, const QueryTerms& terms) {
  const std::optional<Row> row = connection.fetchone("PRAGMA user_version", {}, terms);
  return row ? (*row)[0].as_integer() : 0;
}

}  // namespace

Snapshot::Snapshot(Connection& connection, const Deadline& deadline,
                   std::function<void(std::string_view)> tell)
    : _connection(connection),
      _terms{.deadline = &deadline, .refuses_changes = true},
      _tell(std::move(tell)),
      _generation(generation_of(connection, _terms)) {}

std::optional<Row> Snapshot::fetchone(std::string_view sql, const Params& params) {
  _tell(sql);
  return _connection.fetchone(sql, params, _terms);
}

std::vector<Row> Snapshot::fetchall(std::string_view sql, const Params& params) {
  _tell(sql);
  return _connection.fetchall(sql, params, _terms);
}

void Snapshot::fetcheach(std::string_view sql, const Params& params,
                         const std::function<bool(const Row&)>& visit) {
  _tell(sql);
  _connection.fetcheach(sql, params, visit, _terms);
}

void Database::snapshot(const std::function<void(Snapshot&)>& body, const Limits& limits) {
  const Deadline deadline = _deadline(limits);
  if (_snapshot_on_reader(body, deadline)) return;
  const Holding holding(*this, "snapshot", deadline);
  transaction([&](Cursor&) {
    Snapshot snapshot(*connection(), deadline, [](std::string_view) {});
    const CallersCode inside(*this);
    body(snapshot);
  });
}

bool Database::_snapshot_on_reader(const std::function<void(Snapshot&)>& body,
                                   const Deadline& deadline) {
  const std::shared_ptr<ReaderPool> readers = _readers_for_this_thread();
  if (!readers) return false;
  bool begun = false;
  try {
    const ReaderPool::Lease reader = readers->lease(_patience(), "", deadline);
    const ReadTransaction transaction(*reader);
    Snapshot snapshot(*reader, deadline, [&](std::string_view sql) { reader.show(sql); });
    const CallersCode inside(*this);
    begun = true;
    body(snapshot);
    return true;
  } catch (const ReaderUnavailable&) {
    if (begun) throw;
  } catch (const OperationalError& error) {
    if (begun || !_reader_cannot_serve(error)) throw;
  }
  return false;
}

}  // namespace veldra
