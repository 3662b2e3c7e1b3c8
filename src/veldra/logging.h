#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

/// The layer's log lines: which logger, at which level, the finished text.
///
///     log_line(LogUnit::Database, LogLevel::Warning, "Compaction of …", error, "VACUUM");
///
/// Internal. A line goes to the spdlog logger named after its unit: the one that the host
/// has registered under that name by then, as it is, or else one that shares the sinks and the
/// level of spdlog's default logger and is registered nowhere. Without either the line is dropped.
///
/// Thread safety: every function, from any thread.
namespace veldra {

/// `storage/database`, `storage/migrations`, `storage/storage_size`.
enum class LogUnit : std::uint8_t { Database, Migrations, StorageSize };

enum class LogLevel : std::uint8_t { Debug, Info, Warning, Error };

/// Logging then works until the caller is destroyed, also where that is a static object.
void keep_logging_alive();

/// Writes `message` as one record, as it stands: nothing in it is a placeholder. A line for which
/// there is no memory is lost: what it tells of has happened all the same.
void log_line(LogUnit unit, LogLevel level, std::string_view message);

/// The same with the error being handled attached, on lines of its own in the same record:
/// its type and message, then what was being done (a statement, say).
void log_line(LogUnit unit, LogLevel level, std::string_view message, const std::exception& error,
              std::string_view doing);

/// `text` in single quotes, on one line: backslash, single quote, newline, carriage return and tab
/// escaped with a backslash, other control characters as \xNN.
std::string quoted(std::string_view text);

/// The type as this layer documents it (`OperationalError`, `OSError`, …); of any other exception
/// the name that the compiler knows.
std::string error_type_name(const std::exception& error);

}  // namespace veldra
