#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "tools/bulk.h"
#include "tools/exit_code.h"
#include "tools/protect.h"
#include "tools/session.h"

namespace CryptCli {

/// What "verify" and "rekey" have in common on the command line.
struct VerifyOptions {
  SessionOptions session;
  std::vector<std::string> files;
  AcceptOptions origin;
  BulkOptions bulk;
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddVerify(CLI::App& app, VerifyOptions& options);
CLI::App* AddRekey(CLI::App& app, VerifyOptions& options);

/// Examine where protected files come from, and protect files again with the room's present key. A file that
/// fails does not keep the others from being tried; the result is the worst code (see Worse).
ExitCode RunVerify(const VerifyOptions& options);
ExitCode RunRekey(const VerifyOptions& options);

}  // namespace CryptCli
