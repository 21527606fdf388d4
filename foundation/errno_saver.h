#pragma once

#include <cerrno>

namespace OruGuiBase {

/// Puts errno back at the end of its scope: for cleanup between a failed system call and the line that reads
/// its reason. ErrorStateSaver does the same for the whole error state.
class ErrnoSaver {
 public:
  ErrnoSaver() noexcept : value_(errno) {}
  ErrnoSaver(const ErrnoSaver&) = delete;
  ErrnoSaver& operator=(const ErrnoSaver&) = delete;
  ~ErrnoSaver() { errno = value_; }

 private:
  int value_;
};

}  // namespace OruGuiBase
