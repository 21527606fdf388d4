#include "tests/protection/failing_object.h"

#include <new>

namespace {

// How many objects until the one that fails: 0 when none will, negative once it has.
int countdown = 0;

}  // namespace

// Hands on to the new that throws, so that whatever watches over blocks sees one type of them.
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
