#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "foundation/ansistr.h"
#include "transport/curlhttp.h"

namespace CryptCli {

/// The group of options under which --help lists everything about the services.
inline constexpr const char* kServices = "Services";

/// How the command reaches the services, as the command line says.
struct Connection {
  std::string service;
  std::string room;
  std::string caFile;
  std::string clientCert;
  std::string clientKey;
  std::string clientKeyPasswordFile;
  std::string proxy;
  std::vector<std::string> headers;
  std::string headerFile;

  void AddOptions(CLI::App& command);
  /// For commands that work for a room.
  void AddRoomOption(CLI::App& command);
  /// Makes the transport. Null with the reason in `errorText` when an option is wrong: a file that cannot be
  /// read, an invalid header or URL.
  OruKalvix::CryptClientCurl::Ptr MakeTransport(OruGuiBase::AnsiStr& errorText) const;
};

/// Adds "Name: value" to `headers`. False unless both parts are valid in an HTTP header.
bool AddHeader(const OruGuiBase::AnsiStr& line, OruGuiBase::KVMap& headers);

}  // namespace CryptCli
