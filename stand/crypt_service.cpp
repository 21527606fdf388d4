// The resources of the crypt service except for tokens. It checks requests strictly and reports what is
// wrong: this server is there to find mistakes in clients.
#include "stand/crypt_service.h"

#include <algorithm>

#include "stand/required_headers.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

Served RefusedBody(const std::string& text) {
  return RefusedWith(400, kMalformedErrorId, text);
}

Served Success(const KVMap& response) {
  return {JsonReply(response), "ok"};
}

// The resources whose path is "crypt/RESOURCE/ID".
constexpr const char* kResources[] = {"key", "certlist", "newkey", "authztoken"};

bool HasJsonType(const HttpRequest& request) {
  const std::string type = request.ContentType();
  return type == "text/json" || type == "application/json";
}

}  // namespace

// The path is "crypt/RESOURCE/ID", for integrity lists "crypt/certlist/GROUP/integrity/DIGEST".
std::optional<CryptService::Route> CryptService::FindRoute(const HttpRequest& request) {
  const auto path = request.PathSegments();
  if (!path.has_value() || path->size() < 3 || path->front() != "crypt" || (*path)[2].empty())
    return std::nullopt;
  const std::string& first = (*path)[1];
  if (path->size() == 5 && first == "certlist" && (*path)[3] == "integrity") {
    return Route{"integrity", (*path)[2], (*path)[4]};
  }
  const bool isKnown = std::find(std::begin(kResources), std::end(kResources), first) != std::end(kResources);
  return path->size() == 3 && isKnown ? std::optional(Route{first, (*path)[2], ""}) : std::nullopt;
}

std::vector<std::string> CryptService::GetOperations() {
  std::vector<std::string> operations(std::begin(kResources), std::end(kResources));
  operations.emplace_back("integrity");
  return operations;
}

Served CryptService::Serve(const HttpRequest& request, const std::optional<Route>& route) {
  // First of all: without credentials a client does not even learn which paths there are.
  if (auto refusal = RefuseWithoutHeaders(request, realm_.settings.GetRequiredHeaders())) return *refusal;
  if (!route.has_value()) return RefusedWith(404, kUnknownErrorId, "Unknown path");
  const bool isKey = route->operation == "key";
  if (isKey && request.method == "GET") return ServeKey(request, *route);
  if (request.method != "POST") return WrongMethod(isKey ? "GET, POST" : "POST");
  if (!HasJsonType(request)) return RefusedWith(415, kMalformedErrorId, "Content type is not JSON");
  if (isKey) return ServeKey(request, *route);
  const auto body = ReadObject(request.body);
  if (!body.has_value()) return RefusedBody("The body is not a JSON object");
  if (route->operation == "certlist") return ServeCertList(*body, *route);
  if (route->operation == "newkey") return ServeNewKey(*body, *route);
  if (route->operation == "authztoken") return ServeToken(*body, *route);
  return ServeIntegrity(*body, *route);
}

std::optional<Served> CryptService::RefuseRoom(const std::optional<RoomRecord>& room) const {
  if (!room.has_value()) return RefusedWith(404, kUnknownErrorId, "Unknown room");
  if (room->options.locked) return RefusedWith(403, kLockedErrorId, "The room is locked");
  return std::nullopt;
}

// A client names the server that it uses, if any. Announced URLs count too, since a
// test may announce others than the real ones.
bool CryptService::IsKeyServerOrEmpty(const std::optional<std::string>& url) const {
  if (!url.has_value()) return false;
  const auto announced = realm_.settings.GetAnnouncedUrls();
  return url->empty() || realm_.settings.IsKeyServer(*url) ||
         std::find(announced.begin(), announced.end(), *url) != announced.end();
}

void CryptService::AddConfiguration(const RoomRecord& room, KVMap& response) const {
  response.Set("group", TextVal(room.group));
  response.Set("keyserver", TextsVal(realm_.settings.GetAnnouncedUrls()));
  response.Set("statustimeout", TextVal(realm_.settings.GetStatusTimeout()));
  response.Set("certauth", Val(room.options.certAuth));
}

// Refusals about the room have status 200: for this resource, clients look for them in the response.
Served CryptService::ServeKey(const HttpRequest& request, const Route& route) {
  std::optional<KVMap> id;
  if (request.method == "POST") {
    const auto body = ReadObject(request.body);
    id = body.has_value() && HasMembers(*body, {"id"}) ? ReadMap(*body, "id") : std::nullopt;
    const bool isWhole = id.has_value() && HasMembers(*id, {"issuer", "serial"}) && ReadText(*id, "issuer") &&
                         ReadText(*id, "serial");
    if (!isWhole) return RefusedBody("The body is not {\"id\":{\"issuer\",\"serial\"}}");
  }
  const auto room = realm_.store.GetRoom(route.id);
  if (!room.has_value()) return RefusedWith(200, kUnknownErrorId, "Unknown room");
  if (room->options.locked) return RefusedWith(200, kLockedErrorId, "The room is locked");
  if (!id.has_value()) return KeyResponse(*room, realm_.store.GetCurrentRoomKey(room->id));
  return KeyResponse(*room,
                     realm_.store.FindRoomKey(room->id, *ReadText(*id, "issuer"), *ReadText(*id, "serial")));
}

Served CryptService::KeyResponse(const RoomRecord& room, const std::optional<RoomKeyRecord>& record) {
  KVMap response;
  response.Set("room", TextVal(room.id));
  if (record.has_value()) {
    response.Set("certificate", TextVal(record->certificate));
    response.Set("data", TextVal(record->data));
  }
  if (record.has_value() && room.options.plainKey) {
    const auto opened = realm_.rooms.OpenKey(record->data);
    if (opened.has_value()) response.Set("plain", TextVal(opened->key.ToPEM()));
  }
  AddConfiguration(room, response);
  return Success(response);
}

Served CryptService::ServeCertList(const KVMap& body, const Route& route) {
  if (!HasMembers(body, {"keyserver"}) || !IsKeyServerOrEmpty(ReadText(body, "keyserver"))) {
    return RefusedBody("\"keyserver\" is not a key server of this service");
  }
  const auto room = realm_.store.GetRoom(route.id);
  if (const auto refusal = RefuseRoom(room)) return *refusal;
  // An upload makes the number stale: its key might not be wrapped for the members of a later list.
  const auto sequence = realm_.store.HandOutSequence(room->id, realm_.settings.IsSequencePerRequest());
  const Identity member = realm_.rooms.GetMember(room->id);
  if (!sequence.has_value() || member.certificate.IsEmpty()) {
    return RefusedWith(500, kUnknownErrorId, "The room's certificates cannot be made");
  }
  KVMap response;
  response.Set("room", TextVal(room->id));
  response.Set("seqnr", TextVal(*sequence));
  response.Set("certificates", TextsVal({member.certificate.ToPEM()}));
  AddConfiguration(*room, response);
  return Success(response);
}

Served CryptService::ServeNewKey(const KVMap& body, const Route& route) {
  const auto sequence = ReadText(body, "seqnr");
  const auto data = ReadText(body, "key");
  if (!HasMembers(body, {"seqnr", "key"}) || !sequence.has_value() || !data.has_value()) {
    return RefusedBody("The body is not {\"seqnr\",\"key\"}");
  }
  const auto room = realm_.store.GetRoom(route.id);
  if (const auto refusal = RefuseRoom(room)) return *refusal;
  const auto opened = realm_.rooms.OpenKey(*data);
  if (!opened.has_value()) return RefusedBody("\"key\" is not a wrapped key of these key servers");
  // The certificate comes from the signed wrapped key, not from the client.
  switch (realm_.store.UploadRoomKey(room->id, *sequence, opened->certificate, *data)) {
    case Upload::Done:
      return Success(KVMap());
    case Upload::StaleSequence:
      return RefusedWith(409, kMalformedErrorId, "The sequence number is stale");
    case Upload::Failed:
      break;
  }
  return RefusedWith(500, kUnknownErrorId, "The key cannot be stored");
}

Served CryptService::ServeIntegrity(const KVMap& body, const Route& route) {
  if (!HasMembers(body, {"keyserver"}) || !IsKeyServerOrEmpty(ReadText(body, "keyserver"))) {
    return RefusedBody("\"keyserver\" is not a key server of this service");
  }
  // The only digest that clients ask for.
  if (route.digest != "sha256") return RefusedWith(404, kUnknownErrorId, "Unknown digest");
  if (!realm_.store.HasGroup(route.id)) return RefusedWith(404, kUnknownErrorId, "Unknown group");
  const IntegrityList type = realm_.settings.GetIntegrityList();
  OruGuiBase::Array<Val> list;
  if (type == IntegrityList::OtherTypes) {
    for (const Val& other : {Val(std::int64_t{42}), Val(), Val(KVMap())}) list.Append(other);
  }
  if (type == IntegrityList::WithoutOurs) list.Append(TextVal(std::string(64, '0')));
  const bool hasOurs = type != IntegrityList::WithoutOurs && type != IntegrityList::Empty;
  for (const auto& key : realm_.rooms.GetIntegrityKeys(route.id)) {
    std::string text = key.identity.certificate.GetDigest(kSHA256);
    if (type == IntegrityList::UpperCase) std::transform(text.begin(), text.end(), text.begin(), ::toupper);
    if (hasOurs) list.Append(TextVal(text));
  }
  KVMap response;
  response.Set("integrity", Val(list));
  return Success(response);
}

}  // namespace CryptStand
