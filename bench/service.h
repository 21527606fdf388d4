#pragma once

#include <string>

#include "exchange/icryptclienthttp.h"
#include "stand/cert_maker.h"

namespace Bench {

/// A crypt service and one key server in the process: a transport that answers with real keys and touches no
/// network. It knows one room, which has a key.
class Service final : public OruKalvix::ICryptClientHttp {
 public:
  static constexpr const char* kUrl = "bench://service";
  static constexpr const char* kRoom = "room";

  Service();

  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

  /// The certificate and key that files are addressed to, and those that sign, for other software.
  const CryptStand::Identity& GetRoomKey() const { return roomKey_; }
  const CryptStand::Identity& GetIntegrityKey() const { return integrityKey_; }
  const CryptStand::Identity& GetRoot() const { return root_; }

 private:
  std::string Respond(const std::string& url, const OruGuiBase::AnsiStr& body) const;
  std::string RoomKeyResponse() const;
  std::string Command(const OruGuiBase::AnsiStr& body) const;

  CryptStand::Identity root_;
  CryptStand::Identity inner_;
  CryptStand::Identity roomKey_;
  CryptStand::Identity integrityKey_;
  std::string wrappedKey_;
};

}  // namespace Bench
