#include "tests/stand/standpeer.h"

#include <gtest/gtest.h>

namespace CryptStand {
namespace {

struct Address {
  std::string host;
  std::string path;
};

Address Split(const std::string& url) {
  const std::size_t slash = url.find('/', url.find("//") + 2);
  return {url.substr(0, slash), slash == std::string::npos ? "/" : url.substr(slash)};
}

Reply ToReply(const httplib::Result& result) {
  if (!result) return {};
  return {result->status, result->body, result->headers};
}

Reply SendRequest(const std::string& url, httplib::Request request) {
  const Address address = Split(url);
  httplib::Client client(address.host);
  client.set_url_encode(false);
  request.path = address.path;
  return ToReply(client.send(request));
}

}  // namespace

std::string Reply::Header(const char* name) const {
  const auto found = headers.find(name);
  return found != headers.end() ? found->second : "(none)";
}

Reply Get(const std::string& url) {
  return Send("GET", url);
}

Reply Send(const char* method, const std::string& url) {
  httplib::Request request;
  request.method = method;
  return SendRequest(url, request);
}

Reply Post(const std::string& url, const std::string& body, const httplib::Headers& headers,
           const char* contentType) {
  httplib::Request request;
  request.method = "POST";
  request.headers = headers;
  request.headers.emplace("Content-Type", contentType);
  request.body = body;
  return SendRequest(url, request);
}

Reply Post(const std::string& url, const KVMap& body) {
  return Post(url, WriteObject(body));
}

void StandTest::SetUp() {
  std::string error;
  ASSERT_TRUE(stand_.Start(error)) << error;
}

std::string StandTest::FetchToken(const std::string& operation, const std::string& id,
                                  const std::string& subId) {
  KVMap body = Object("keyserver", stand_.GetKeyServerUrls().front().c_str(), "operation", operation.c_str());
  if (!subId.empty()) body.Set("key", Val(Handle(subId)));
  return Post(Service("crypt/authztoken/" + id), body).Text("authztoken");
}

KVMap StandTest::Header() {
  return Object("type", "standardVelmoraHeader", "commandId", "", "sessionId", "", "path",
                TextsVal({"java-api-instance"}), "protocolVersion", "2.0");
}

KVMap StandTest::Handle(const std::string& subId, const char* id) {
  return Object("type", "handle", "id", id, "subId", subId.c_str());
}

Reply StandTest::PostCommand(const KVMap& payload, const std::string& token, std::size_t index) {
  return Post(Server("rest/json", index), WriteObject(Object("header", Header(), "payload", payload)),
              {{"X-SEC-AUTHZTOKEN", token}});
}

Reply StandTest::RunCommand(const KVMap& payload, const std::string& id, const std::string& subId) {
  return PostCommand(payload, FetchToken(ReadText(payload, "type").value_or(""), id, subId));
}

KVMap StandTest::GeneratePayload(const std::string& room) {
  return Object("type", "generateWrappedKeyRequest", "keyType", "", "certificateSubject",
                ("CN=" + room + "-tr").c_str(), "encryptionKeys", TextsVal({}));
}

KVMap StandTest::GetKeyPayload(const std::string& subId) {
  return Object("type", "getKeyRequest", "key", Handle(subId), "representation", "certificate");
}

KVMap StandTest::SignPayload(const std::string& subId) {
  return Object("type", "signRequest", "signatureKey", Handle(subId), "algorithm",
                "RSASSA-PKCS1-v1_5-SHA-512", "hashesToBeSigned", TextsVal({ToBase64(std::string(64, 'h'))}));
}

KVMap StandTest::DecryptPayload(const std::string& wrapped, const std::string& block) {
  return Object("type", "decryptRequest", "decryptionKey",
                Object("type", "wrappedKey", "encodedWrappedKey", wrapped.c_str()), "algorithm",
                "RSAES-PKCS1-v1_5", "encryptedData", TextsVal({block}));
}

Reply StandTest::MakeRoomKey(const std::string& room) {
  const Reply list = Post(Service("crypt/certlist/" + room), Object("keyserver", ""));
  const Reply made = RunCommand(GeneratePayload(room), room);
  const std::string wrapped = ReadText(made.Payload(), "encodedWrappedKey").value_or("");
  const Reply uploaded = Post(Service("crypt/newkey/" + room),
                              Object("seqnr", list.Text("seqnr").c_str(), "key", wrapped.c_str()));
  EXPECT_EQ(uploaded.status, 200) << uploaded.body;
  return Get(Service("crypt/key/" + room));
}

}  // namespace CryptStand
