#pragma once

#include <string>

#include "foundation/file.h"

namespace CryptCli {

/// A protected file that is read: itself, or where it has no size, as a FIFO or a pipe, a private copy of
/// what comes out of it. The library reads a message from several places and needs its size.
class Source {
 public:
  /// Whether Open would copy, and so take as long as the writer does.
  static bool IsStream(const std::string& path);

  /// False with the reason in the error state.
  bool Open(const std::string& path);
  const OruGuiBase::File& GetFile() const { return file_; }

 private:
  OruGuiBase::TempFile copy_;
  OruGuiBase::File file_;
};

}  // namespace CryptCli
