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
  /// Makes the transport. Null with the reason when the options cannot be right.
  OruKalvix::CryptClientCurl::Ptr MakeTransport(OruGuiBase::AnsiStr& errorText) const;
};

/// Splits "Name: value" into a member of `headers`. False unless both sides of the colon can be those of a
/// header.
bool AddHeader(const OruGuiBase::AnsiStr& line, OruGuiBase::KVMap& headers);

}  // namespace CryptCli
