#pragma once

#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "stand/cert_maker.h"
#include "stand/stand.h"
#include "stand/wire.h"

namespace CryptStand {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// A received response; status 0 if it was not complete.
struct Reply {
  int status = 0;
  std::string body;  ///< Of a response that was cut: the part that arrived.
  Headers headers;
  bool isRefused = false;           ///< Nobody listened.
  std::string error;                ///< Why the response is not complete, in libcurl's words.
  std::function<void()> onFirst{};  ///< Called before the first bytes of the body are added.

  KVMap Object() const { return ReadObject(body).value_or(KVMap()); }
  std::string Text(const char* name) const { return ReadText(Object(), name).value_or("(none)"); }
  bool Has(const char* name) const { return Object().Find(name) < Object().GetCount(); }
  std::string Header(const char* name) const;

  /// Of a key server's response: its payload, the payload's type, and the code of a refusal or 0.
  KVMap Payload() const { return ReadMap(Object(), "payload").value_or(KVMap()); }
  std::string Type() const { return ReadText(Payload(), "type").value_or("(none)"); }
  std::int64_t Code() const { return ReadInteger(Payload(), "code").value_or(0); }
};

/// What a client trusts and shows with TLS, in PEM, and the proxy that it uses, if any.
struct PeerTrust {
  std::string authority{};
  std::string certificate{};
  std::string key{};
  std::string proxy{};
};

/// A client that keeps its connection from one request to the next.
class Peer {
 public:
  explicit Peer(PeerTrust trust = {});
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer();

  Reply Send(const std::string& method, const std::string& url, const std::optional<std::string>& body = {},
             const Headers& headers = {});
  /// Gets a body and calls the function as soon as its first bytes have come.
  Reply Stream(const std::string& url, std::function<void()> onFirst);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// Send one request on a new connection.
Reply Get(const std::string& url);
Reply Post(const std::string& url, const std::string& body, const Headers& headers = {},
           const char* contentType = "text/json");
Reply Post(const std::string& url, const KVMap& body);
/// Any method, without a body.
Reply Send(const char* method, const std::string& url);

/// An object from alternating names and values.
template <class... Rest>
KVMap Object(Rest... members) {
  KVMap object;
  const Val values[] = {Val(members)...};
  for (std::size_t i = 0; i + 1 < std::size(values); i += 2) object.Set(values[i].AsString(), values[i + 1]);
  return object;
}

/// Servers in memory, and the steps of a client of theirs.
class StandTest : public testing::Test {
 protected:
  explicit StandTest(Options options = {}) : stand_(std::move(options)) {}
  void SetUp() override;

  std::string Service(const std::string& path) const { return stand_.GetServiceUrl() + path; }
  std::string Server(const std::string& path, std::size_t index = 0) const {
    return stand_.GetKeyServerUrls().at(index) + "/" + path;
  }

  /// A token for a command on the first key server; the handle is that of the integrity key's `subId`.
  std::string FetchToken(const std::string& operation, const std::string& id = "demo",
                         const std::string& subId = "");
  static KVMap Header();
  static KVMap Handle(const std::string& subId, const char* id = "integrity");
  /// Posts an envelope with a token to the first key server.
  Reply PostCommand(const KVMap& payload, const std::string& token, std::size_t index = 0);
  /// The same with a matching token.
  Reply RunCommand(const KVMap& payload, const std::string& id = "demo", const std::string& subId = "");

  static KVMap GeneratePayload(const std::string& room = "demo");
  static KVMap GetKeyPayload(const std::string& subId = "");
  static KVMap SignPayload(const std::string& subId = "1");
  static KVMap DecryptPayload(const std::string& wrapped, const std::string& block);

  /// Makes a room's key as a client does, and returns the crypt service's response about the room after that.
  Reply MakeRoomKey(const std::string& room = "demo");

  Stand stand_;
};

}  // namespace CryptStand
