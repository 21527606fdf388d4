#pragma once

namespace CryptCli {

/// What the command returns to a script. The numbers are part of its interface.
enum class ExitCode : int {
  Success = 0,
  Failed = 1,         ///< the operation failed; nothing was written
  Usage = 2,          ///< the command line is wrong; nothing was tried
  NotVerified = 3,    ///< the content could be opened, but its origin is not proven; nothing was written
  KeyRefused = 4,     ///< the crypt service refused to hand out the room's key; nothing was written
  Partial = 5,        ///< the audit log was delivered, without the part of some key servers
  Interrupted = 128,  ///< plus the number of the signal that ended the command
};

/// Whether a named operation gave a result: Partial has one too, without the part of some key servers.
constexpr bool HasResult(ExitCode code) {
  return code == ExitCode::Success || code == ExitCode::Partial;
}

}  // namespace CryptCli
