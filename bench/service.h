#pragma once

#include <string>

#include "bench/uncounted_http.h"
#include "stand/cert_maker.h"

namespace Bench {

/// A crypt service and one key server in this process: a transport that responds with real keys and uses no
/// network. It knows one room, which has a key.
class Service final : public UncountedHttp {
 public:
  static constexpr const char* kUrl = "https://crypt.example";
  static constexpr const char* kRoom = "room";

  Service();

  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

  /// The identities that files are encrypted for and signed with, and their root, for other software.
  const CryptStand::Identity& GetRoomKey() const { return roomKey_; }
  const CryptStand::Identity& GetIntegrityKey() const { return integrityKey_; }
  const CryptStand::Identity& GetRoot() const { return root_; }

 private:
  std::string MakeBody(const std::string& url, const OruGuiBase::AnsiStr& body) const;
  std::string RoomKeyResponse() const;
  std::string Command(const OruGuiBase::AnsiStr& body) const;

  CryptStand::Identity root_;
  CryptStand::Identity inner_;
  CryptStand::Identity roomKey_;
  CryptStand::Identity integrityKey_;
  std::string wrappedKey_;
};

}  // namespace Bench
