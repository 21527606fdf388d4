#pragma once

#include <string>

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace CryptCli {

/// The message "Could not WHAT "PATH": REASON". Without a reason it takes the one in the error state.
OruGuiBase::AnsiStr DescribeFailure(const char* what, const OruGuiBase::AnsiStr& path);
OruGuiBase::AnsiStr DescribeFailure(const char* what, const OruGuiBase::AnsiStr& path,
                                    const OruGuiBase::AnsiStr& reason);

/// Reads a whole file into memory. False with the reason in the error state.
bool ReadFile(const std::string& path, OruGuiBase::AnsiStr& content);

/// Copies a file to standard output in chunks, however large it is. False with the reason in the error state.
bool CopyToStandardOutput(const OruGuiBase::File& file);

}  // namespace CryptCli
