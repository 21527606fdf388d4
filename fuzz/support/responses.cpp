// The responses of all servers: the usual one of each step, computed with the keys of the world, and the
// unusual ones that a client must cope with.
#include "fuzz/support/responses.h"

#include <map>

#include "fuzz/support/authority.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

constexpr const char* kServiceSteps[] = {"authztoken", "key", "certlist", "newkey"};
constexpr const char* kServerSteps[] = {"status", "certstore", "truststore"};

bool Contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

KVMap PayloadOf(const Request& request) {
  const Val envelope = ParseJson(request.body);
  return envelope.AsMap().Get("payload").AsMap();
}

std::string FirstOf(const Request& request, const char* list) {
  const Array<Val> texts = PayloadOf(request).Get(list).AsArray();
  return Str(texts[0].AsString());
}

CannedResponse Body(std::string body) {
  return {200, {}, std::move(body)};
}

CannedResponse Json(const KVMap& map) {
  return {200, {{"Content-Type", "application/json"}}, JsonText(Val(map))};
}

KVMap With(KVMap map, const char* name, const Val& value) {
  map.Set(name, value);
  return map;
}

KVMap With(const KVMap& map, const char* name, std::string_view text) {
  return With(map, name, Val(Ansi(text)));
}

// A key server's response: the payload has this type and these members.
CannedResponse Payload(std::string_view type, const KVMap& members = {}) {
  KVMap payload;
  payload.Set("type", Ansi(type));
  for (const auto& [key, value] : members) payload.Set(key, value);
  return Json(With(With({}, "header", Val(KVMap())), "payload", Val(payload)));
}

CannedResponse Date(std::string date) {
  return {200, {{"Date", std::move(date)}}, ""};
}

CannedResponse AuditLog(std::string status) {
  CannedResponse response{200, {{"Content-Type", "text/csv; charset=utf-8"}}, "time;event\n1;made\n2;used\n"};
  if (!status.empty()) response.headers.emplace_back("X-SEC-Status", std::move(status));
  return response;
}

KVMap Configuration() {
  KVMap map;
  map.Set("room", Ansi(kRoom));
  map.Set("group", Ansi(kGroup));
  map.Set("keyserver", Val(Strings({kKeyServerUrl})));
  map.Set("statustimeout", "5");
  map.Set("certauth", Val(false));
  return map;
}

KVMap RoomKey() {
  const World& world = World::Get();
  return With(With(Configuration(), "certificate", world.room.certificate.ToPEM()), "data", world.wrappedKey);
}

KVMap RoomCerts() {
  return With(With(Configuration(), "seqnr", "42"), "certificates", Val(Strings({"member-1", "member-2"})));
}

KVMap GeneratedKey() {
  const World& world = World::Get();
  const KVMap members = With({}, "encodedX509Certificate", world.room.certificate.ToBase64());
  return With(members, "encodedWrappedKey", world.wrappedKey);
}

KVMap IntegrityKey(const CryptStand::Cert& certificate) {
  KVMap key;
  key.Set("type", "externalCertificate");
  key.Set("id", "integrity");
  key.Set("subId", "7");
  key.Set("encodedCertificate", Ansi(certificate.ToBase64()));
  return With({}, "key", Val(key));
}

using Variants = std::vector<CannedResponse>;

// Seeds and the corpus name a variant by its index: add new ones at the end.
Variants RoomKeyVariants() {
  const World& world = World::Get();
  const KVMap usual = RoomKey();
  return {
      Json(With(usual, "plain", world.room.key.ToPEM())),
      Json(With(With(usual, "plain", world.room.key.ToBase64()), "data", "")),
      Json(With(usual, "plain", world.issuing.key.ToPEM())),
      Json(With(usual, "keyserver", Val(Strings({kKeyServerUrl, kOtherKeyServerUrl})))),
      Json(With(usual, "certauth", Val(true))),
      Json(Configuration()),
      Json(With(usual, "data", "")),
      Json(With(usual, "certificate", world.outsider.certificate.ToPEM())),
      Json(With(usual, "data", CryptStand::ToBase64(world.Find(world.contents, "data")))),
      Json(With(usual, "keyserver", Val(Array<Val>()))),
      Json(With(usual, "group", "")),
      Json(With(usual, "errorid", "QOB.1.1001.1.422645")),
      Json(With(With(usual, "errorid", "QOB.1.1001.1.422645"), "errortext", "no %s key")),
      Json(With(usual, "errortext", "refused")),
  };
}

Variants RoomCertsVariants() {
  const KVMap usual = RoomCerts();
  const std::string digest = World::Get().integrity.certificate.GetDigest();
  return {Json(With(usual, "keyserver", Val(Strings({kKeyServerUrl, kOtherKeyServerUrl})))),
          Json(With(usual, "certificates", Val(Array<Val>()))), Json(With(usual, "room", "")),
          Json(With({}, "integrity", Val(Strings({digest})))), Json({})};
}

Variants IntegrityVariants() {
  const World& world = World::Get();
  const std::string own = world.integrity.certificate.GetDigest();
  const std::string other = world.outsider.certificate.GetDigest();
  return {Json(With({}, "integrity", Val(Strings({other, own})))),
          Json(With({}, "integrity", Val(Strings({other})))), Json(With({}, "integrity", Val(Array<Val>()))),
          Json({})};
}

std::map<std::string, Variants> MakeVariants() {
  const World& world = World::Get();
  std::map<std::string, Variants> all;
  all["key"] = RoomKeyVariants();
  all["certlist"] = RoomCertsVariants();
  all["integrity"] = IntegrityVariants();
  all["newkey"] = {Body("{}"), Body("[]"), Json(With({}, "errortext", "refused"))};
  all["authztoken"] = {Json(With({}, "authztoken", "")), Json({}), Body("")};
  all["status"] = {Date("Wed, 15 May 2052 12:00:00 GMT"), Date("Mon, 01 Jan 1990 00:00:00 GMT"), Date("now"),
                   Body("")};
  all["certstore"] = {Body(world.CertStoreText() + world.TrustStoreText()),
                      Body(world.root.certificate.ToBase64()), Body(""),
                      Body(world.innerSigning.certificate.ToPEM())};
  all["truststore"] = {Body(world.CertStoreText() + world.TrustStoreText()),
                       Body(world.issuing.certificate.ToBase64()), Body(""),
                       Body(world.innerSigning.certificate.ToPEM())};
  all["getKeyRequest"] = {Payload("getKeyResponse", IntegrityKey(world.outsider.certificate)),
                          Payload("getKeyResponse", IntegrityKey(world.issuing.certificate)),
                          Payload("getKeyResponse")};
  all["getAuditLogRequest"] = {AuditLog("601"), AuditLog("x"), Payload("status")};
  return all;
}

const std::map<std::string, Variants>& GetVariants() {
  static const std::map<std::string, Variants> variants = MakeVariants();
  return variants;
}

const std::vector<std::string>& GetCommands() {
  static const std::vector<std::string> commands = {
      "configGroupRequest",      "reencryptRequest",        "getAuditLogRequest", "generateWrappedKeyRequest",
      "modifyWrappedKeyRequest", "exportWrappedKeyRequest", "decryptRequest",     "signRequest",
      "getKeyRequest",           "importKeyRequest",        "deleteKeyRequest"};
  return commands;
}

// Variants that every command has: an error code of the key server, and the response of another command.
CannedResponse CommonVariant(std::uint32_t index) {
  // The documented codes are 601 to 619; one beyond each end has no message of its own.
  constexpr std::int64_t kFirstCode = 600;
  constexpr std::uint32_t kCodes = 21;
  if (index < kCodes) return Payload("status", With({}, "code", Val(kFirstCode + index)));
  return Payload("configGroupResponse");
}
// All of the above: the codes, and the response of another command.
constexpr std::uint32_t kCommonVariants = 22;

std::string ServiceStep(std::string_view url) {
  if (Contains(url, "/integrity")) return "integrity";
  for (const char* step : kServiceSteps) {
    if (Contains(url, std::string("/crypt/") + step + "/")) return step;
  }
  return {};
}

CannedResponse CommandResponse(const std::string& step, const Request& request) {
  // The response to "xRequest" is "xResponse". One payload with the members of all remaining commands serves
  // each of them: clients ignore the members that they do not know.
  const std::string response = step.substr(0, step.size() - std::string_view("Request").size()) + "Response";
  if (step == "getAuditLogRequest") return AuditLog("");
  if (step == "getKeyRequest") return Payload(response, IntegrityKey(World::Get().integrity.certificate));
  if (step == "signRequest") {
    const std::string value = SignBase64(FirstOf(request, "hashesToBeSigned"));
    return Payload(response, With({}, "signedHashes", Val(Strings({value}))));
  }
  if (step == "decryptRequest") {
    const std::string value = DecryptBase64(FirstOf(request, "encryptedData"));
    return Payload(response, With({}, "plainData", Val(Strings({value}))));
  }
  return Payload(response, With(GeneratedKey(), "encodedPrivateKey", World::Get().room.key.ToBase64()));
}

CannedResponse FixedResponse(const std::string& step) {
  const World& world = World::Get();
  if (step == "key") return Json(RoomKey());
  if (step == "certlist") return Json(RoomCerts());
  if (step == "authztoken") return Json(With({}, "authztoken", "token"));
  if (step == "status") return Date(std::string(kDate));
  if (step == "certstore") return Body(world.CertStoreText());
  if (step == "truststore") return Body(world.TrustStoreText());
  if (step == "integrity")
    return Json(With({}, "integrity", Val(Strings({world.integrity.certificate.GetDigest()}))));
  return Body("");
}

bool IsCommand(std::string_view step) {
  return step.ends_with("Request");
}

}  // namespace

std::string StepOf(const Request& request) {
  if (request.url.starts_with(kServiceUrl)) return ServiceStep(request.url);
  if (request.url.ends_with("/rest/json")) return Str(PayloadOf(request).Get("type").AsString());
  for (const char* step : kServerSteps) {
    if (Contains(request.url, std::string("/") + step)) return step;
  }
  return {};
}

const std::vector<std::string>& GetSteps() {
  static const std::vector<std::string> steps = [] {
    std::vector<std::string> all = GetCommands();
    all.insert(all.end(), std::begin(kServiceSteps), std::end(kServiceSteps));
    all.insert(all.end(), std::begin(kServerSteps), std::end(kServerSteps));
    all.emplace_back("integrity");
    return all;
  }();
  return steps;
}

CannedResponse UsualResponse(const std::string& step, const Request& request) {
  if (IsCommand(step)) return CommandResponse(step, request);
  // Made once, since encoding certificates costs more than most exchanges.
  static const std::map<std::string, CannedResponse> responses = [] {
    std::map<std::string, CannedResponse> made;
    for (const std::string& known : GetSteps()) {
      if (!IsCommand(known)) made[known] = FixedResponse(known);
    }
    return made;
  }();
  const auto found = responses.find(step);
  return found != responses.end() ? found->second : Body("");
}

std::uint32_t CountVariants(const std::string& step) {
  const auto own = GetVariants().find(step);
  const auto count = own != GetVariants().end() ? static_cast<std::uint32_t>(own->second.size()) : 0;
  return count + (IsCommand(step) ? kCommonVariants : 0);
}

CannedResponse Variant(const std::string& step, std::uint32_t index) {
  const auto own = GetVariants().find(step);
  const auto count = own != GetVariants().end() ? static_cast<std::uint32_t>(own->second.size()) : 0;
  return index < count ? own->second[index] : CommonVariant(index - count);
}

}  // namespace Fuzz
