#pragma once

#include <cstdint>
#include <string>

#include "exchange/icryptclienthttp.h"
#include "fuzz/support/input.h"
#include "fuzz/support/responses.h"

namespace Fuzz {

/// A transport whose every response is chosen by the input. It can be the usual response of a well-behaved
/// server, an unusual one, the response to another request, one of these with changes, or raw fuzz data. The
/// input chooses status, headers and result code too. When the input is used up, all servers behave well.
/// `input` must outlive the transport.
class HostileHttp final : public OruKalvix::ICryptClientHttp {
 public:
  explicit HostileHttp(Input& input) : input_(input) {}
  HostileHttp(const HostileHttp&) = delete;
  HostileHttp& operator=(const HostileHttp&) = delete;
  /// Fails unless the client gave back every reference that it took.
  ~HostileHttp();

  /// Whether an exchange failed without a reason, or a refusal had no error text: the client's message may
  /// then be empty.
  bool WasSilent() const { return wasSilent_; }
  /// Whether a response contained an unencrypted private key.
  bool GavePlainKey() const { return gavePlainKey_; }

  void* QueryInterface(const char* name) override;
  std::uint32_t AddRef() override;
  std::uint32_t Release() override;
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

 private:
  CannedResponse ChooseResponse(const Request& request);
  void ChangeJson(CannedResponse& canned);
  void ChangeHeaders(CannedResponse& canned);
  std::int32_t Refuse(OruKalvix::HttpResponse& response);
  void Note(const CannedResponse& canned);
  static void Deliver(const CannedResponse& canned, OruKalvix::HttpResponse& response);

  Input& input_;
  std::uint32_t references_ = 0;
  std::uint32_t exchanges_ = 0;
  bool wasSilent_ = false;
  bool gavePlainKey_ = false;
};

}  // namespace Fuzz
