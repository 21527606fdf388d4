#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"
#include "tools/key_servers.h"
#include "tools/session.h"

namespace CryptCli {

struct AuditLogOptions {
  SessionOptions session;
  KeyServers keyServers;
  std::string group;
  std::string groupName;
  std::string output;  ///< empty for standard output
  bool force = false;
};

CLI::App* AddAuditLog(CLI::App& app, AuditLogOptions& options);
/// Fetches the audit log of a group from all key servers. What some of them gave is delivered as well, and
/// told with a code of its own.
ExitCode RunAuditLog(const AuditLogOptions& options);

}  // namespace CryptCli
