#pragma once

namespace OruGuiBase {

/// While it lives, the system cannot provide the time. One at a time.
class FailingClock {
 public:
  FailingClock();
  FailingClock(const FailingClock&) = delete;
  FailingClock& operator=(const FailingClock&) = delete;
  ~FailingClock();
};

}  // namespace OruGuiBase
