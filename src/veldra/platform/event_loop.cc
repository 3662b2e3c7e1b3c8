// The host's mark for its event-loop thread: a count per thread.
#include "veldra/platform/event_loop.h"

namespace veldra {

namespace {

thread_local int scopes_of_this_thread = 0;

}  // namespace

EventLoopScope::EventLoopScope() noexcept {
  ++scopes_of_this_thread;
}
EventLoopScope::~EventLoopScope() {
  --scopes_of_this_thread;
}

bool event_loop_runs_here() noexcept {
  return scopes_of_this_thread > 0;
}

}  // namespace veldra
