#pragma once

#include <cstdint>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// Puts this thread's error state, errno included, back at the end of its scope: for what runs after a
/// failure and before its reason is read, such as cleaning up and tracing.
class ErrorStateSaver {
 public:
  ErrorStateSaver() noexcept;
  ErrorStateSaver(const ErrorStateSaver&) = delete;
  ErrorStateSaver& operator=(const ErrorStateSaver&) = delete;
  ~ErrorStateSaver();

 private:
  std::uint32_t code_;
  int errno_;
  AnsiStr text_;
};

}  // namespace OruGuiBase
