// The progress line.
#include "veldra-index/terminal/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>

namespace veldra::tool {
namespace {

constexpr auto REDRAW = std::chrono::milliseconds(100);
constexpr double WORTH_A_LINE = 0.5;  // seconds
constexpr std::size_t BAR_WIDTH = 24;

bool quiet = false;

std::string number(const char* format, double value) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

std::string clock(double seconds) {
  const auto whole = static_cast<int>(std::lround(seconds));
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%d:%02d", whole / 60, whole % 60);
  return text.data();
}

std::size_t terminal_width() {
  winsize size{};
  const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 20;
  return known ? size.ws_col : 80;
}

}  // namespace

void Progress::set_quiet(bool quiet_now) {
  quiet = quiet_now;
}

Progress::Progress(std::string label, std::uint64_t total, std::string unit)
    : _label(std::move(label)), _total(total), _unit(std::move(unit)) {
  if (!quiet && ::isatty(STDERR_FILENO) == 1) _thread = std::thread([this] { _run(); });
}

Progress::~Progress() {
  if (_thread.joinable()) {
    {
      const std::lock_guard lock(_mutex);
      _finished = true;
    }
    _changed.notify_all();
    _thread.join();
    std::cerr << "\r\033[K" << std::flush;
  }
  const double seconds = _seconds();
  if (quiet || seconds < WORTH_A_LINE || std::uncaught_exceptions() > 0) return;
  std::cerr << _label << ": " << _counts(seconds) << number("%.1f s", seconds) << std::endl;
}

double Progress::_seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - _begin).count();
}

/// "8136 files, 1520 files/s, ", or nothing when the work is not counted.
std::string Progress::_counts(double seconds) const {
  if (_total == 0) return {};
  const double rate = static_cast<double>(_done) / std::max(seconds, 0.001);
  return std::to_string(_done) + " " + _unit + ", " + number("%.0f ", rate) + _unit + "/s, ";
}

void Progress::_run() {
  std::unique_lock lock(_mutex);
  while (!_finished) {
    _draw();
    _changed.wait_for(lock, REDRAW, [this] { return _finished; });
  }
}

void Progress::_draw() {
  const double seconds = _seconds();
  std::string line = _label;
  line += ' ';
  if (_total == 0) {
    line += clock(seconds);
  } else {
    const std::uint64_t done = std::min<std::uint64_t>(_done, _total);
    const double share = static_cast<double>(done) / static_cast<double>(_total);
    const auto filled = static_cast<std::size_t>(share * BAR_WIDTH);
    const double rate = static_cast<double>(done) / std::max(seconds, 0.001);
    line.append("[").append(filled, '#').append(BAR_WIDTH - filled, '.').append("] ");
    line.append(std::to_string(done)).append("/").append(std::to_string(_total)).append(" ");
    line.append(_unit).append(number("  %.0f/s", rate));
    if (rate > 0)
      line.append("  ").append(clock(static_cast<double>(_total - done) / rate)).append(" left");
  }
  line.resize(std::min(line.size(), terminal_width() - 1));
  std::cerr << "\r\033[K" << line << std::flush;
}

}  // namespace veldra::tool
