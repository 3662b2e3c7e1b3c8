// From parsed files to rows.
#include "veldra-index/index/index_writer.h"

#include <algorithm>
#include <set>
#include <utility>

#include "veldra-index/tree/path_text.h"
#include "veldra/models/chunk.h"
#include "veldra/models/symbol.h"

namespace veldra::tool {
namespace {

constexpr std::string_view SYMBOL_COLUMNS =
    "symbols (id, file_id, name, fqn, kind, start_line, end_line, parent_id)";
constexpr std::string_view CHUNK_COLUMNS = "code_chunks (rowid, text, start_line, end_line, exact)";
constexpr std::string_view EXTERNAL_COLUMNS = "external_imports (file_id, module, line)";
constexpr std::string_view EDGE_COLUMNS = "edges (source_id, target_id, kind, line)";

/// Where foreign keys are in force: a statement of several rows that may break one begins with a
/// savepoint, and at each FTS5 writes what it has gathered.
constexpr std::size_t ONE_ROW = 1;
constexpr std::size_t ROWS_AT_ONCE = 64;

/// OR FAIL, which needs no savepoint either: after an error the whole transaction is undone.
std::string insert_of(std::string_view columns, std::size_t rows) {
  const auto count = static_cast<std::size_t>(std::ranges::count(columns, ',')) + 1;
  std::string row = "(?";
  for (std::size_t column = 1; column < count; ++column) row += ", ?";
  row += ')';
  std::string sql = "INSERT OR FAIL INTO " + std::string(columns) + " VALUES " + row;
  while (--rows > 0) sql += ", " + row;
  return sql;
}

bool has_files(Cursor& cursor) {
  cursor.execute("SELECT EXISTS (SELECT 1 FROM files)");
  return cursor.fetchone().value()[0].as_integer() != 0;
}

std::int64_t next_id(Cursor& cursor, std::string_view table) {
  cursor.execute("SELECT coalesce(max(id), 0) + 1 FROM " + std::string(table));
  return cursor.fetchone().value()[0].as_integer();
}

constexpr std::string_view IMPORT_KIND = "import";

Value line_or_null(int line) {
  return line > 0 ? Value(line) : Value();
}

}  // namespace

RowBuffer::RowBuffer(std::string_view columns, std::size_t rows_at_once)
    : _one_row(insert_of(columns, 1)),
      _many_rows(insert_of(columns, rows_at_once)),
      _columns(static_cast<std::size_t>(std::ranges::count(_one_row, '?'))),
      _rows(1, Params(_columns * rows_at_once)) {}

void RowBuffer::_run(Cursor& cursor) {
  cursor.executemany(_many_rows, _rows);
  _used = 0;
}

void RowBuffer::flush(Cursor& cursor) {
  const auto begin = std::make_move_iterator(_rows.front().begin());
  ParamsList rows;
  for (std::size_t at = 0; at < _used; at += _columns)
    rows.emplace_back(begin + static_cast<std::ptrdiff_t>(at),
                      begin + static_cast<std::ptrdiff_t>(at + _columns));
  cursor.executemany(_one_row, rows);
  _used = 0;
}

IndexWriter::IndexWriter(Cursor& cursor, const std::vector<std::string_view>& paths,
                         Manifests manifests)
    : _cursor(cursor),
      _paths(paths),
      _manifests(std::move(manifests)),
      _resolver(paths, _manifests),
      _had_files(has_files(cursor)),
      _symbols(SYMBOL_COLUMNS, _had_files ? ONE_ROW : ROWS_AT_ONCE),
      _chunks(CHUNK_COLUMNS, ONE_ROW),
      _external(EXTERNAL_COLUMNS, _had_files ? ONE_ROW : ROWS_AT_ONCE),
      _edges(EDGE_COLUMNS, _had_files ? ONE_ROW : ROWS_AT_ONCE) {
  _load();
}

void IndexWriter::_load() {
  _cursor.execute("SELECT path, id FROM files");
  while (const std::optional<Row> row = _cursor.fetchone())
    _files.emplace((*row)[0].as_text(), File{(*row)[1].as_integer(), 0});
  _cursor.execute("SELECT name, id FROM components");
  for (const Row& row : _cursor.fetchall())
    _components.emplace(row[0].as_text(), row[1].as_integer());
  _next_file = next_id(_cursor, "files");
  _next_symbol = next_id(_cursor, "symbols");
  _next_component = next_id(_cursor, "components");
}

void IndexWriter::add(const ParsedFile& file) {
  record_problems(file.path, file.problems);
  if (file.same_content) {
    _cursor.execute("UPDATE files SET hash = ? WHERE path = ?", {file.source.stamp, file.path});
    return;
  }
  const File row = _write_file(file);
  _write_symbols(file, row);
  _write_imports(file, row);
  _write_chunks(file, row);
}

bool IndexWriter::remove(std::string_view path) {
  const auto found = _files.find(std::string(path));
  if (found == _files.end()) return false;
  _cursor.execute("DELETE FROM files WHERE id = ?", {found->second.id});
  _cursor.execute("DELETE FROM index_errors WHERE file_path = ?", {path});
  _files.erase(found);
  return true;
}

void IndexWriter::record_problems(std::string_view path, const std::vector<FileProblem>& problems) {
  if (_had_files) _cursor.execute("DELETE FROM index_errors WHERE file_path = ?", {path});
  for (const FileProblem& problem : problems) {
    _cursor.execute(
        "INSERT INTO index_errors (file_path, error_type, message, line) VALUES (?, ?, ?, ?)",
        {path, problem.type, problem.message, problem.line});
  }
}

/// 0 when the file has none. It is the first of the file's symbols, so the search ends at once.
std::int64_t IndexWriter::_anchor_of(File& file) {
  if (file.anchor == 0 && _had_files) {
    _cursor.execute("SELECT id FROM symbols WHERE file_id = ? AND kind = ? ORDER BY id LIMIT 1",
                    {file.id, ANCHOR_KIND});
    if (const std::optional<Row> row = _cursor.fetchone()) file.anchor = (*row)[0].as_integer();
  }
  return file.anchor;
}

/// The top folder; null for a file in the root.
Value IndexWriter::_component_of(std::string_view path) {
  const std::size_t slash = path.find('/');
  if (slash == std::string_view::npos) return {};
  const std::string_view folder = path.substr(0, slash);
  if (const auto found = _components.find(folder); found != _components.end()) return found->second;
  _cursor.execute("INSERT INTO components (id, name, path) VALUES (?, ?, ?)",
                  {_next_component, folder, folder});
  _components.emplace(folder, _next_component);
  return _next_component++;
}

void IndexWriter::_clear(const File& file) {
  _cursor.execute("DELETE FROM edges WHERE source_id = ?", {file.anchor});
  _cursor.execute("DELETE FROM symbols WHERE file_id = ? AND id <> ?", {file.id, file.anchor});
  _cursor.execute("DELETE FROM external_imports WHERE file_id = ?", {file.id});
  _cursor.execute("DELETE FROM code_chunks WHERE rowid >= ? AND rowid < ?",
                  {file.id * CHUNKS_PER_FILE, (file.id + 1) * CHUNKS_PER_FILE});
}

IndexWriter::File IndexWriter::_write_file(const ParsedFile& file) {
  const Value component = _component_of(file.path);
  const auto found = _files.find(file.path);
  const bool known = found != _files.end();
  File row = known ? found->second : File{_next_file++, 0};
  if (known) {
    (void)_anchor_of(row);  // which is not cleared
    _clear(row);
    _cursor.execute(
        "UPDATE files SET language = ?, hash = ?, size = ?, component_id = ? WHERE id = ?",
        {file.language, file.source.stamp, file.source.size, component, row.id});
  } else {
    _cursor.execute(
        "INSERT INTO files (id, path, language, hash, size, component_id) VALUES (?, ?, ?, ?, ?, "
        "?)",
        {row.id, file.path, file.language, file.source.stamp, file.source.size, component});
  }
  if (_anchor_of(row) == 0) {
    row.anchor = _next_symbol++;
    _symbols.add(_cursor, row.anchor, row.id, file_name_of(file.path), file.path, ANCHOR_KIND, 1,
                 file.lines, nullptr);
  } else {
    _cursor.execute("UPDATE symbols SET end_line = ? WHERE id = ?", {file.lines, row.anchor});
  }
  _files.insert_or_assign(file.path, row);
  return row;
}

void IndexWriter::_write_symbols(const ParsedFile& file, const File& row) {
  const std::int64_t first = _next_symbol;
  for (const Symbol& symbol : file.symbols) {
    const Value parent = symbol.parent == Symbol::NO_PARENT
                             ? Value()
                             : Value(first + static_cast<std::int64_t>(symbol.parent));
    _symbols.add(_cursor, _next_symbol++, row.id, symbol.name, symbol.fqn, symbol.kind,
                 line_or_null(symbol.start_line), line_or_null(symbol.end_line), parent);
  }
}

void IndexWriter::_write_imports(const ParsedFile& file, const File& row) {
  for (const Import& import : file.imports) {
    std::vector<std::size_t> targets = _resolver.resolve(file.path, import);
    if (targets.empty()) {
      _add_external(row.id, import);
    } else {
      _pending.push_back(
          {row.id, row.anchor, _files.find(file.path)->first, std::move(targets), import});
    }
  }
}

/// Once for all that a statement takes from a module.
void IndexWriter::_add_external(std::int64_t file, const Import& import) {
  std::tuple<std::int64_t, std::string, int> last(file, import.module, import.line);
  if (_last_external == last) return;
  _external.add(_cursor, file, import.module, line_or_null(import.line));
  _last_external = std::move(last);
}

void IndexWriter::_write_chunks(const ParsedFile& file, const File& row) {
  std::int64_t ordinal = 0;
  for (const Chunk& chunk : file.chunks) {
    _chunks.add(_cursor, row.id * CHUNKS_PER_FILE + ordinal++, chunk.text, chunk.start_line,
                chunk.end_line, chunk.exact);
  }
}

/// Where an import's file turned out to be no text, the best one of those that are.
void IndexWriter::_resolve_among_indexed() {
  const auto is_indexed = [this](std::size_t at) {
    return _files.contains(std::string(_paths[at]));
  };
  if (std::ranges::all_of(_pending, [&](const PendingImport& import) {
        return std::ranges::all_of(import.targets, is_indexed);
      }))
    return;
  std::vector<std::string_view> indexed;
  std::vector<std::size_t> positions;
  for (std::size_t at = 0; at < _paths.size(); ++at) {
    if (!is_indexed(at)) continue;
    indexed.push_back(_paths[at]);
    positions.push_back(at);
  }
  const ImportResolver resolver(indexed, _manifests);
  for (PendingImport& import : _pending) {
    if (std::ranges::all_of(import.targets, is_indexed)) continue;
    import.targets = resolver.resolve(import.path, import.import);
    for (std::size_t& target : import.targets) target = positions[target];
  }
}

void IndexWriter::finish() {
  _symbols.flush(_cursor);
  _resolve_among_indexed();
  std::set<std::tuple<std::int64_t, std::int64_t, int>> added;  // once per line and file
  for (const PendingImport& import : _pending) {
    bool found = false;
    for (const std::size_t at : import.targets) {
      const auto target = _files.find(std::string(_paths[at]));
      if (target == _files.end() || _anchor_of(target->second) == 0) continue;
      found = true;
      if (added.emplace(import.anchor, target->second.anchor, import.import.line).second)
        _edges.add(_cursor, import.anchor, target->second.anchor, IMPORT_KIND,
                   line_or_null(import.import.line));
    }
    if (!found) _add_external(import.file, import.import);
  }
  _pending.clear();
  _edges.flush(_cursor);
  _external.flush(_cursor);
  _cursor.execute(
      "DELETE FROM components WHERE id NOT IN"
      " (SELECT component_id FROM files WHERE component_id IS NOT NULL)");
}

}  // namespace veldra::tool
