#pragma once

#include <cstddef>
#include <cstdint>

#include "foundation/ansistr.h"

namespace OruKalvix {

/// Takes the body of a response, into memory up to a limit or into a file.
class BodySink {
 public:
  explicit BodySink(std::uint32_t limit) noexcept : limit_(limit) {}
  BodySink(const BodySink&) = delete;
  BodySink& operator=(const BodySink&) = delete;
  /// Closes a file that is still open, and empties it: what it holds is not a whole body.
  ~BodySink();

  /// Sends the body to a file, made for the owner alone or emptied. False with the reason in GetError().
  bool OpenFile(const OruGuiBase::AnsiStr& path);
  /// Takes the next bytes. False with the reason in GetError().
  bool Put(const char* data, std::size_t size);
  /// Ends a whole body. False when the file's system reports only now that it could not keep it.
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
