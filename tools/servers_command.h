#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"
#include "tools/session.h"

namespace CryptCli {

/// What "room" and "doctor" have in common on the command line.
struct ServersOptions {
  SessionOptions session;
  std::string room;  ///< "room" alone: in place of --room
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddRoom(CLI::App& app, ServersOptions& options);
CLI::App* AddDoctor(CLI::App& app, ServersOptions& options);

/// Shows what the crypt service knows about a room and its key.
ExitCode RunRoom(const ServersOptions& options);
/// Asks the crypt service, and with a room each of its key servers, and says what is wrong and what to do.
/// Success if all work; otherwise the worst code (see Worse) of those that do not.
ExitCode RunDoctor(const ServersOptions& options);

}  // namespace CryptCli
