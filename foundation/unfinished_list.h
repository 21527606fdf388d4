#pragma once

#include <cstdint>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// The list behind RemoveUnfinishedFiles, kept by TempFile, TempDirectory and those who make files for them.
/// All threads may use it at once.
enum class UnfinishedType : std::uint8_t { File, Directory };

/// Held while a file is made and listed, so that none appears behind RemoveUnfinishedFiles.
class UnfinishedScope {
 public:
  UnfinishedScope() noexcept;
  UnfinishedScope(const UnfinishedScope&) = delete;
  UnfinishedScope& operator=(const UnfinishedScope&) = delete;
  ~UnfinishedScope();

  /// Whether files may be made. If not, errno is ECANCELED.
  bool IsOpen() const noexcept { return isOpen_; }

 private:
  bool isOpen_;
};

/// Lists a path; a directory goes with the files in it. False, with errno, on allocation failure.
bool AddUnfinished(const AnsiStr& path, UnfinishedType type) noexcept;
/// Takes it off the list, if it is there.
void DropUnfinished(const AnsiStr& path) noexcept;
/// Removes the files of a directory, and it. Tries again, a limited number of times, while others put files
/// in.
bool RemoveWithFiles(const AnsiStr& directory) noexcept;

}  // namespace OruGuiBase
