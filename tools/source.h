#pragma once

#include <string>

#include "foundation/file.h"

namespace CryptCli {

/// A protected file to read. A FIFO or pipe is first copied to a temporary file, which this object owns: the
/// library needs the size of a message and reads it at several offsets.
class Source {
 public:
  /// Whether Open would copy, and so block until the writer is done.
  static bool IsStream(const std::string& path);

  /// False with the reason in the error state.
  bool Open(const std::string& path);
  const OruGuiBase::File& GetFile() const { return file_; }

 private:
  OruGuiBase::TempFile copy_;
  OruGuiBase::File file_;
};

}  // namespace CryptCli
