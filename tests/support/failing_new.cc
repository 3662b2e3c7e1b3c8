// The global operator new of a test program, over malloc: under AddressSanitizer that is its own.
#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

struct Faults {
  int calls_until = 0;  // 0: none fails
  bool lasting = false;
  bool met = false;
};
thread_local Faults faults;

void* allocate(std::size_t size) noexcept {
  if (faults.calls_until > 0 && --faults.calls_until == 0) {
    faults.met = true;
    if (faults.lasting) faults.calls_until = 1;
    return nullptr;
  }
  return std::malloc(size != 0 ? size : 1);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* const memory = allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace veldra {

FailingNew::FailingNew(int n, bool lasting) noexcept {
  faults = {.calls_until = n, .lasting = lasting};
}

FailingNew::~FailingNew() {
  faults.calls_until = 0;
}

bool FailingNew::met() noexcept {
  return faults.met;
}

}  // namespace veldra
