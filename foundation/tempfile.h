#pragma once

#include "foundation/ansistr.h"
#include "foundation/export.h"
#include "foundation/file.h"

namespace OruGuiBase {

/// Owns a file of one operation and removes it on destruction. RemoveUnfinishedFiles
/// (foundation/unfinished.h) removes it too.
class ORUGUI_EXPORT TempFile {
 public:
  TempFile() noexcept = default;
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile() { Cleanup(); }

  const AnsiStr& GetPath() const noexcept { return path_; }
  File GetFile() const noexcept { return File(path_, privacy_); }
  /// Becomes the owner of a file that exists. The file owned before is removed first. With a file of
  /// File(FileType, name, true) its private directory is owned too; the directory of any other file stays.
  void Take(const File& file) noexcept;
  /// Makes the file, empty and for the owner alone (0600), and takes it. Fails if it exists.
  bool Create(const File& file) noexcept;
  /// Makes a private file for content that File::Move will deliver to `target`: beside the target where that
  /// can be replaced, in the temporary directory where it must be written in place.
  bool CreateFor(const File& target) noexcept;
  /// Removes the file, if there is one, and its private directory. The error state stays as it is.
  void Cleanup() noexcept;
  /// Stops owning the file, because it was moved away or is to stay. Removes only the private directory, if
  /// that is empty. The error state stays as it is.
  void GiveUp() noexcept;

 private:
  AnsiStr path_;
  FilePrivacy privacy_ = FilePrivacy::None;
};

/// Owns a directory for the temporary files of one program. Removes it with all files in it on destruction;
/// RemoveUnfinishedFiles does so too.
class ORUGUI_EXPORT TempDirectory {
 public:
  TempDirectory() noexcept = default;
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  ~TempDirectory() { Cleanup(); }

  /// Makes a directory in the system's temporary directory that only the owner may enter (0700). Its name is
  /// `prefix`, "-" and six characters that make it unique.
  bool Create(const AnsiStr& prefix) noexcept;
  const AnsiStr& GetPath() const noexcept { return path_; }
  /// Removes the directory, if there is one, with all files in it. The error state stays as it is.
  void Cleanup() noexcept;

 private:
  AnsiStr path_;
};

}  // namespace OruGuiBase
