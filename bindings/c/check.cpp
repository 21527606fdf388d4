// Asks the servers whether they work, for an application's self-test. Every request is one that anybody may
// send and that changes nothing: a room's key at the crypt service, the status of a key server.
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bindings/c/boundary.h"
#include "bindings/c/client.h"
#include "bindings/c/report.h"
#include "bindings/c/room.h"
#include "bindings/c/server_probe.h"
#include "bindings/c/text.h"
#include "exchange/url_segment.h"
#include "foundation/clock.h"
#include "foundation/val.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

// In seconds. Tokens and certificates are valid for minutes and more, so a smaller difference does no harm.
constexpr std::int64_t kClockTolerance = 300;
// Milliseconds for each key server if the crypt service sets no limit. With the default timeout of the
// client, each server that is down could take five minutes.
constexpr std::uint32_t kProbeTimeout = 10'000;

constexpr std::string_view kKeyServer = "key_server";

/// What was found out about one server or room. A value.
struct Finding {
  std::string_view subject;
  std::string name;
  cryptcli_status code = CRYPTCLI_OK;
  std::string message{};
  std::string advice{};
  bool retryable = false;  ///< time alone may help
};

bool IsTls(std::string_view url) {
  return url.starts_with("https://");
}

// Requests that stay on this machine need no TLS: nobody on a network can read them.
bool IsLocal(std::string_view url) {
  for (const char* host : {"http://127.", "http://localhost", "http://[::1]"}) {
    if (url.starts_with(host)) return true;
  }
  return false;
}

bool IsRedirect(std::uint32_t status) {
  return status >= 300 && status < 400;
}

// What to do about a server that cannot be used. The status of a TLS failure is that of no connection, so
// only the transport's message distinguishes the two.
std::string Advise(const Finding& finding, std::uint32_t httpStatus) {
  const std::string_view message = finding.message;
  if (message.find("Could not verify the certificate of ") != std::string_view::npos)
    return "Set the CA file to the authority of the server's certificate, or have that certificate renewed";
  if (message.find("Could not use the client certificate") != std::string_view::npos)
    return "Check the files of the client certificate and its key";
  switch (finding.code) {
    case CRYPTCLI_UNREACHABLE:
      if (message.ends_with("; the server had asked for a client certificate"))
        return "Check whether the server accepts the client certificate, or set one";
      return "Check the host name and the port in the URL, the network and the proxy";
    case CRYPTCLI_TIMEOUT:
      return "Check whether the server is overloaded or a firewall drops packets, or set a longer timeout";
    case CRYPTCLI_UNAUTHORISED:
      if (finding.subject == kKeyServer)
        return "Check the client certificate, or ask the operator of the key server: it gets no header";
      return "Check the credentials: the header or the client certificate for the crypt service";
    case CRYPTCLI_UNKNOWN_ROOM:
      return "Check the name of the room, the path in the URL of the crypt service, and who may use the room";
    case CRYPTCLI_KEY_REFUSED:
      return "Try again later, or ask the operator of the crypt service for the reason";
    default:
      break;
  }
  if (IsRedirect(httpStatus)) return "Set the URL that the server redirects to: redirects are not followed";
  if (httpStatus >= 500) return "Ask the operator of the server: it reports a failure of its own";
  return "Check that the URL is the base URL of such a server";
}

// HTTP statuses by which any web server refuses a path that it does not know. A crypt service may refuse a
// room by them as well.
bool IsUnclear(cryptcli_status code, std::uint32_t httpStatus) {
  constexpr std::uint32_t kTooManyRequests = 429;
  const bool isRefusal = code == CRYPTCLI_UNKNOWN_ROOM || code == CRYPTCLI_SERVER_ERROR;
  return isRefusal && httpStatus >= 400 && httpStatus < 500 && httpStatus != kTooManyRequests;
}

std::string NotExamined(std::uint32_t httpStatus) {
  return "Reachable, not examined: HTTP status " + std::to_string(httpStatus) +
         " does not show whether this is a crypt service. Check the URL, and check a room that exists";
}

// What to do about a server that works.
std::string Caution(std::string_view url, const ServerProbe& probe) {
  if (probe.time.has_value() && std::llabs(probe.clockDifference) > kClockTolerance)
    return "Set the clock of the server or of this machine";
  if (!IsTls(url) && !IsLocal(url)) return "Use https: on the way, others can read and change requests";
  return {};
}

KVMap Describe(const Finding& finding) {
  KVMap object;
  SetText(object, "subject", finding.subject);
  SetText(object, "name", finding.name);
  object.Put("ok", Val(finding.code == CRYPTCLI_OK));
  SetText(object, "code", cryptcli_status_name(finding.code));
  object.Put("retryable", Val(finding.retryable));
  SetText(object, "message", finding.message);
  SetText(object, "advice", finding.advice);
  return object;
}

KVMap Describe(const Finding& finding, const ServerProbe& probe) {
  KVMap object = Describe(finding);
  object.Put("httpStatus", Val(std::int64_t{probe.httpStatus}));
  object.Put("tls", Val(IsTls(finding.name)));
  object.Put("milliseconds", Val(std::int64_t{probe.milliseconds}));
  if (probe.time.has_value()) {
    SetText(object, "time", TimeText(*probe.time));
    object.Put("clockDifference", Val(probe.clockDifference));
  }
  return object;
}

/// One check: asks the servers one after another and collects what it finds.
class Check {
 public:
  Check(Operation& operation, const cryptcli_client& client) : operation_(operation), client_(client) {}

  void AskService();
  void AskRoom(std::string_view room);
  /// The JSON members of cryptcli_check.
  KVMap GetResult() const;

 private:
  // Call it right after the exchange of the finding: the operation knows only of the latest one whether a
  // repetition may help.
  void AddServer(Finding finding, const ServerProbe& probe);
  cryptcli_status CodeOf(const RoomQuery& query) const;
  bool AddService(const RoomQuery& query, bool isRefusal);
  void AddRoom(Finding finding);
  void AskKeyServer(const std::string& url, std::uint32_t timeout);

  Operation& operation_;
  const cryptcli_client& client_;
  Array<Val> findings_;
  KVMap room_;
  bool ok_ = true;
};

void Check::AddServer(Finding finding, const ServerProbe& probe) {
  const bool ok = finding.code == CRYPTCLI_OK;
  ok_ = ok_ && ok;
  finding.retryable = !ok && operation_.IsWorthRetrying(finding.code, finding.message);
  if (finding.advice.empty())
    finding.advice = ok ? Caution(finding.name, probe) : Advise(finding, probe.httpStatus);
  findings_.Append(Val(Describe(finding, probe)));
}

void Check::AddRoom(Finding finding) {
  const bool ok = finding.code == CRYPTCLI_OK;
  ok_ = ok_ && ok;
  finding.retryable = !ok && operation_.IsWorthRetrying(finding.code, finding.message);
  if (!ok && finding.advice.empty()) finding.advice = Advise(finding, 0);
  findings_.Append(Val(Describe(finding)));
}

// No resource of a crypt service is there without a room, so one is asked for that nobody has: its refusal
// has a form that other servers do not have.
void Check::AskService() {
  const std::string room =
      "cryptcli-check-" + std::to_string(OruGuiBase::GetPseudoRandomNumberEx(0, UINT64_MAX));
  const RoomQuery query = QueryRoom(operation_, client_, room);
  AddService(query, IsUnclear(CodeOf(query), query.probe.httpStatus));
}

cryptcli_status Check::CodeOf(const RoomQuery& query) const {
  return query.ok ? CRYPTCLI_OK : operation_.GetCode(query.message);
}

// `isRefusal` says that the failure of the query says nothing against the service.
bool Check::AddService(const RoomQuery& query, bool isRefusal) {
  const cryptcli_status code = CodeOf(query);
  const bool isAboutRoom =
      isRefusal || query.ok || code == CRYPTCLI_UNKNOWN_ROOM || code == CRYPTCLI_KEY_REFUSED;
  Finding finding{"service", client_.options.service};
  if (!isAboutRoom) {
    finding.code = code;
    finding.message = query.message;
  } else if (IsUnclear(code, query.probe.httpStatus)) {
    finding.advice = NotExamined(query.probe.httpStatus);
  }
  AddServer(std::move(finding), query.probe);
  return isAboutRoom;
}

// One request, for the room's key, gives two findings: whether the crypt service works, and then whether the
// room does.
void Check::AskRoom(std::string_view room) {
  const RoomQuery query = QueryRoom(operation_, client_, room);
  const cryptcli_status code = CodeOf(query);
  if (!AddService(query, /*isRefusal=*/false)) return;
  Finding finding{"room", std::string(room), code, query.message};
  if (query.ok && query.info.keyServers.empty()) {
    finding.code = CRYPTCLI_SERVER_ERROR;
    finding.message = "Invalid key server URL";
    finding.advice = "Ask the operator of the crypt service: it names no key server for the room";
  } else if (query.ok && query.info.keyType == KeyType::Plain) {
    finding.advice = "Have the room's key wrapped: clients get it in the clear, so no signer can be checked";
  }
  AddRoom(std::move(finding));
  if (!query.ok) return;
  room_ = DescribeRoom(query.info);
  for (const std::string& url : query.info.keyServers) AskKeyServer(url, query.info.statusTimeout * 1000U);
}

// Probes a key server as the class does: the status resource, with a random query so that no cache responds,
// and a valid clock in the response.
void Check::AskKeyServer(const std::string& url, std::uint32_t timeout) {
  if (operation_.IsCancelled()) return;
  Finding finding{kKeyServer, url};
  AnsiStr address = ToAnsi(url);
  OruKalvix::AppendPath(address, "status?");
  address += ToAnsi(std::to_string(OruGuiBase::GetPseudoRandomNumberEx(0, UINT64_MAX)));
  ServerProbe probe;
  if (url.empty()) {
    finding.message = "Invalid key server URL";
  } else {
    probe = ProbeServer(operation_, address, timeout != 0 ? timeout : kProbeTimeout);
    if (!probe.message.empty()) {
      finding.message = "Could not connect to key server: " + probe.message;
    } else if (!probe.time.has_value()) {
      finding.message = "Invalid key server time [" + ToString(probe.date) + "]";
    }
  }
  if (!finding.message.empty()) finding.code = operation_.GetCode(finding.message);
  AddServer(std::move(finding), probe);
}

KVMap Check::GetResult() const {
  KVMap object;
  object.Put("ok", Val(ok_));
  object.Put("findings", Val(findings_));
  if (!room_.IsEmpty()) object.Put("room", Val(room_));
  return object;
}

}  // namespace

}  // namespace CryptCliC

cryptcli_status cryptcli_check(const cryptcli_client* client, const char* room, cryptcli_call* call,
                               cryptcli_report** report, cryptcli_error** error) {
  using namespace CryptCliC;
  if (report != nullptr) *report = nullptr;
  return Guarded(error, [&]() -> cryptcli_status {
    if (!CheckRoom(client, room != nullptr ? room : "none", error)) return CRYPTCLI_INVALID_ARGUMENT;
    Operation operation(*client, call);
    Check check(operation, *client);
    if (room != nullptr) {
      check.AskRoom(room);
    } else {
      check.AskService();
    }
    if (operation.IsCancelled()) return Fail(error, operation.MakeFailure("The check was cancelled"));
    auto made = std::make_unique<cryptcli_report>();
    made->json = ToJson(check.GetResult());
    if (report != nullptr) *report = made.release();
    return CRYPTCLI_OK;
  });
}
