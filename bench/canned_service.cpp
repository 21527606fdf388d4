// The transport of operation_bench. Bodies and headers are made once, so that an exchange costs the client no
// more than counting references: what is measured is the client.
#include "bench/canned_service.h"

#include <string_view>

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace Bench {

CannedService::CannedService(const char* response)
    : token_(R"({"authztoken":"4f1c2a9b7d3e5f60718293a4b5c6d7e8"})"),
      response_(response),
      refusal_(R"({"payload":{"type":"status","code":619}})"),
      unreachable_("Connection refused") {
  headers_.Set("Date", "Sun, 06 Nov 1994 08:49:37 GMT");
  headers_.Set("Content-Type", "application/json");
}

bool CannedService::TakeFailure(Failure where) {
  if (failing_ == 0 || where != where_) return false;
  --failing_;
  return true;
}

std::int32_t CannedService::SendRequest(const AnsiStr&, const AnsiStr& url, const KVMap&, const AnsiStr&,
                                        const OruKalvix::HttpOptions&, OruKalvix::HttpResponse& response) {
  const std::string_view address = url.View();
  response.status = 200;
  response.headers = headers_;
  if (address.ends_with("/rest/json")) {
    response.body = TakeFailure(Failure::Command) ? refusal_ : response_;
  } else if (address.starts_with(kUrl)) {
    response.body = token_;
  } else if (TakeFailure(Failure::Probe)) {
    response.errorText = unreachable_;
    return -1;
  }
  return 0;
}

}  // namespace Bench
