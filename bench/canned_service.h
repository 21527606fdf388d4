#pragma once

#include "exchange/icryptclienthttp.h"

namespace Bench {

/// A crypt service and key servers in the process, for one command, with responses that are made once: an
/// exchange costs next to nothing and allocates nothing, so that what is measured is the client. It serves
/// one thread.
class CannedService final : public OruKalvix::ICryptClientHttp {
 public:
  static constexpr const char* kUrl = "https://crypt.example/api";

  /// Where a key server that is to fail does so.
  enum class Failure {
    Probe,    ///< it cannot be reached
    Command,  ///< it answers the probe, and the command with an error code
  };

  /// `answer` is the body that a key server gives to the command.
  explicit CannedService(const char* response);

  /// Lets the next `count` key servers that are asked fail.
  void FailNext(std::uint32_t count, Failure where) { failing_ = count, where_ = where; }

  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

 private:
  bool IsToFail(Failure where);

  OruGuiBase::KVMap headers_;
  OruGuiBase::AnsiStr token_;
  OruGuiBase::AnsiStr response_;
  OruGuiBase::AnsiStr refusal_;
  OruGuiBase::AnsiStr unreachable_;
  std::uint32_t failing_ = 0;
  Failure where_ = Failure::Probe;
};

}  // namespace Bench
