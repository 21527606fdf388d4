#pragma once

#include <cstdint>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// The process's list of files and directories for RemoveUnfinishedFiles. TempFile, TempDirectory and the
/// functions that make files for them keep it. All functions are safe for concurrent use.

/// How an entry of the list is removed: a directory goes with the files in it.
enum class UnfinishedType : std::uint8_t { File, Directory };

/// Held on the stack while a file is made and listed, so that RemoveUnfinishedFiles misses none.
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

/// Adds a path to the list. False, with errno, on allocation failure.
bool AddUnfinished(const AnsiStr& path, UnfinishedType type) noexcept;
/// Takes a path off the list, if it is there. The file stays.
void DropUnfinished(const AnsiStr& path) noexcept;
/// Does what RemoveUnfinishedFiles promises: no scope opens any more, and all that is listed is removed.
void CloseUnfinishedList() noexcept;
/// Removes the files of a directory and the directory itself. Repeats it, a limited number of times, while
/// other threads add files. False, with errno, on failure.
bool RemoveWithFiles(const AnsiStr& directory) noexcept;

}  // namespace OruGuiBase
