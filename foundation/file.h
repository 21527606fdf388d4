#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Well-known directories.
enum class DirectoryType : std::uint32_t { Temporary = 27 };

/// Where a File that is given a bare name lies.
enum class FileType : std::uint32_t {
  Temporary = 0,  ///< below the system's temporary directory
};

/// The name of a file or directory; nothing is opened or looked at by making one.
class ORUGUI_EXPORT DirectoryEntry {
 public:
  DirectoryEntry() noexcept = default;
  explicit DirectoryEntry(const AnsiStr& path) noexcept : path_(path) {}

  const AnsiStr& GetPath() const noexcept { return path_; }
  bool IsEmpty() const noexcept { return path_.IsEmpty(); }
  /// The last part of the path, without separators behind it.
  AnsiStr GetTail() const noexcept;
  /// Whether two entries have the same path; nothing on disk is compared.
  static bool IsEqual(const DirectoryEntry& a, const DirectoryEntry& b) noexcept {
    return a.path_ == b.path_;
  }

 protected:
  AnsiStr path_;  // NOLINT(misc-non-private-member-variables-in-classes): the name is all there is
};

class ORUGUI_EXPORT Directory : public DirectoryEntry {
 public:
  explicit Directory(const AnsiStr& path) noexcept : DirectoryEntry(path) {}
  /// A well-known directory.
  explicit Directory(DirectoryType type) noexcept;
  /// The most bytes that the name of a file in it may have.
  std::uint32_t GetLongestName() const noexcept;
};

/// Whether a file is this process's own, made for nobody else's eyes, and what goes with it.
enum class FilePrivacy : std::uint8_t {
  None,       ///< like any other file
  Staging,    ///< lies among files of others, such as beside the target that it is to become
  Directory,  ///< lies in a directory of its own
};

/// The name of a file, with the operations that need no open file. All that return a bool leave the reason of
/// a failure in the error state.
class ORUGUI_EXPORT File : public DirectoryEntry {
 public:
  File() noexcept = default;
  /// The file of this path, absolute or relative to the working directory.
  explicit File(const AnsiStr& path) noexcept : DirectoryEntry(path) {}
  File(const Directory& directory, const AnsiStr& name) noexcept;
  /// A file of the given place. With `isPrivate` a fresh directory that only the owner may enter (0700) is
  /// made for it, and in it the file, exclusively and for the owner alone (0600): the name stays as given
  /// (shortened to what the file system takes, made safe by MakeName), and two of one name never meet. The
  /// path is empty, with the reason in the error state, when that fails. Without `isPrivate` nothing is made.
  File(FileType type, const AnsiStr& name, bool isPrivate) noexcept;
  /// Names a private file that was made already; nothing is made or looked at.
  File(const AnsiStr& path, FilePrivacy privacy) noexcept : DirectoryEntry(path), privacy_(privacy) {}

  /// Anything but None for what File(FileType, name, true) and TempFile made, in every copy of the object; a
  /// path alone says nothing about it.
  FilePrivacy GetPrivacy() const noexcept { return privacy_; }
  bool IsPrivate() const noexcept { return privacy_ != FilePrivacy::None; }

  /// A form of the name that no file system or shell user trips over: separators, control and reserved
  /// characters become "_", as do a leading dot and trailing dots and blanks. UTF-8 is kept, and the result
  /// is never empty.
  static AnsiStr MakeName(const AnsiStr& name) noexcept;

  /// The file of the same name with a number before its ending: "a 2.csv" for "a.csv". For a name that is
  /// taken.
  File GetNumbered(std::uint32_t number) const noexcept;

  /// Size in bytes, or -1 when it cannot be had.
  std::int64_t GetSize() const noexcept;
  /// Makes an empty file. One that is there already is a failure.
  bool Create() const noexcept;
  /// Delivers the file to `target` and ends it: by renaming where the target can be replaced (see
  /// FileWriter::OpenDraft for what cannot), by copying where it lies on another file system or must be
  /// written in place, and then removing. A target that can be replaced is never half written. A source that
  /// cannot be removed after it was copied is a failure too: the content then lies whole at both places.
  /// `keepTarget` true refuses a target that exists. A private file gets mode, group and access list of the
  /// file that it replaces, or those of a new file; any other keeps its own where it is renamed, and its mode
  /// where a copy replaces the target. A target that is written in place keeps what it has. A private file
  /// that is not as it was made, and a target that changed meanwhile, are failures (FileWriter::OpenDraft).
  bool Move(const File& target, bool keepTarget) const noexcept;
  /// Removes the file. `mayBeMissing` makes a file that is not there a success.
  bool Remove(bool mayBeMissing) const noexcept;

 private:
  bool CopyTo(const File& target, bool keepTarget, int mode) const noexcept;

  FilePrivacy privacy_ = FilePrivacy::None;
};

}  // namespace OruGuiBase

// Here because TempFile needs File. Whoever includes this header for a temporary file goes on finding it.
#include "foundation/tempfile.h"
