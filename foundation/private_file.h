#pragma once

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// Private files and directories, below the system's temporary directory. They are listed as unfinished, so
/// that RemoveUnfinishedFiles removes them. All failures leave errno.

/// Ending of the names of temporary files. A name that is too long keeps it.
inline constexpr const char* kTempEnding = ".tmp";

/// Makes a directory that only the owner may enter (0700), named `prefix`, "-" and six unique characters, and
/// lists it. Returns its path, or the empty string on failure. The caller holds an UnfinishedScope.
AnsiStr MakePrivateDirectory(const AnsiStr& prefix) noexcept;
/// Removes such a directory, if it is empty, and takes it off the list. May change errno.
void DropPrivateDirectory(const AnsiStr& directory) noexcept;
/// Makes a private directory and in it an empty file, for the owner alone (0600). The name is made safe and
/// cut to what the file system allows. Returns the file's path, or the empty string on failure.
AnsiStr MakePrivateFile(const AnsiStr& name) noexcept;

}  // namespace OruGuiBase
