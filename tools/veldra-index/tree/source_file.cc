// Reading a file: its bytes, its text, its stamp.
#include "veldra-index/tree/source_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <system_error>

#include "veldra-index/process/file_descriptor.h"
#include "veldra-index/tree/encoding.h"

namespace veldra::tool {
namespace {

constexpr std::int64_t UNSETTLED_NS = 2'000'000'000;
// A NUL among these makes a file binary, as git has it.
constexpr std::size_t FIRST_BYTES = 8000;

constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF";  // no part of the first line

FileProblem io_problem(int error) {
  return {"io_error", std::generic_category().message(error), std::nullopt};
}

/// Fills `text` up to `size` bytes; false, with errno, when the file cannot be read.
bool read_up_to(int fd, std::size_t size, std::string& text) {
  std::size_t used = text.size();
  text.resize(size);
  while (used < size) {
    const ssize_t count = ::read(fd, text.data() + used, size - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
  }
  text.resize(used);
  return true;
}

bool has_nul(std::string_view bytes) {
  return !bytes.empty() && std::memchr(bytes.data(), '\0', bytes.size()) != nullptr;
}

std::int64_t line_of(std::string_view text, std::size_t position) {
  std::int64_t line = 1;
  for (const char byte : text.substr(0, position)) line += byte == '\n';
  return line;
}

void decode(SourceText& source) {
  if (is_utf16(source.text)) {
    source.text = utf16_to_utf8(source.text);
    source.exact = false;
  } else if (const std::size_t bad = find_invalid_utf8(source.text);
             bad != std::string_view::npos) {
    source.problem =
        FileProblem{"decode_error", "not UTF-8; read as Latin-1", line_of(source.text, bad)};
    source.text = latin1_to_utf8(source.text);
    source.exact = false;
  } else if (source.text.starts_with(UTF8_MARK)) {
    source.text.erase(0, UTF8_MARK.size());
    source.exact = false;
  }
}

std::string hexadecimal(std::uint64_t value) {
  std::array<char, 17> digits{};
  for (std::size_t digit = 16; digit-- > 0; value >>= 4)
    digits[digit] = "0123456789abcdef"[value & 15];
  return digits.data();
}

}  // namespace

SourceText read_source(const std::filesystem::path& root, const SourcePath& source) {
  SourceText result;
  if (find_invalid_utf8(source.path) != std::string_view::npos) {  // cannot be said in JSON
    result.problem =
        FileProblem{"path_error", "the file's name is not UTF-8: rename it", std::nullopt};
    return result;
  }
  const FileDescriptor file(
      ::open((root / source.path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
    result.problem = io_problem(errno);
    return result;
  }
  if (!S_ISREG(status.st_mode)) {
    result.problem = FileProblem{"io_error", "no regular file any more", std::nullopt};
    return result;
  }
  result.size = status.st_size;
  if (result.size > MAX_FILE_BYTES) {
    result.problem =
        FileProblem{"too_large",
                    std::to_string(result.size / (1024 * 1024)) + " MiB, at most " +
                        std::to_string(MAX_FILE_BYTES / (1024 * 1024)) + " MiB are read",
                    std::nullopt};
    return result;
  }
  const auto size = static_cast<std::size_t>(result.size);
  if (!read_up_to(file.get(), std::min(size, FIRST_BYTES), result.text)) {
    result.problem = io_problem(errno);
    return result;
  }
  if (has_nul(result.text) && !is_utf16(result.text)) {
    result.kind = SourceText::Kind::Binary;
    result.text.clear();
    return result;
  }
  if (size > FIRST_BYTES && !read_up_to(file.get(), size, result.text)) {
    result.problem = io_problem(errno);
    return result;
  }
  const std::int64_t mtime_ns =
      static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  result.stamp = make_stamp(result.text, mtime_ns,
                            std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
  result.kind = SourceText::Kind::Text;
  decode(result);
  return result;
}

std::string make_stamp(std::string_view content, std::int64_t mtime_ns, std::int64_t now_ns) {
  const bool settled = mtime_ns <= now_ns - UNSETTLED_NS;
  return hexadecimal(XXH3_64bits(content.data(), content.size())) + ":" +
         std::to_string(settled ? mtime_ns : 0);
}

std::string_view content_of_stamp(std::string_view stamp) {
  return stamp.substr(0, stamp.find(':'));
}

bool is_unchanged(std::string_view stamp, std::int64_t size, const SourcePath& source) {
  const std::size_t colon = stamp.find(':');
  if (colon == std::string_view::npos || size != source.size) return false;
  std::int64_t mtime_ns = 0;
  const std::string_view digits = stamp.substr(colon + 1);
  std::from_chars(digits.data(), digits.data() + digits.size(), mtime_ns);
  return mtime_ns != 0 && mtime_ns == source.mtime_ns;
}

}  // namespace veldra::tool
