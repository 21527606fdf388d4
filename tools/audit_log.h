#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"
#include "tools/key_servers.h"
#include "tools/session.h"

namespace CryptCli {

/// The command line of "audit-log".
struct AuditLogOptions {
  SessionOptions session;
  KeyServers keyServers;
  std::string group;
  std::string groupName;
  std::string output;  ///< empty for standard output
  bool force = false;
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddAuditLog(CLI::App& app, AuditLogOptions& options);
/// Fetches the audit log of a group from all key servers. If only some of them gave theirs, the log is
/// delivered without the rest and the exit code is Partial.
ExitCode RunAuditLog(const AuditLogOptions& options);

}  // namespace CryptCli
