#pragma once

#include <CLI/App.hpp>
#include <cryptcli/cryptcli.hpp>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace CryptCli {

/// The group of options under which --help lists everything about the services.
inline constexpr const char* kServices = "Services";

/// How the command reaches the services, as the command line says.
struct Connection {
  std::string profile;  ///< for the configuration, which has filled in what follows
  std::string service;
  std::string room;
  std::string caFile;
  std::string clientCert;
  std::string clientKey;
  std::string clientKeyPasswordFile;
  std::string proxy;
  std::vector<std::string> headers;
  std::string headerFile;
  std::uint32_t connectTimeout = 0;  ///< seconds; 0 for the library's default
  std::uint32_t timeout = 0;

  void AddOptions(CLI::App& command);
  /// For commands that work for a room, which has to be named unless the caller says otherwise.
  CLI::Option* AddRoomOption(CLI::App& command);
  /// The options of a client. False with the reason in `errorText` if a header is invalid or the file of
  /// headers cannot be read, or `stop` is requested while that takes long.
  bool GetOptions(cryptcli::Options& options, const std::stop_token& stop,
                  OruGuiBase::AnsiStr& errorText) const;
};

/// Adds "Name: value" to `headers`. False unless both parts are valid in an HTTP header.
bool AddHeader(const OruGuiBase::AnsiStr& line, OruGuiBase::KVMap& headers);

}  // namespace CryptCli
