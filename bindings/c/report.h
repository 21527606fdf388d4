#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bindings/c/include/cryptcli/cryptcli.h"

/// What an operation found out, complete before it is handed out: getters lend from it.
struct cryptcli_report {
  cryptcli_report() = default;
  cryptcli_report(const cryptcli_report&) = delete;
  cryptcli_report& operator=(const cryptcli_report&) = delete;
  /// Wipes the JSON, which can hold the private keys of rooms.
  ~cryptcli_report();

  cryptcli_origin origin = CRYPTCLI_ORIGIN_UNSIGNED;
  bool hasOrigin = false;  ///< false for encrypt
  std::string reason;
  std::string signedGroup;
  std::string signedRoom;
  std::string signedRoomUrl;
  std::string serviceGroup;
  std::string serviceRoom;
  std::vector<std::string> chain;
  bool isPlainKey = false;
  std::uint64_t bytes = 0;
  std::string json;
};

namespace CryptCliC {

/// Makes the strings valid UTF-8 and the JSON of them.
void Complete(cryptcli_report& report);

}  // namespace CryptCliC
