#include "client/cryptcli.h"
#include "exchange/function_ref.h"
#include "exchange/member_reader.h"
#include "foundation/clock.h"
#include "foundation/dates.h"
#include "foundation/numbers.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::datetime;
using OruGuiBase::PackedDateTime;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// A query that no cache between here and the server has seen.
AnsiStr WithRandomQuery(AnsiStr url) noexcept {
  char digits[OruGuiBase::kUHyperDigits + 1];
  OruGuiBase::UHyper2Str(digits, OruGuiBase::GetPseudoRandomNumberEx(0, 0xFFFFFFFFFFFFFFFFU));
  url += '?';
  url += digits;
  return url;
}

Val PackTime(const datetime& time) noexcept {
  PackedDateTime packed;
  packed.Pack(static_cast<std::uint32_t>(time.year), static_cast<std::uint32_t>(time.month),
              static_cast<std::uint32_t>(time.day), static_cast<std::uint32_t>(time.hour),
              static_cast<std::uint32_t>(time.minute), static_cast<std::uint32_t>(time.second), 0, 0);
  return Val(packed);
}

}  // namespace

// Proves the server in use alive and learns its clock. A server that has once answered is spared the probe,
// unless authentication by certificate calls for a fresh one each time.
bool CryptClient::KeyServerConnect() noexcept {
  const AnsiStr& server = keyServerCursor.keyServerUrl;
  if (!certAuth && serverTimes.Find(server) < serverTimes.GetCount()) return true;
  AnsiStr body;
  if (!HttpGet(WithRandomQuery(GetServerUrl("status")), KVMap(), body, statusTimeout))
    return Fail("Could not connect to key server: %s", errorMessage.GetText());
  statusClock = OruGuiBase::GetClockTicks();
  const AnsiStr date = MemberReader(responseHeaders).String("date");
  datetime time;
  if (OruGuiBase::RFC1123Str2UniversalDateTime(date, time) != 0)
    return Fail("Invalid key server time [%s]", date.GetText());
  serverTimes.Put(server, PackTime(time));
  return true;
}

// One statusClock serves all servers, on purpose: what has passed counts from the latest probe of whichever
// server, also for the time of one that was probed before it. A client is made for one task and as a rule
// probes one server, where both are the same; a clock for each server would change the times of a client that
// failed over.
void CryptClient::GetKeyServerTime(datetime& time) noexcept {
  time = serverTimes.Get(keyServerCursor.keyServerUrl).AsDateTime();
  if (OruGuiBase::IsValidDateTime(time))
    OruGuiBase::AddSeconds(time, OruGuiBase::GetClockTicks(statusClock) / 1000);
}

bool CryptClient::KeyServerGetText(const AnsiStr& path, AnsiStr& text) noexcept {
  return SweepKeyServers(
      [&]() noexcept { return HttpGet(GetServerUrl(path), KVMap(), text) ? Step::Done : Step::NextServer; });
}

bool CryptClient::KeyServerGetCertStore(AnsiStr& text) noexcept {
  return KeyServerGetText("certstore", text);
}

bool CryptClient::KeyServerGetTrustStore(AnsiStr& text) noexcept {
  return KeyServerGetText("truststore", text);
}

}  // namespace OruKalvix
