#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/ansistr.h"

namespace OruKalvix {

/// Receives the body of a response, into memory up to a limit or into a file, which it owns while it is open.
class BodySink {
 public:
  explicit BodySink(std::uint32_t limit) noexcept : limit_(limit) {}
  BodySink(const BodySink&) = delete;
  BodySink& operator=(const BodySink&) = delete;
  /// Truncates and closes a file that is still open: it contains an incomplete body.
  ~BodySink();

  /// Writes the body to a file, created with mode 0600 or truncated. False with the reason in GetError().
  bool OpenFile(const OruGuiBase::AnsiStr& path);
  /// Adds the next bytes. False with the reason in GetError().
  bool Put(const char* data, std::size_t size);
  /// Ends a complete body. False if closing the file fails, with the reason in GetError().
  bool Finish();

  OruGuiBase::AnsiStr TakeBody() noexcept { return static_cast<OruGuiBase::AnsiStr&&>(body_); }
  /// Why OpenFile, Put or Finish failed; empty when none did.
  const OruGuiBase::AnsiStr& GetError() const noexcept { return error_; }

 private:
  bool PutInMemory(const char* data, std::size_t size);
  bool PutInFile(const char* data, std::size_t size);
  bool FailFile(const char* what, int code);

  std::uint32_t limit_;
  int file_ = -1;
  OruGuiBase::AnsiStr path_;
  OruGuiBase::AnsiStr body_;
  OruGuiBase::AnsiStr error_;
};

}  // namespace OruKalvix
