// The three named loggers. The one place that knows spdlog.
#include "veldra/logging.h"

#include <cxxabi.h>
#include <spdlog/spdlog.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>
#include <typeinfo>

#include "veldra/errors.h"

namespace veldra {

namespace {

const char* name_of(LogUnit unit) {
  switch (unit) {
    case LogUnit::Database:
      return "storage/database";
    case LogUnit::Migrations:
      return "storage/migrations";
    case LogUnit::StorageSize:
      break;
  }
  return "storage/storage_size";
}

spdlog::level::level_enum spdlog_level(LogLevel level) {
  switch (level) {
    case LogLevel::Debug:
      return spdlog::level::debug;
    case LogLevel::Info:
      return spdlog::level::info;
    case LogLevel::Warning:
      return spdlog::level::warn;
    case LogLevel::Error:
      break;
  }
  return spdlog::level::err;
}

/// None when the host has no logger of this name and no default logger either.
std::shared_ptr<spdlog::logger> logger_for(LogUnit unit) {
  const char* name = name_of(unit);
  if (std::shared_ptr<spdlog::logger> registered = spdlog::get(name)) return registered;
  const std::shared_ptr<spdlog::logger> fallback = spdlog::default_logger();
  if (fallback == nullptr) return nullptr;
  // Not registered: the name is the host's, who may take it at any time. Lines are rare.
  return fallback->clone(name);
}

std::string compiler_name(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return name != nullptr ? name.get() : type.name();
}

template <typename Type>
bool is_a(const std::exception& error) {
  return dynamic_cast<const Type*>(&error) != nullptr;
}

}  // namespace

void keep_logging_alive() {
  // Makes the registry, which is a static object too: what was made first is destroyed last.
  (void)spdlog::default_logger_raw();
}

void log_line(LogUnit unit, LogLevel level, std::string_view message) {
  try {
    const std::shared_ptr<spdlog::logger> logger = logger_for(unit);
    if (logger == nullptr) return;
    logger->log(spdlog_level(level), spdlog::string_view_t(message.data(), message.size()));
  } catch (const std::bad_alloc&) {
    // Lost, as the header says.
  }
}

void log_line(LogUnit unit, LogLevel level, std::string_view message, const std::exception& error,
              std::string_view doing) {
  try {
    std::string text(message);
    text.append("\n").append(error_type_name(error)).append(": ").append(error.what());
    text.append("\n").append(doing);
    log_line(unit, level, text);
  } catch (const std::bad_alloc&) {
    log_line(unit, level, message);  // without the error it may still fit
  }
}

std::string quoted(std::string_view text) {
  static constexpr std::string_view HEXADECIMAL = "0123456789abcdef";
  std::string result = "'";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    switch (character) {
      case '\\':
      case '\'':
        result.append({'\\', character});
        break;
      case '\n':
        result.append("\\n");
        break;
      case '\r':
        result.append("\\r");
        break;
      case '\t':
        result.append("\\t");
        break;
      default:
        if (byte < 0x20 || byte == 0x7f)
          result.append({'\\', 'x', HEXADECIMAL[byte >> 4U], HEXADECIMAL[byte & 0xfU]});
        else
          result.push_back(character);
    }
  }
  result.push_back('\'');
  return result;
}

std::string error_type_name(const std::exception& error) {
  // Derived types before their bases.
  if (is_a<OperationalError>(error)) return "OperationalError";
  if (is_a<IntegrityError>(error)) return "IntegrityError";
  if (is_a<ProgrammingError>(error)) return "ProgrammingError";
  if (is_a<Error>(error)) return "Error";
  if (is_a<RuntimeError>(error)) return "RuntimeError";
  if (is_a<FileNotFoundError>(error)) return "FileNotFoundError";
  if (is_a<ReaderUnavailable>(error)) return "ReaderUnavailable";
  if (is_a<SchemaMigrationError>(error)) return "SchemaMigrationError";
  if (is_a<std::system_error>(error)) return "OSError";
  return compiler_name(typeid(error));
}

}  // namespace veldra
