// Joining and leaving the line, and waking those who stand in it.
#include "veldra/sync/wait_line.h"

namespace veldra {

WaitLine::Place::Place(WaitLine& line) noexcept : _line(line), _before(line._last) {
  (_before != nullptr ? _before->_behind : line._first) = this;
  line._last = this;
}

WaitLine::Place::~Place() {
  (_before != nullptr ? _before->_behind : _line._first) = _behind;
  (_behind != nullptr ? _behind->_before : _line._last) = _before;
  if (!_served) _line.wake_first();
}

int WaitLine::size() const noexcept {
  int places = 0;
  for (const Place* place = _first; place != nullptr; place = place->_behind) ++places;
  return places;
}

void WaitLine::wake_first() noexcept {
  if (_first != nullptr) _first->_woken.notify_one();
}

void WaitLine::wake_all() noexcept {
  for (Place* place = _first; place != nullptr; place = place->_behind) place->_woken.notify_one();
}

}  // namespace veldra
