#pragma once

#include "bench/uncounted_http.h"

namespace Bench {

/// A crypt service and key servers in this process, for one command. Its responses are made in advance: an
/// exchange takes almost no time and allocates nothing, so that only the client is measured. For one thread.
class CannedService final : public UncountedHttp {
 public:
  static constexpr const char* kUrl = "https://crypt.example/api";

  /// How a key server fails.
  enum class Failure {
    Probe,    ///< it cannot be reached
    Command,  ///< it responds to the probe, and refuses the command with an error code
  };

  /// `response` is the body with which a key server responds to the command.
  explicit CannedService(const char* response);

  /// Makes the next `count` key servers that are asked fail.
  void FailNext(std::uint32_t count, Failure where) {
    failing_ = count;
    where_ = where;
  }

  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

 private:
  bool TakeFailure(Failure where);

  OruGuiBase::KVMap headers_;
  OruGuiBase::AnsiStr token_;
  OruGuiBase::AnsiStr response_;
  OruGuiBase::AnsiStr refusal_;
  OruGuiBase::AnsiStr unreachable_;
  std::uint32_t failing_ = 0;
  Failure where_ = Failure::Probe;
};

}  // namespace Bench
