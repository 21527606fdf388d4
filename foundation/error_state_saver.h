#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/errno_saver.h"

namespace OruGuiBase {

/// Puts this thread's error state, errno included, back at the end of its scope: for what runs between a
/// failure and the caller that reads its reason, such as cleanup and tracing.
class ErrorStateSaver {
 public:
  ErrorStateSaver() noexcept;
  ErrorStateSaver(const ErrorStateSaver&) = delete;
  ErrorStateSaver& operator=(const ErrorStateSaver&) = delete;
  ~ErrorStateSaver();

 private:
  ErrnoSaver errno_;  // first, so that it is read before anything changes it and put back last
  std::uint32_t code_;
  AnsiStr message_;  // of kTextError; empty for any other code
};

}  // namespace OruGuiBase
