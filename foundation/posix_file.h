#pragma once

#include <cstdint>
#include <sys/types.h>

#include "foundation/ansistr.h"

namespace OruGuiBase {

/// What the file operations need of POSIX: system calls that are repeated after a signal, and checked paths.
/// All failures leave errno.

/// Permission bits of a file, as chmod() takes them.
inline constexpr unsigned kPermissions = 0777;
/// The mode of an ordinary new file; the system takes away what the process's mask has.
inline constexpr unsigned kOrdinaryMode = 0666;
/// The mode of a private file: only its owner reads and writes it.
inline constexpr unsigned kOwnerOnly = 0600;

/// Makes errno the last error (foundation/errorstate.h). Returns false, so that a failed operation can return
/// it.
bool FailWithErrno() noexcept;
/// The same for a code, which becomes errno too.
bool FailWith(int code) noexcept;

/// Whether the system would see the whole path. It would end at a NUL byte and name another file: EINVAL.
bool IsUsablePath(const AnsiStr& path) noexcept;

/// open() with O_CLOEXEC; -1 on failure.
int OpenHandle(const AnsiStr& path, int flags, unsigned mode) noexcept;
/// Closes a handle. EINTR counts as success: Linux has closed the handle then too.
bool CloseHandle(int handle) noexcept;
/// Reads until the buffer is full or the file ends. Returns the bytes read, or -1 on failure. An `offset`
/// below 0 reads from the current position.
std::int64_t ReadAll(int handle, void* buffer, std::uint32_t size, std::int64_t offset) noexcept;
/// Writes all bytes or fails.
bool WriteAll(int handle, const void* data, std::uint32_t size) noexcept;

/// The directory that a path lies in: "." for a bare name.
AnsiStr ParentOf(const AnsiStr& path) noexcept;

/// The path from the root, so that it names the same file in any working directory. A path that is absolute
/// or empty, or would become too long, stays as it is.
AnsiStr AbsolutePath(const AnsiStr& path) noexcept;

/// The directory that this thread's observer names, else the system's temporary directory: TMPDIR, unless the
/// program runs with raised privileges, else /tmp.
AnsiStr TemporaryDirectory() noexcept;

}  // namespace OruGuiBase
