#include "tests/stand/stand_peer.h"

#include <algorithm>
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <strings.h>

namespace CryptStand {
namespace {

constexpr long kPatienceSeconds = 60;

std::size_t AppendBody(char* data, std::size_t size, std::size_t count, void* reply) {
  Reply& target = *static_cast<Reply*>(reply);
  if (target.body.empty() && target.onFirst) target.onFirst();
  target.body.append(data, size * count);
  return size * count;
}

std::size_t AppendHeader(char* data, std::size_t size, std::size_t count, void* reply) {
  std::string line(data, size * count);
  line.erase(line.find_last_not_of("\r\n") + 1);
  Headers& headers = static_cast<Reply*>(reply)->headers;
  if (line.starts_with("HTTP/")) headers.clear();  // an interim response may come first
  const std::size_t colon = line.find(':');
  if (colon != std::string::npos && !line.starts_with("HTTP/")) {
    const std::size_t value = std::min(line.find_first_not_of(' ', colon + 1), line.size());
    headers.emplace_back(line.substr(0, colon), line.substr(value));
  }
  return size * count;
}

}  // namespace

class Peer::Impl {
 public:
  explicit Impl(PeerTrust trust) : trust_(std::move(trust)), handle_(curl_easy_init()) {}
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() { curl_easy_cleanup(handle_); }

  Reply Send(const std::string& method, const std::string& url, const std::optional<std::string>& body,
             const Headers& headers, std::function<void()> onFirst = {}) {
    Reply reply;
    reply.onFirst = std::move(onFirst);
    curl_easy_reset(handle_);
    curl_slist* lines = nullptr;
    for (const auto& [name, value] : headers) lines = curl_slist_append(lines, (name + ": " + value).c_str());
    SetRequest(method, url, body, lines);
    SetTrust();
    char detail[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, detail);
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &AppendBody);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(handle_, CURLOPT_HEADERFUNCTION, &AppendHeader);
    curl_easy_setopt(handle_, CURLOPT_HEADERDATA, &reply);
    const CURLcode result = curl_easy_perform(handle_);
    curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, nullptr);
    curl_slist_free_all(lines);
    long status = 0;
    curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
    reply.status = result == CURLE_OK ? static_cast<int>(status) : 0;
    if (result != CURLE_OK) reply.error = *detail != '\0' ? detail : curl_easy_strerror(result);
    reply.isRefused = result == CURLE_COULDNT_CONNECT;
    return reply;
  }

 private:
  void SetRequest(const std::string& method, const std::string& url, const std::optional<std::string>& body,
                  curl_slist* headers) {
    curl_easy_setopt(handle_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle_, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(handle_, CURLOPT_PROXY, trust_.proxy.c_str());
    curl_easy_setopt(handle_, CURLOPT_NOPROXY, "");
    curl_easy_setopt(handle_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_TIMEOUT, kPatienceSeconds);
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, headers);
    if (method == "HEAD") curl_easy_setopt(handle_, CURLOPT_NOBODY, 1L);
    if (body.has_value()) {
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
      curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body->c_str());
    }
    curl_easy_setopt(handle_, CURLOPT_CUSTOMREQUEST, method.c_str());
  }

  void SetTrust() {
    SetBlob(CURLOPT_CAINFO_BLOB, trust_.authority);
    SetBlob(CURLOPT_SSLCERT_BLOB, trust_.certificate);
    SetBlob(CURLOPT_SSLKEY_BLOB, trust_.key);
  }

  void SetBlob(CURLoption option, std::string& text) {
    curl_blob blob = {text.data(), text.size(), CURL_BLOB_NOCOPY};
    if (!text.empty()) curl_easy_setopt(handle_, option, &blob);
  }

  PeerTrust trust_;
  CURL* handle_;
};

Peer::Peer(PeerTrust trust) : impl_(std::make_unique<Impl>(std::move(trust))) {}
Peer::~Peer() = default;

Reply Peer::Send(const std::string& method, const std::string& url, const std::optional<std::string>& body,
                 const Headers& headers) {
  return impl_->Send(method, url, body, headers);
}

Reply Peer::Stream(const std::string& url, std::function<void()> onFirst) {
  return impl_->Send("GET", url, std::nullopt, {}, std::move(onFirst));
}

std::string Reply::Header(const char* name) const {
  for (const auto& [key, value] : headers) {
    if (strcasecmp(key.c_str(), name) == 0) return value;
  }
  return "(none)";
}

Reply Get(const std::string& url) {
  return Send("GET", url);
}

Reply Send(const char* method, const std::string& url) {
  return Peer().Send(method, url);
}

Reply Post(const std::string& url, const std::string& body, const Headers& headers, const char* contentType) {
  Headers all = headers;
  all.emplace_back("Content-Type", contentType);
  return Peer().Send("POST", url, body, all);
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
