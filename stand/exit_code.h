#pragma once

#include <string>

#include "stand/options.h"

namespace CryptStand {

/// What the program cryptstand returns to a script. The numbers are part of its interface; those up to 2 and
/// the signals mean the same as with the command cryptcli.
enum class ExitCode : int {
  Success = 0,       ///< Stopped by SIGINT or SIGTERM.
  Failed = 1,        ///< The reason is on standard error.
  Usage = 2,         ///< The command line is wrong; nothing was tried.
  FolderInUse = 10,  ///< Another process uses the folder.
  PortTaken = 11,    ///< A port is taken or not allowed.
  Folder = 12,       ///< The folder, or the file of --url-file, cannot be made, read or written.
};

/// The exit code for a failed start.
ExitCode ExitCodeOf(StartFailure failure);
/// The lines "Exit codes: ..." for the program's help.
std::string DescribeExitCodes();

}  // namespace CryptStand
