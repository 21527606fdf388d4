#include "tests/protection/failing_object.h"

#include <new>

namespace {

// How many allocations until the one that fails; 0 if none will, negative once it has.
int countdown = 0;

}  // namespace

// Calls the new that throws, so that a sanitizer sees blocks of one type only.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (countdown > 0 && --countdown == 0) {
    countdown = -1;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace TestSupport {

FailingObject::FailingObject(int number) {
  countdown = number;
}

bool FailingObject::End() {
  const bool struck = countdown < 0;
  countdown = 0;
  return struck;
}

}  // namespace TestSupport
