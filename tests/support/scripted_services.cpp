// Servers that work, without sockets: each response is computed from the request with the keys of Pki. Tests
// of whole operations begin with it and replace the one response that they are about.
#include "tests/support/scripted_services.h"

#include <gtest/gtest.h>

#include "foundation/json.h"
#include "tests/support/pki.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace TestSupport {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

KVMap PayloadOf(const RecordedRequest& request) {
  return Map(request.body).Get("payload").AsMap();
}

/// The first string of a list in a command's payload, decoded.
std::string FirstBytes(const RecordedRequest& request, const char* member) {
  return FromBase64(Str(PayloadOf(request).Get(member).AsArray()[0].AsString()));
}

bool Contains(const std::string& text, std::string_view part) {
  return text.find(part) != std::string::npos;
}

std::string ServiceStep(const std::string& url) {
  if (Contains(url, "/integrity")) return "integrity";
  for (const char* step : {"authztoken", "key", "certlist", "newkey"}) {
    if (Contains(url, std::string("/crypt/") + step + "/")) return step;
  }
  return "unknown: " + url;
}

std::string StepOf(const RecordedRequest& request) {
  if (request.url.starts_with(kServiceUrl)) return ServiceStep(request.url);
  if (request.url.ends_with("/rest/json")) return Str(PayloadOf(request).Get("type").AsString());
  for (const char* step : {"status", "certstore", "truststore"}) {
    if (Contains(request.url, std::string("/") + step)) return step;
  }
  return "unknown: " + request.url;
}

Responder Fixed(CannedResponse response) {
  return [response](const RecordedRequest&) { return response; };
}

}  // namespace

ScriptedServices::ScriptedServices() {
  const Pki& pki = Pki::Get();
  Set("key", Json(RoomKeyResponse()));
  Set("certlist", Json(RoomCertsResponse()));
  Set("newkey", Json(""));
  Set("integrity", Json(R"({"integrity":[)" + Quoted(pki.integrity.certificate.GetDigest()) + "]}"));
  Set("authztoken", Token("token"));
  Set("status", DateResponse(kServicesDate));
  Set("certstore", Json(pki.GetCertStore()));
  Set("truststore", Json(pki.GetTrustStore()));
  Set("generateWrappedKeyRequest", Generated());
  Set("getKeyRequest", IntegrityKeyResponse());
  Set("signRequest", Signed);
  Set("decryptRequest", Decrypted);
  http.On("", "", [this](const RecordedRequest& request) { return Respond(request); });
}

void ScriptedServices::Set(const std::string& step, CannedResponse response) {
  Set(step, Fixed(std::move(response)));
}

void ScriptedServices::Set(const std::string& step, Responder responder) {
  steps_[step] = std::move(responder);
}

void ScriptedServices::Once(const std::string& step, CannedResponse response) {
  Once(step, Fixed(std::move(response)));
}

void ScriptedServices::Once(const std::string& step, Responder responder) {
  once_[step].push_back(std::move(responder));
}

CannedResponse ScriptedServices::Respond(const RecordedRequest& request) {
  const std::string step = StepOf(request);
  std::deque<Responder>& next = once_[step];
  if (!next.empty()) {
    const Responder responder = std::move(next.front());
    next.pop_front();
    return responder(request);
  }
  const auto usual = steps_.find(step);
  if (usual != steps_.end()) return usual->second(request);
  ADD_FAILURE() << "no such step: " << step;
  return NoExchange("no such step");
}

std::vector<std::string> ScriptedServices::GetSteps() const {
  std::vector<std::string> steps;
  for (const RecordedRequest& request : http.GetRequests()) steps.push_back(StepOf(request));
  return steps;
}

std::vector<RecordedRequest> ScriptedServices::GetRequests(const std::string& step) const {
  std::vector<RecordedRequest> requests;
  for (const RecordedRequest& request : http.GetRequests()) {
    if (StepOf(request) == step) requests.push_back(request);
  }
  return requests;
}

KVMap ScriptedServices::RoomKeyResponse() {
  const Pki& pki = Pki::Get();
  KVMap response;
  response.Set("room", "room 1");
  response.Set("certificate", Ansi(pki.room.certificate.ToPEM()));
  response.Set("data", Ansi(WrappedKey(pki.innerSigning.certificate)));
  response.Set("group", kGroup);
  response.Set("keyserver", Val(Strings({kKeyServerUrl})));
  response.Set("statustimeout", "5");
  response.Set("certauth", Val(false));
  return response;
}

KVMap ScriptedServices::RoomCertsResponse() {
  KVMap response;
  response.Set("room", "room 1");
  response.Set("seqnr", "42");
  response.Set("certificates", Val(Strings({"member-1", "member-2"})));
  response.Set("group", kGroup);
  response.Set("keyserver", Val(Strings({kKeyServerUrl})));
  response.Set("statustimeout", "5");
  response.Set("certauth", Val(false));
  return response;
}

CannedResponse ScriptedServices::Generated() {
  const Pki& pki = Pki::Get();
  return Payload(R"({"type":"generateWrappedKeyResponse","encodedX509Certificate":)" +
                 Quoted(pki.room.certificate.ToBase64()) + R"(,"encodedWrappedKey":)" +
                 Quoted(WrappedKey(pki.innerSigning.certificate)) + "}");
}

CannedResponse ScriptedServices::IntegrityKeyResponse() {
  return Payload(R"({"type":"getKeyResponse","key":{"type":"externalCertificate","id":")" +
                 std::string(kIntegrityKeyId) + R"(","subId":")" + kIntegritySubId +
                 R"(","encodedCertificate":)" + Quoted(Pki::Get().integrity.certificate.ToBase64()) + "}}");
}

CannedResponse ScriptedServices::Signed(const RecordedRequest& request) {
  const std::string value = Pki::Get().integrity.key.SignHash(FirstBytes(request, "hashesToBeSigned"));
  return Payload(R"({"type":"signResponse","signedHashes":[)" + Quoted(ToBase64(value)) + "]}");
}

CannedResponse ScriptedServices::Decrypted(const RecordedRequest& request) {
  const std::string key = Pki::Get().room.key.Decrypt(FirstBytes(request, "encryptedData"));
  return Payload(R"({"type":"decryptResponse","plainData":[)" + Quoted(ToBase64(key)) + "]}");
}

CannedResponse Json(const KVMap& map) {
  return Json(JsonText(map));
}

KVMap With(const KVMap& map, std::string_view name, std::string_view json) {
  Val value;
  AnsiStr error;
  if (!OruGuiBase::JSON2Val(Ansi(json), value, error)) ADD_FAILURE() << "bad JSON: " << error.View();
  KVMap changed = map;
  changed.Set(Ansi(name), value);
  return changed;
}

}  // namespace TestSupport
