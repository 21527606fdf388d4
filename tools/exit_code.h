#pragma once

#include <initializer_list>
#include <string>

namespace CryptCli {

/// What the command returns to a script. The numbers are part of its interface.
enum class ExitCode : int {
  Success = 0,
  Failed = 1,           ///< the operation failed; nothing was written
  Usage = 2,            ///< the command line is wrong; nothing was tried
  OriginNotProven = 3,  ///< the origin is not proven, or the room not the expected one; nothing was written
  KeyRefused = 4,       ///< the crypt service refused to hand out the room's key; nothing was written
  Partial = 5,          ///< the audit log was delivered, without the part of some key servers
  TryLater = 6,         ///< a server was not there or not ready; the same command may succeed later
  BadSource = 7,        ///< the source is damaged or no protected file; another attempt changes nothing
  Unauthorised = 8,     ///< a server did not accept the caller's credentials
  NotReported = 9,      ///< the operation succeeded; what the command had to print could not be written
  Interrupted = 128,    ///< plus the number of the signal that ended the command
};

/// Whether a named operation gave a result: Partial has one too, without the part of some key servers.
constexpr bool HasResult(ExitCode code) {
  return code == ExitCode::Success || code == ExitCode::Partial;
}

/// The lines "Exit codes: ..." for a command's help: 0, 1, 2, the given ones, 9 and signals, in their order.
std::string DescribeExitCodes(std::initializer_list<ExitCode> others);

}  // namespace CryptCli
