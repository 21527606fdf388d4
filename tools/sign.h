#pragma once

#include <CLI/App.hpp>
#include <string>

#include "tools/exit_code.h"
#include "tools/key_servers.h"
#include "tools/session.h"

namespace CryptCli {

/// The command line of "sign".
struct SignOptions {
  SessionOptions session;
  KeyServers keyServers;
  std::string object;
  std::string keyId;
  std::string keySubId;
  std::string algorithm = "RSASSA-PKCS1-v1_5-SHA-512";
  std::string transaction;
  std::string source;  ///< file whose digest is signed; empty when `hash` is given
  std::string hash;    ///< base64
  std::string output;  ///< empty for standard output
  bool binary = false;
  bool force = false;
};

/// Adds the subcommand; parsing fills `options`, which must outlive it.
CLI::App* AddSign(CLI::App& app, SignOptions& options);
/// Has a key server sign the digest of a file, or a hash that the user computed.
ExitCode RunSign(const SignOptions& options);

}  // namespace CryptCli
