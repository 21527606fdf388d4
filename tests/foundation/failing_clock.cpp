#include "tests/foundation/failing_clock.h"

#include <atomic>
#include <cerrno>
#include <ctime>

// The linker sends every call of clock_gettime() in this program's own objects here.
extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time);

namespace {

std::atomic<bool> fails{false};

}  // namespace

namespace OruGuiBase {

FailingClock::FailingClock() {
  fails = true;
}

FailingClock::~FailingClock() {
  fails = false;
}

}  // namespace OruGuiBase

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (!fails) return __real_clock_gettime(clock, time);
  errno = EINVAL;
  return -1;
}
