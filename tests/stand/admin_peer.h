#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/stand/readers.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {

/// The default group.
inline constexpr const char* kGroup = "QOB.1.100.1";

/// The steps of administering a group, on the first key server.
class AdminTest : public StandTest {
 protected:
  explicit AdminTest(Options options = {}) : StandTest(std::move(options)) {}

  static KVMap With(KVMap payload, const char* name, const Val& value);
  static Val Key(const std::string& certificate, const char* type = "externalCertificate");
  static Val Keys(const std::vector<std::string>& certificates);

  static KVMap ConfigPayload(const std::string& group = kGroup);
  static KVMap ReencryptPayload(const std::string& certificate, const std::string& group = kGroup);
  static KVMap ImportPayload(const std::string& key, const std::string& password = "",
                             const std::string& id = "seal");
  static KVMap DeletePayload(const std::string& subId, const char* id = "seal");
  static KVMap SignWith(const std::string& subId, const char* id = "seal",
                        const char* algorithm = "RSASSA-PKCS1-v1_5-SHA-512", const std::string& hash = "");

  Reply RunForGroup(const KVMap& payload, const std::string& group = kGroup) {
    return RunCommand(payload, group);
  }
  /// Uses a token that names the handle.
  Reply RunWithKey(const KVMap& payload, const KVMap& handle, const std::string& id);
  Reply Sign(const KVMap& payload);
  Reply Delete(const KVMap& payload);
  /// The wrapped key as the crypt service stores it.
  std::string KeptKey(const std::string& room = "demo") {
    return Get(Service("crypt/key/" + room)).Text("data");
  }
};

}  // namespace CryptStand
