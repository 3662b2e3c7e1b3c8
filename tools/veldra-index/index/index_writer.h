#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "veldra-index/index/imports/import_resolver.h"
#include "veldra-index/parse/parsed_file.h"
#include "veldra/storage/database.h"

namespace veldra::tool {

/// Rows on their way into a table, some in one statement: each costs less so.
class RowBuffer {
 public:
  /// `columns` are the table's name and, in brackets, those that are given values.
  RowBuffer(std::string_view columns, std::size_t rows_at_once);

  /// Call it once per row, with a value for each column.
  template <typename... Values>
  void add(Cursor& cursor, Values&&... values) {
    ((_rows.front()[_used++] = Value(std::forward<Values>(values))), ...);
    if (_used == _rows.front().size()) _run(cursor);
  }

  /// What has not gone into the table yet.
  void flush(Cursor& cursor);

 private:
  void _run(Cursor& cursor);

  const std::string _one_row;  // as SQL
  const std::string _many_rows;
  const std::size_t _columns;
  ParamsList _rows;  // all in one list of parameters, in memory that is used again
  std::size_t _used = 0;
};

/// Puts parsed files into an index, inside one transaction of the caller.
///
///     IndexWriter writer(cursor, paths);
///     writer.add(*file);        // for each
///     writer.finish();
///
/// Ids are given here, so no row is looked up again. A file that the index has keeps its id and its
/// anchor's; the rest of what it had is replaced. Import edges wait for `finish`, when every file
/// has its anchor: only then it is known which files are in the index, and an import means one of
/// those or is recorded as external.
///
/// Thread safety: one thread. The cursor is the transaction's.
class IndexWriter {
 public:
  /// `paths` are all files of the tree, for imports, and must outlive the writer; `manifests` are
  /// those among them.
  IndexWriter(Cursor& cursor, const std::vector<std::string_view>& paths, Manifests manifests);

  /// `file` was read as text; a file whose content is as in the index only gets its new stamp.
  void add(const ParsedFile& file);

  /// Takes a file out of the index; false when it is not there.
  bool remove(std::string_view path);

  /// Replaces the error records of `path`.
  void record_problems(std::string_view path, const std::vector<FileProblem>& problems);

  /// Edges, and components without files.
  void finish();

 private:
  struct File {
    std::int64_t id = 0;
    std::int64_t anchor = 0;  // 0 until it is looked up
  };
  struct PendingImport {
    std::int64_t file;
    std::int64_t anchor;
    std::string_view path;             // the importing file's, a key of `_files`
    std::vector<std::size_t> targets;  // positions in the list of paths
    Import import;
  };

  void _load();
  std::int64_t _anchor_of(File& file);
  Value _component_of(std::string_view path);
  void _clear(const File& file);
  File _write_file(const ParsedFile& file);
  void _write_symbols(const ParsedFile& file, const File& row);
  void _write_imports(const ParsedFile& file, const File& row);
  void _add_external(std::int64_t file, const Import& import);
  void _write_chunks(const ParsedFile& file, const File& row);
  void _resolve_among_indexed();

  Cursor& _cursor;
  const std::vector<std::string_view>& _paths;
  const Manifests _manifests;
  const ImportResolver _resolver;
  std::unordered_map<std::string, File> _files;  // what the index has
  std::map<std::string, std::int64_t, std::less<>> _components;
  std::vector<PendingImport> _pending;
  std::tuple<std::int64_t, std::string, int> _last_external;  // file, module and line
  std::int64_t _next_file = 1;
  std::int64_t _next_symbol = 1;
  std::int64_t _next_component = 1;
  const bool _had_files;

  RowBuffer _symbols;
  RowBuffer _chunks;
  RowBuffer _external;
  RowBuffer _edges;
};

}  // namespace veldra::tool
