// Single requests to servers, for the functions that change nothing: room.cpp asks for a room's key,
// check.cpp asks each server whether it responds. The class has no member for that. Messages and traces are
// the same as those of its own exchanges, so that one table of messages and one log serve both.
#include "bindings/c/server_probe.h"

#include <chrono>

#include "bindings/c/headers.h"
#include "bindings/c/text.h"
#include "client/tracing.h"
#include "foundation/dates.h"
#include "foundation/format.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

constexpr std::uint32_t kStatusOk = 200;

void ReadClock(const KVMap& headers, ServerProbe& probe) {
  probe.date = GetHeader(headers, "Date");
  OruGuiBase::datetime time;
  if (OruGuiBase::RFC1123Str2UniversalDateTime(probe.date, time) != 0) return;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  probe.time = time;
  probe.clockDifference =
      OruGuiBase::ToUnixTime(time) - std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

}  // namespace

ServerProbe ProbeServer(Operation& operation, const AnsiStr& url, std::uint32_t timeout) {
  using Clock = std::chrono::steady_clock;
  OruKalvix::HttpOptions options;
  options.useTimeouts = timeout != 0;
  for (std::uint32_t& value : options.timeouts) value = timeout;
  OruKalvix::HttpResponse response;
  const Clock::time_point start = Clock::now();
  const bool responded = operation.SendRequest("GET", url, {}, {}, options, response) >= 0;
  ServerProbe probe;
  probe.milliseconds = static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
  CRYPTCLI_TRACE_STR(1, "CryptClient::HttpRequest: %s %s", "GET", url.GetText());
  if (responded) {
    probe.httpStatus = response.status;
    ReadClock(response.headers, probe);
  }
  if (responded && response.status == kStatusOk) {
    probe.body = response.body;
    return probe;
  }
  const AnsiStr reason =
      responded ? OruGuiBase::FmtArgs("HTTP %ld", static_cast<long>(response.status)) : response.errorText;
  CRYPTCLI_TRACE_MSG(4, "CryptClient: Error: %s", reason.GetText());
  probe.message = ToString(reason);
  return probe;
}

}  // namespace CryptCliC
