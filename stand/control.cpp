#include "stand/control.h"

#include "stand/cryptservice.h"
#include "stand/stand.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

HttpReply Malformed(const char* text) {
  return Refusal(400, kMalformedErrorId, text);
}

HttpReply Done() {
  return JsonReply(KVMap());
}

// Reads an optional member into `target`; false when it is of another kind.
template <class T>
bool ReadInto(const KVMap& body, const char* name, std::optional<T> (*read)(const KVMap&, const char*),
              T& target) {
  if (body.Find(name) >= body.GetCount()) return true;
  auto value = read(body, name);
  if (value.has_value()) target = *std::move(value);
  return value.has_value();
}

std::optional<int> ReadServer(const KVMap& body) {
  if (ReadText(body, "server") == "crypt") return kCryptService;
  const auto index = ReadInteger(body, "server");
  return index.has_value() && *index >= 0 && *index < 1000 ? std::optional(static_cast<int>(*index))
                                                           : std::nullopt;
}

HttpReply ServeFault(Stand& stand, const KVMap& body) {
  const auto server = ReadServer(body);
  const auto name = ReadText(body, "fault");
  Fault fault;
  std::int64_t uses = 0;
  std::int64_t number = 0;
  if (!HasMembers(body, {"server", "fault"}, {"operation", "uses", "number", "text"}) || !server || !name ||
      !ReadInto(body, "operation", ReadText, fault.operation) ||
      !ReadInto(body, "text", ReadText, fault.text) || !ReadInto(body, "uses", ReadInteger, uses) ||
      !ReadInto(body, "number", ReadInteger, number)) {
    return Malformed("The fault is malformed");
  }
  if (*name == "none") return stand.ClearFaults(*server) ? Done() : Malformed("No such server");
  const auto kind = FindFaultKind(*name);
  if (!kind.has_value()) return Malformed("Unknown fault");
  if (*kind == FaultKind::Down && *server == kCryptService) {
    return Malformed("The crypt service cannot be taken down through itself");
  }
  fault.kind = *kind;
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

HttpReply ServeRoom(Stand& stand, const KVMap& body) {
  const auto room = ReadText(body, "room");
  RoomOptions options;
  std::string certificate;
  if (!HasMembers(body, {"room"}, {"locked", "plainkey", "certauth", "certificate"}) || !room ||
      room->empty() || !ReadInto(body, "locked", ReadBool, options.locked) ||
      !ReadInto(body, "plainkey", ReadBool, options.plainKey) ||
      !ReadInto(body, "certauth", ReadBool, options.certAuth) ||
      !ReadInto(body, "certificate", ReadText, certificate)) {
    return Malformed("The room is malformed");
  }
  if (!stand.AddRoom(*room) || !stand.SetRoomOptions(*room, options))
    return Malformed("The room cannot be set");
  if (certificate.empty()) return Done();
  const auto kind = FindRoomCertificate(certificate);
  const bool shown = kind.has_value() && stand.SetRoomCertificate(*room, *kind);
  return shown ? Done() : Malformed("The room has no key to show that way");
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
  KVMap answer;
  answer.Set("events", Val(list));
  return JsonReply(answer);
}

}  // namespace

bool IsControlRequest(const HttpRequest& request) {
  const auto path = request.PathSegments();
  return path.has_value() && path->front() == "stand";
}

HttpReply ServeControl(Stand& stand, const HttpRequest& request) {
  const auto path = request.PathSegments();
  const std::string what = path->size() == 2 ? (*path)[1] : "";
  if (what != "fault" && what != "room" && what != "events")
    return Refusal(404, kUnknownErrorId, "Unknown path");
  const char* method = what == "events" ? "GET" : "POST";
  if (request.method != method) return Refusal(405, kMalformedErrorId, "Method not allowed");
  if (what == "events") return ServeEvents(stand);
  const auto body = ReadObject(request.body);
  if (!body.has_value()) return Malformed("Body is no JSON object");
  return what == "fault" ? ServeFault(stand, *body) : ServeRoom(stand, *body);
}

}  // namespace CryptStand
