#pragma once

#include <cstddef>
#include <stop_token>
#include <string>
#include <sys/types.h>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace CryptCli {

/// The name that stands for standard input as source and for standard output as target.
inline constexpr const char* kStandardStream = "-";

/// Whether the path leads to a folder, also by a link.
bool IsFolder(const std::string& path);

/// Whether standard input can be read. False with the reason in the error state if the caller has closed it.
bool CanReadStandardInput();

/// A source or a target for people: its name, or for "-" what that stands for.
std::string NameSource(const std::string& name);
std::string NameTarget(const std::string& name);

/// The message "Could not WHAT "PATH": REASON", where "-" is the standard stream that is meant. Without a
/// reason it takes the one in the error state.
OruGuiBase::AnsiStr DescribeFailure(const char* what, const OruGuiBase::AnsiStr& path);
OruGuiBase::AnsiStr DescribeFailure(const char* what, const OruGuiBase::AnsiStr& path,
                                    const OruGuiBase::AnsiStr& reason);

/// Copies a file to standard output in chunks, however large it is. False with the reason in the error state.
bool CopyToStandardOutput(const OruGuiBase::File& file);

/// Waits for input or its end. False, with ECANCELED, once a stop is requested.
bool WaitForInput(int descriptor, const std::stop_token& stop);

/// Opens a file or a pipe for reading without waiting for somebody who writes to it: WaitForInput does that.
/// Returns the descriptor, or -1 with errno.
int OpenForReading(const std::string& path);

/// Like read(), but fails with ECANCELED once a stop is requested, even while no input comes.
ssize_t ReadUnlessStopped(int descriptor, void* bytes, std::size_t size, const std::stop_token& stop);

/// Reads a descriptor to its end, into a string. False with the reason: also once a stop is requested, and
/// beyond 64 MiB. The bytes may be secret; no other copy of them remains in memory.
bool ReadToEnd(int descriptor, const std::stop_token& stop, OruGuiBase::AnsiStr& text,
               OruGuiBase::AnsiStr& reason);
/// The same for a file or a named pipe.
bool ReadUnlessStopped(const std::string& path, const std::stop_token& stop, OruGuiBase::AnsiStr& text,
                       OruGuiBase::AnsiStr& reason);

}  // namespace CryptCli
