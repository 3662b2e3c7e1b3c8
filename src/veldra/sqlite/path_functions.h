#pragma once

#include "veldra/export.h"

namespace veldra {

class Connection;

/// Registers the layer's SQL functions on paths, which every connection of a `Database` has, on
/// another one.
///
///     SELECT path FROM files WHERE path_under(path, 'src/storage')
///     SELECT path FROM files WHERE path_glob(path, 'src/**/*_test.cc')
///
/// `path_under(path, directory)` and `path_glob(path, pattern)` answer 1 or 0 as `path_is_under`
/// and `path_matches` do, and NULL when an argument is NULL; an argument of another type counts as
/// its text. They depend on nothing but their arguments and are of no danger to a schema that names
/// them (https://www.sqlite.org/c3ref/c_deterministic.html).
///
/// Throws `Error` when SQLite has no memory for them; the connection is usable without them.
VELDRA_EXPORT void register_path_functions(Connection& connection);

}  // namespace veldra
