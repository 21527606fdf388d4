#pragma once

#include <cstdint>
#include <sys/types.h>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// What the file operations need of POSIX: system calls that go on after a signal, and paths that are what
/// they say. All failures leave errno.

/// Sets errno over as the last error and gives false, to end a failed operation with.
bool FailWithErrno() noexcept;
/// The same with a code.
bool FailWith(int code) noexcept;

/// Whether a path can be given to the system whole. A NUL inside would name another file: EINVAL.
bool IsUsablePath(const AnsiStr& path) noexcept;

/// open() with O_CLOEXEC; -1 on failure.
int OpenHandle(const AnsiStr& path, int flags, unsigned mode) noexcept;
/// Closes a handle. A signal during it is no failure: the handle is gone then as well.
bool CloseHandle(int handle) noexcept;
/// Reads until the buffer is full or the file ends; -1 on failure. An `offset` below 0 reads on from where
/// the handle stands.
std::int64_t ReadAll(int handle, void* buffer, std::uint32_t size, std::int64_t offset) noexcept;
bool WriteAll(int handle, const void* data, std::uint32_t size) noexcept;

/// The directory that a path lies in: "." for a bare name.
AnsiStr ParentOf(const AnsiStr& path) noexcept;

/// The path from the root, so that it names the same file in any working directory. One that is absolute
/// already, is empty or would be too long stays as it is.
AnsiStr AbsolutePath(const AnsiStr& path) noexcept;

/// Makes a private directory below the system's temporary directory and in it the file, for the owner alone.
/// Lists both as unfinished. Gives the file's path, or the empty string on failure.
AnsiStr MakePrivateFile(const AnsiStr& name) noexcept;
/// The system's temporary directory.
AnsiStr TemporaryDirectory() noexcept;

}  // namespace OruGuiBase
