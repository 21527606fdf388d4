// The resource "authztoken": which token requests are well-formed, and who may have a token. Tokens
// themselves are kept in tokens.cpp.
#include "stand/commands.h"
#include "stand/crypt_service.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

// Tokens of these commands are bound to one key.
bool NamesKey(const std::string& operation) {
  return operation == "signRequest" || operation == "deleteKeyRequest";
}

// The claim that the request describes; none when it is malformed.
std::optional<TokenClaim> ReadClaim(const KVMap& body, const std::string& id) {
  const auto server = ReadText(body, "keyserver");
  const auto operation = ReadText(body, "operation");
  if (!HasMembers(body, {"keyserver", "operation"}, {"transaction", "key"}) || !server || !operation ||
      FindCommand(*operation) == nullptr) {
    return std::nullopt;
  }
  if (body.Contains("transaction") && ReadText(body, "transaction").value_or("").empty()) {
    return std::nullopt;
  }
  TokenClaim claim{*server, *operation, id, "", ""};
  if (!body.Contains("key")) return claim;
  const auto key = ReadMap(body, "key");
  if (!key.has_value() || !NamesKey(*operation) || !HasMembers(*key, {"type", "id", "subId"}) ||
      ReadText(*key, "type") != "handle" || !ReadText(*key, "id") || !ReadText(*key, "subId")) {
    return std::nullopt;
  }
  claim.keyId = *ReadText(*key, "id");
  claim.keySubId = *ReadText(*key, "subId");
  return claim;
}

}  // namespace

Served CryptService::ServeToken(const KVMap& body, const Route& route) {
  const auto claim = ReadClaim(body, route.id);
  if (!claim.has_value()) return RefusedWith(400, kMalformedErrorId, "The token request is malformed");
  if (!realm_.settings.IsKeyServer(claim->server)) {
    return RefusedWith(400, kMalformedErrorId, "\"keyserver\" is not a key server of this service");
  }
  // This command creates the group, so the service does not know it yet.
  const bool makesGroup = claim->operation == "configGroupRequest";
  if (!makesGroup && !realm_.rooms.FindGroup(route.id).has_value()) {
    return RefusedWith(404, kUnknownErrorId, "Unknown room or group");
  }
  const auto room = realm_.store.GetRoom(route.id);
  if (room.has_value() && room->options.locked) {
    return RefusedWith(403, kLockedErrorId, "The room is locked");
  }
  const std::string token = realm_.tokens.Issue(*claim);
  if (token.empty()) return RefusedWith(500, kUnknownErrorId, "A token cannot be made");
  KVMap response;
  response.Set("authztoken", TextVal(token));
  return {JsonReply(response), "ok"};
}

}  // namespace CryptStand
