// The control path of the crypt service, by which scripts and tests of other programs change how the servers
// behave. The tests of this repository call class Stand directly. The header describes the requests.
#include "stand/control.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "stand/served.h"
#include "stand/stand.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

// A hundred years either way: enough for any certificate to be too early or too late.
constexpr std::int64_t kMaxClockOffset = 100L * 366 * 86400;

HttpReply Malformed(const char* text) {
  return Refusal(400, kMalformedErrorId, text);
}

HttpReply WrongMethod() {
  return Refusal(405, kMalformedErrorId, "Method not allowed");
}

HttpReply Done() {
  return JsonReply(KVMap());
}

// Reads an optional member into `target`; false when it is of another type.
template <class T>
bool ReadInto(const KVMap& body, const char* name, std::optional<T> (*read)(const KVMap&, const char*),
              T& target) {
  if (!body.Contains(name)) return true;
  auto value = read(body, name);
  if (!value.has_value()) return false;
  target = *std::move(value);
  return true;
}

bool IsCount(std::int64_t number) {
  return number >= 0 && number <= std::numeric_limits<int>::max();
}

// By name, by URL or by index. That the server exists is checked by whoever uses the index.
std::optional<int> ReadServer(const Stand& stand, const KVMap& body) {
  const std::string name = ReadText(body, "server").value_or("");
  if (name == "crypt" || name == stand.GetServiceUrl()) return kCryptService;
  const auto urls = stand.GetKeyServerUrls();
  const auto found = std::find(urls.begin(), urls.end(), name);
  if (found != urls.end()) return static_cast<int>(found - urls.begin());
  const auto index = ReadInteger(body, "server");
  return index.has_value() && *index >= 0 && *index < 1000 ? std::optional(static_cast<int>(*index))
                                                           : std::nullopt;
}

HttpReply ServeFault(Stand& stand, const KVMap& body) {
  const auto server = ReadServer(stand, body);
  const auto name = ReadText(body, "fault");
  Fault fault;
  std::int64_t uses = 0;
  std::int64_t number = 0;
  if (!HasMembers(body, {"server", "fault"}, {"operation", "uses", "number", "text"}) || !server || !name ||
      !ReadInto(body, "operation", ReadText, fault.operation) ||
      !ReadInto(body, "text", ReadText, fault.text) || !ReadInto(body, "uses", ReadInteger, uses) ||
      !ReadInto(body, "number", ReadInteger, number) || !IsCount(uses) || !IsCount(number)) {
    return Malformed("The fault is malformed");
  }
  if (*name == "none") return stand.ClearFaults(*server) ? Done() : Malformed("No such server");
  const auto type = FindFaultType(*name);
  if (!type.has_value()) return Malformed("Unknown fault");
  // Down() waits for the threads of all requests, and this request is one of them.
  if (*type == FaultType::Down && *server == kCryptService) {
    return Malformed("The crypt service cannot be taken down through itself");
  }
  fault.type = *type;
  fault.uses = static_cast<int>(uses);
  fault.number = static_cast<int>(number);
  return stand.SetFault(*server, fault) ? Done() : Malformed("No such server");
}

std::optional<RoomCertificate> FindRoomCertificate(const std::string& name) {
  if (name == "good") return RoomCertificate::Good;
  if (name == "expired") return RoomCertificate::Expired;
  if (name == "foreign") return RoomCertificate::Foreign;
  return name == "wrong-issuer" ? std::optional(RoomCertificate::WrongIssuer) : std::nullopt;
}

// Members that are missing keep their value. The certificate comes last, since it is the part that can fail
// for a room that has no key yet.
HttpReply ServeRoom(Stand& stand, const KVMap& body) {
  const auto room = ReadText(body, "room");
  RoomOptions options = stand.GetRoomOptions(room.value_or("")).value_or(RoomOptions());
  std::string certificate;
  std::string group;
  if (!HasMembers(body, {"room"}, {"locked", "plainkey", "certauth", "certificate", "group"}) || !room ||
      room->empty() || !ReadInto(body, "locked", ReadBool, options.locked) ||
      !ReadInto(body, "plainkey", ReadBool, options.plainKey) ||
      !ReadInto(body, "certauth", ReadBool, options.certAuth) ||
      !ReadInto(body, "certificate", ReadText, certificate) || !ReadInto(body, "group", ReadText, group)) {
    return Malformed("The room is malformed");
  }
  if (!stand.AddRoom(*room, group) || !stand.SetRoomOptions(*room, options))
    return Malformed("The room cannot be set");
  if (certificate.empty()) return Done();
  const auto type = FindRoomCertificate(certificate);
  const bool shown = type.has_value() && stand.SetRoomCertificate(*room, *type);
  return shown ? Done() : Malformed("The room has no key to show that way");
}

std::optional<IntegrityList> FindIntegrityList(const std::string& name) {
  if (name == "normal") return IntegrityList::Normal;
  if (name == "empty") return IntegrityList::Empty;
  if (name == "upper-case") return IntegrityList::UpperCase;
  if (name == "without-ours") return IntegrityList::WithoutOurs;
  return name == "other-kinds" ? std::optional(IntegrityList::OtherTypes) : std::nullopt;
}

// A string to use instead of a list, or null for the real list. False when the member is of another type.
bool ReadListText(const KVMap& body, const char* name, std::optional<std::string>& text) {
  const std::uint32_t index = body.Find(name);
  text = ReadText(body, name);
  return text.has_value() || index >= body.GetCount() || body.GetValues()[index].IsNil();
}

HttpReply ServeLists(Stand& stand, const KVMap& body) {
  std::optional<std::string> certStore;
  std::optional<std::string> trustStore;
  std::string integrity = "normal";
  const bool isWhole = HasMembers(body, {}, {"certstore", "truststore", "integrity"}) &&
                       ReadListText(body, "certstore", certStore) &&
                       ReadListText(body, "truststore", trustStore) &&
                       ReadInto(body, "integrity", ReadText, integrity);
  const auto type = FindIntegrityList(integrity);
  if (!isWhole || !type.has_value()) return Malformed("The lists are malformed");
  stand.GetSettings().SetCertStoreText(certStore);
  stand.GetSettings().SetTrustStoreText(trustStore);
  stand.GetSettings().SetIntegrityList(*type);
  return Done();
}

HttpReply ServeClock(Stand& stand, const KVMap& body) {
  const auto server = ReadServer(stand, body);
  const auto seconds = ReadInteger(body, "seconds");
  if (!HasMembers(body, {"server", "seconds"}) || !server || !seconds ||
      std::abs(*seconds) > kMaxClockOffset) {
    return Malformed("The clock is malformed");
  }
  stand.GetSettings().SetClockOffset(*server, *seconds);
  return Done();
}

HttpReply ServeAudit(Stand& stand, const KVMap& body) {
  const auto server = ReadServer(stand, body);
  const auto rows = ReadInteger(body, "rows");
  if (!HasMembers(body, {"server", "rows"}) || !server || *server == kCryptService || !rows || *rows < 0) {
    return Malformed("The audit log is malformed");
  }
  stand.GetSettings().SetGeneratedAudit(*server, static_cast<std::uint64_t>(*rows));
  return Done();
}

HttpReply ServeEvents(const Stand& stand) {
  OruGuiBase::Array<Val> list;
  for (const Event& event : stand.GetEvents()) {
    KVMap object;
    object.Set("number", Val(static_cast<std::int64_t>(event.number)));
    object.Set("server", event.server == kCryptService ? Val("crypt") : Val(std::int64_t{event.server}));
    object.Set("method", TextVal(event.method));
    object.Set("target", TextVal(event.target));
    object.Set("operation", TextVal(event.operation));
    object.Set("status", Val(std::int64_t{event.status}));
    object.Set("outcome", TextVal(event.outcome));
    list.Append(Val(object));
  }
  KVMap response;
  response.Set("events", Val(list));
  return JsonReply(response);
}

// The segments of the path. A script that joins the service's URL, which ends in a slash, and "/stand/..."
// makes an empty segment at the front, which is dropped.
std::vector<std::string> ControlPath(const HttpRequest& request) {
  auto path = request.PathSegments().value_or(std::vector<std::string>());
  if (path.size() > 1 && path.front().empty()) path.erase(path.begin());
  return path;
}

}  // namespace

bool IsControlRequest(const HttpRequest& request) {
  const auto path = ControlPath(request);
  return !path.empty() && path.front() == "stand";
}

HttpReply ServeControl(Stand& stand, const HttpRequest& request) {
  const auto path = ControlPath(request);
  const std::string what = path.size() == 2 ? path[1] : "";
  constexpr std::pair<const char*, HttpReply (*)(Stand&, const KVMap&)> kChanges[] = {{"fault", ServeFault},
                                                                                      {"room", ServeRoom},
                                                                                      {"lists", ServeLists},
                                                                                      {"clock", ServeClock},
                                                                                      {"audit", ServeAudit}};
  if (what == "events") return request.method == "GET" ? ServeEvents(stand) : WrongMethod();
  for (const auto& [name, serve] : kChanges) {
    if (what != name) continue;
    if (request.method != "POST") return WrongMethod();
    const auto body = ReadObject(request.body);
    return body.has_value() ? serve(stand, *body) : Malformed("The body is not a JSON object");
  }
  return Refusal(404, kUnknownErrorId, "Unknown path");
}

}  // namespace CryptStand
