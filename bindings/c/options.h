#pragma once

#include <cstdint>
#include <string>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "transport/curlhttp.h"

/// The options of a client: a value, owned by the application and copied when a client is made from it.
struct cryptcli_options {
  // The defaults in milliseconds, as the public header documents them.
  static constexpr std::uint32_t kConnectTimeout = 30'000;
  static constexpr std::uint32_t kTimeout = 300'000;

  std::string service;
  std::string clientKeyPasswordFile;
  OruKalvix::CryptClientCurlOptions curl;
  OruGuiBase::KVMap serviceHeaders;                ///< name to string, for the crypt service alone
  std::uint32_t connectTimeout = kConnectTimeout;  ///< milliseconds
  std::uint32_t timeout = kTimeout;                ///< milliseconds
  std::string temporaryDirectory;                  ///< empty for the system's
  cryptcli_log_level logLevel = 0;
  cryptcli_log_callback log = nullptr;
  void* logContext = nullptr;
  bool revealSecrets = false;
  cryptcli_transport_callback transport = nullptr;
  void* transportContext = nullptr;
};
