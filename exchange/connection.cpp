// Contact with one key server: the status probe, the clock that the server reports, and its certificate
// lists. SweepKeyServers connects before each visit; signing and the validation of room keys ask for the
// time.
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

// A random query, so that no cache between here and the server can answer the probe.
AnsiStr WithRandomQuery(AnsiStr url) noexcept {
  char digits[OruGuiBase::kUHyperDigits + 1];
  OruGuiBase::UHyper2Str(digits, OruGuiBase::GetPseudoRandomNumberEx(0, 0xFFFFFFFFFFFFFFFFU));
  url += '?';
  url += digits;
  return url;
}

// The form in which the map of server times keeps a date. A year that it cannot keep reads as no time later.
Val PackTime(const datetime& time) noexcept {
  PackedDateTime packed;
  packed.Pack(static_cast<std::uint32_t>(time.year), static_cast<std::uint32_t>(time.month),
              static_cast<std::uint32_t>(time.day), static_cast<std::uint32_t>(time.hour),
              static_cast<std::uint32_t>(time.minute), static_cast<std::uint32_t>(time.second), 0, 0);
  return Val(packed);
}

}  // namespace

// Checks that the server in use responds, and learns its clock from the "Date" header. A server that
// responded once is not probed again, unless the crypt service asked for authentication by certificate: then
// every command probes.
bool CryptClient::KeyServerConnect() noexcept {
  const AnsiStr& server = keyServerCursor.keyServerUrl;
  if (!certAuth && serverTimes.Contains(server)) return true;
  AnsiStr body;
  if (!HttpGet(WithRandomQuery(GetServerUrl("status")), KVMap(), body, statusTimeout))
    return Fail("Could not connect to key server: %s", errorMessage.GetText());
  statusClock = OruGuiBase::GetClockTicks();  // Before the date is judged: the server did respond.
  const AnsiStr date = MemberReader(responseHeaders).String("date");
  datetime time;
  if (OruGuiBase::RFC1123Str2UniversalDateTime(date, time) != 0)
    return Fail("Invalid key server time [%s]", date.GetText());
  serverTimes.Put(server, PackTime(time));
  return true;
}

// The server's time at its probe, plus the seconds since. There is one statusClock for all servers, on
// purpose: the seconds count from the latest probe of any server. A client works on one task and normally
// probes one server, where that makes no difference; a clock for each server would change the times of a
// client that failed over.
void CryptClient::GetKeyServerTime(datetime& time) noexcept {
  time = serverTimes.Get(keyServerCursor.keyServerUrl).AsDateTime();
  if (OruGuiBase::IsValidDateTime(time))
    OruGuiBase::AddSeconds(time, OruGuiBase::GetClockTicks(statusClock) / 1000);
}

// For documents that a key server gives to anybody: no token, and the body as it comes.
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
