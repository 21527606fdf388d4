// Sends requests to the control interface of a test environment without sockets. Whatever was sent, responses
// are JSON with the members that they promise, the state can be read, and a reset brings back that of before.
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "stand/control.h"

namespace {

using CryptStand::Control;
using CryptStand::HttpReply;
using CryptStand::HttpRequest;
using Fuzz::Require;

constexpr std::uint32_t kMostRequests = 8;
constexpr const char* kGroup = "QOB.group-1";
constexpr const char* kToken = "0123456789abcdef";

/// Three servers that have no sockets.
class FakeServers : public CryptStand::Servers {
 public:
  int CountKeyServers() const override { return 2; }
  std::string GetUrl(int server) const override {
    return "http://127.0.0.1:" + std::to_string(7080 + server + 1);
  }
  bool IsUp(int server) const override { return isUp_.at(server); }
  bool Up(int server, std::string&) override { return isUp_.at(server) = true; }
  void Down(int server) override {
    Require(server != CryptStand::kCryptService, "no request takes down the server that it waits for");
    isUp_.at(server) = false;
  }
  bool HasTls() const override { return true; }
  bool AsksForCertificates() const override { return true; }
  CryptStand::ClientFiles GetClientFiles() const override { return {}; }
  bool Show(int server, CryptStand::ServerCertificate) override { return Has(server); }
  CryptStand::ForwardProxy* GetProxy() const override { return nullptr; }

 private:
  std::map<int, bool> isUp_ = {{CryptStand::kCryptService, true}, {0, true}, {1, true}};
};

/// An environment in memory, made for each input: inputs must not depend on each other.
class Target {
 public:
  Target() : environment_(realm_, servers_, kGroup), control_(environment_, {kToken, {}}) {
    std::string error;
    Require(realm_.store.Open("", error) && realm_.store.AddGroup(kGroup, "Group") &&
                environment_.AddRoom("room 1") && realm_.store.MarkStart(),
            "an environment can be made");
  }

  CryptStand::KVMap Send(const std::string& method, const std::string& target, const std::string& body,
                         bool hasToken) {
    HttpRequest request = {method, target, body, {{"Host", "127.0.0.1"}}};
    if (hasToken) request.headers.emplace_back("Authorization", std::string("Bearer ") + kToken);
    const HttpReply reply = control_.Serve(request, stopped_.get_token());
    if (reply.openBody) {
      const auto next = reply.openBody();
      Require(!next().empty() && next().empty(), "a stream begins, and ends with the server");
      return {};
    }
    const auto object = CryptStand::ReadObject(reply.body);
    Require(object.has_value(), "a response is a JSON object");
    Require(reply.status != 500, "a request does not fail");
    const auto error = CryptStand::ReadMap(*object, "error");
    Require((reply.status >= 400) == error.has_value(), "an error has a status of errors");
    Require(!error.has_value() || !CryptStand::ReadText(*error, "message").value_or("").empty(),
            "an error has a message");
    Require(hasToken || method == "GET" || method == "HEAD" || reply.status >= 400, "changes need the token");
    return *object;
  }

  // Without the lists, whose certificates take long to make, and without groups, whose integrity keys a reset
  // leaves alone.
  std::string ReadState() {
    Send("GET", "/stand/v1/groups", "", /*hasToken=*/false);
    return CryptStand::WriteObject(Send("GET", "/stand/v1/rooms", "", /*hasToken=*/false)) +
           CryptStand::WriteObject(Send("GET", "/stand/v1/faults", "", /*hasToken=*/false));
  }

  // What a client sent is shown later.
  void AddEvent(const std::string& text) {
    HttpReply reply;
    reply.body = text;
    const HttpRequest request = {"POST", text, text, {{text, text}}};
    CryptStand::Event event{.method = "POST", .target = text, .operation = text};
    event.exchange =
        std::make_shared<const CryptStand::RecordedExchange>(CryptStand::RecordExchange(request, reply));
    realm_.log.Add(std::move(event));
    Send("GET", "/stand/v1/events", "", /*hasToken=*/false);
    Send("GET", "/stand/v1/events/1", "", /*hasToken=*/false);
    Send("GET", "/stand/v1/events/1?secrets=shown", "", /*hasToken=*/true);
  }

 private:
  CryptStand::Realm realm_{/*shareKeys=*/true};
  FakeServers servers_;
  CryptStand::Environment environment_;
  Control control_;
  std::stop_source stopped_ = [] {
    std::stop_source source;
    source.request_stop();
    return source;
  }();
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr const char* kMethods[] = {"GET", "POST", "PUT", "DELETE", "HEAD", "PATCH"};
  Fuzz::Input input(data, size);
  Target target;
  const std::string before = target.ReadState();
  for (std::uint32_t i = 0; i < kMostRequests && !input.IsEmpty(); ++i) {
    const std::string method = kMethods[input.Below(std::size(kMethods))];
    const bool hasToken = !input.Flag();
    const std::string path = "/stand/" + input.Text();
    target.Send(method, path, input.Text(), hasToken);
  }
  target.AddEvent(input.Rest());
  target.ReadState();
  target.Send("POST", "/stand/v1/reset", "", /*hasToken=*/true);
  Require(target.ReadState() == before, "a reset restores the state");
  return 0;
}
