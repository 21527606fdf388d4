#pragma once

#include <cstdint>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "exchange/icryptclienthttp.h"

namespace CryptCliC {

/// A transport that hands each exchange to a callback of the application. Owned by one client; its references
/// are not counted, since no operation outlives the client.
class CallbackTransport final : public OruKalvix::ICryptClientHttp {
 public:
  CallbackTransport(cryptcli_transport_callback callback, void* context)
      : callback_(callback), context_(context) {}

  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;
  /// The same. If there is no response, `failure` gets the status that the callback set, or
  /// CRYPTCLI_UNREACHABLE.
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response,
                           cryptcli_status& failure);

 private:
  cryptcli_transport_callback callback_;
  void* context_;
};

}  // namespace CryptCliC
