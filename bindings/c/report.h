#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bindings/c/include/cryptcli/cryptcli.h"

/// What an operation found out. Owned by the caller of the operation, who frees it. It does not change once
/// it was handed out, so the getters lend from it.
struct cryptcli_report {
  cryptcli_report() = default;
  cryptcli_report(const cryptcli_report&) = delete;
  cryptcli_report& operator=(const cryptcli_report&) = delete;
  /// Wipes the JSON: that of the named operation Decrypt contains the private keys of rooms.
  ~cryptcli_report();

  cryptcli_origin origin = CRYPTCLI_ORIGIN_UNSIGNED;
  bool hasOrigin = false;  ///< decrypt, verify and rekey came to a verdict about the origin
  std::string reason;
  std::string signedGroup;
  std::string signedRoom;
  std::string signedRoomUrl;
  std::string serviceGroup;
  std::string serviceRoom;
  std::vector<std::string> chain;  ///< subjects, from the signer up
  bool isPlainKey = false;         ///< the crypt service gave the room's private key to the client
  std::uint64_t bytes = 0;         ///< of the content
  std::string json;
};

namespace CryptCliC {

/// Makes the strings valid UTF-8 and builds the JSON from them. Called once, right before the report of an
/// operation on files is handed out.
void Complete(cryptcli_report& report);

}  // namespace CryptCliC
