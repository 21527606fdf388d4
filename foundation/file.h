#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Well-known directories.
enum class DirectoryType : std::uint32_t { Temporary = 27 };

/// Where a File with a bare name is placed.
enum class FileType : std::uint32_t {
  Temporary = 0,  ///< below the system's temporary directory
};

/// The name of a file or directory. To construct one opens nothing and reads nothing from the disk.
class ORUGUI_EXPORT DirectoryEntry {
 public:
  DirectoryEntry() noexcept = default;
  explicit DirectoryEntry(const AnsiStr& path) noexcept : path_(path) {}

  const AnsiStr& GetPath() const noexcept { return path_; }
  bool IsEmpty() const noexcept { return path_.IsEmpty(); }
  /// The last part of the path, without separators after it.
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
  /// The largest number of bytes in the name of a file in this directory.
  std::uint32_t GetLongestName() const noexcept;
};

/// Whether a file was made by this process for its owner alone, and where it lies.
enum class FilePrivacy : std::uint8_t {
  None,       ///< like any other file
  Staging,    ///< lies among files of others, for example beside the target that it will replace
  Directory,  ///< lies in a directory of its own
};

/// The name of a file, with the operations that need no open file. Those that return a bool leave the reason
/// of a failure in the error state.
class ORUGUI_EXPORT File : public DirectoryEntry {
 public:
  File() noexcept = default;
  /// The file of this path, absolute or relative to the working directory.
  explicit File(const AnsiStr& path) noexcept : DirectoryEntry(path) {}
  File(const Directory& directory, const AnsiStr& name) noexcept;
  /// A file in the given place. With `isPrivate` true it makes a new directory that only the owner may enter
  /// (0700) and the file in it, exclusively and for the owner alone (0600). So the name stays as given (made
  /// safe by MakeName and cut to what the file system allows), and two files of one name never collide. On
  /// failure the path is empty and the reason is in the error state. With `isPrivate` false nothing is made.
  File(FileType type, const AnsiStr& name, bool isPrivate) noexcept;
  /// Names a private file that exists already. Nothing is made or read.
  File(const AnsiStr& path, FilePrivacy privacy) noexcept : DirectoryEntry(path), privacy_(privacy) {}

  /// Not None for what File(FileType, name, true) and TempFile made, in every copy of the object. A path
  /// alone does not show it.
  FilePrivacy GetPrivacy() const noexcept { return privacy_; }
  bool IsPrivate() const noexcept { return privacy_ != FilePrivacy::None; }

  /// A form of the name that is safe in any file system and shell: separators, control and reserved
  /// characters become
  /// "_", and so do a leading dot and trailing dots and blanks. Valid UTF-8 is kept. The result is never
  /// empty.
  static AnsiStr MakeName(const AnsiStr& name) noexcept;

  /// The same name with a number before its extension, for a name that is in use: "a 2.csv" for "a.csv".
  File GetNumbered(std::uint32_t number) const noexcept;

  /// Size in bytes, or -1 on failure.
  std::int64_t GetSize() const noexcept;
  /// Makes an empty file. Fails if it exists.
  bool Create() const noexcept;
  /// Delivers the file to `target`; afterwards this file is gone. It renames where the target can be replaced
  /// (FileWriter::OpenStaged lists what cannot). It copies and then removes the source where the target lies
  /// on another file system or must be written in place. A target that can be replaced is never half written.
  /// If the source cannot be removed after the copy, that is a failure too; both files then have the whole
  /// content. With `keepTarget` true a target that exists is a failure (EEXIST).
  ///
  /// A private file gets mode, group and access list of the file that it replaces, or those of a new file.
  /// Any other file keeps its own when it is renamed, and its mode when a copy replaces the target. A target
  /// that is written in place keeps its own. A private file that is not as it was made, and a target that
  /// changed meanwhile, are failures (see FileWriter::OpenStaged).
  bool Move(const File& target, bool keepTarget) const noexcept;
  /// Renames this private file over the target, which gets its access as with Move, or fails and leaves both
  /// as they are. EXDEV if the target cannot be replaced by a rename.
  bool Replace(const File& target) const noexcept;
  /// Removes the file. With `mayBeMissing` true a file that does not exist is a success. Part of the
  /// published interface; nothing here calls it, as TempFile removes its own file.
  bool Remove(bool mayBeMissing) const noexcept;

 private:
  bool CopyTo(const File& target, bool keepTarget, int mode) const noexcept;

  FilePrivacy privacy_ = FilePrivacy::None;
};

}  // namespace OruGuiBase

// Here because TempFile needs File. Whoever includes this header for a temporary file goes on finding it.
#include "foundation/tempfile.h"
