#include "stand/proxy.h"

#include <chrono>
#include <thread>

#include "tests/stand/raw_peer.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

Options ProxyOptions(bool tls) {
  Options options;
  options.proxyPort = 0;
  options.tls = tls;
  return options;
}

class ProxyTest : public StandTest {
 protected:
  explicit ProxyTest(bool tls = false) : StandTest(ProxyOptions(tls)) {}

  PeerTrust ByProxy() const { return {stand_.GetServerAuthority(), "", "", stand_.GetProxyUrl()}; }
  Reply GetByProxy(const std::string& url) const { return Peer(ByProxy()).Send("GET", url); }
  /// The response to these bytes until the proxy closes.
  std::string Exchange(const std::string& bytes) const {
    RawPeer peer(PortOf(stand_.GetProxyUrl()));
    peer.Send(bytes);
    return peer.ReadAll();
  }
  ProxyRecord GetOnly() const {
    const auto records = stand_.GetProxyRecords();
    EXPECT_EQ(records.size(), 1U);
    return records.empty() ? ProxyRecord() : records.front();
  }
};

TEST_F(ProxyTest, ForwardsRequestsInAbsoluteForm) {
  Peer peer(ByProxy());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(peer.Send("GET", Server("status?1")).body, "alive\n");
  const auto records = stand_.GetProxyRecords();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[1].method, "GET");
  EXPECT_EQ(records[1].host, "127.0.0.1");
  EXPECT_EQ(records[1].port, PortOf(stand_.GetKeyServerUrls().front()));
  EXPECT_EQ(records[1].status, 200);
  EXPECT_GT(records[1].bytesToServer, 0U);
  EXPECT_GT(records[1].bytesToClient, 6U);
  EXPECT_EQ(stand_.GetEvents().back().target, "/status?1") << "the server gets the path alone";
}

TEST_F(ProxyTest, KeepsTheBeginningOfLongNamesOnly) {
  EXPECT_THAT(Exchange("CONNECT " + std::string(60000, 'h') + ":443 HTTP/1.1\r\n\r\n"), HasSubstr(" 403 "));
  EXPECT_EQ(GetOnly().host, std::string(255, 'h'));
  stand_.ClearProxyRecords();
  EXPECT_THAT(Exchange(std::string(60000, 'M') + " http://h/ HTTP/1.1\r\n\r\n"), HasSubstr(" 403 "));
  EXPECT_EQ(GetOnly().method, std::string(255, 'M'));
}

TEST_F(ProxyTest, ForwardsBodies) {
  const std::string body = WriteObject(Object("keyserver", ""));
  const Reply reply =
      Peer(ByProxy()).Send("POST", Service("crypt/certlist/demo"), body, {{"Content-Type", "text/json"}});
  EXPECT_EQ(reply.Text("room"), "demo");
}

TEST_F(ProxyTest, KeepsItsOwnHeadersFromServers) {
  const std::string port = std::to_string(PortOf(stand_.GetKeyServerUrls().front()));
  const std::string response = Exchange("GET http://127.0.0.1:" + port +
                                        "/status HTTP/1.1\r\nProxy-Connection: keep-alive\r\n"
                                        "Connection: keep-alive\r\n\r\n");
  EXPECT_THAT(response, StartsWith("HTTP/1.1 200 "));
  EXPECT_THAT(response, HasSubstr("Connection: close\r\n")) << "one request for each connection";
}

TEST_F(ProxyTest, OpensTunnels) {
  const std::string port = std::to_string(PortOf(stand_.GetKeyServerUrls().front()));
  RawPeer peer(PortOf(stand_.GetProxyUrl()));
  ASSERT_TRUE(
      peer.Send("CONNECT localhost:" + port + " HTTP/1.1\r\nHost: x\r\n\r\nGET /status HTTP/1.0\r\n\r\n"));
  EXPECT_EQ(peer.ReadUntil("\r\n\r\n"), "HTTP/1.1 200 Connection established\r\n\r\n");
  EXPECT_THAT(peer.ReadAll(), testing::EndsWith("alive\n"));
  EXPECT_TRUE(peer.HasEnded());
  EXPECT_EQ(GetOnly().method, "CONNECT");
  EXPECT_EQ(GetOnly().bytesToServer, 24U);
}

TEST_F(ProxyTest, ForwardsToLoopbackAlone) {
  for (const char* host : {"192.0.2.1", "example.org", "0.0.0.0", "[2001:db8::1]", "127.0.0.1.example"}) {
    stand_.ClearProxyRecords();
    EXPECT_THAT(Exchange(std::string("CONNECT ") + host + ":443 HTTP/1.1\r\n\r\n"),
                StartsWith("HTTP/1.1 403 Forbidden\r\n"));
    EXPECT_EQ(GetOnly().outcome, "Only loopback is forwarded") << host;
  }
  EXPECT_THAT(Exchange("GET http://example.org/ HTTP/1.1\r\n\r\n"), StartsWith("HTTP/1.1 403 "));
}

TEST_F(ProxyTest, RefusesWhatIsNoRequestToAProxy) {
  for (const char* head : {"GET / HTTP/1.1\r\n\r\n", "CONNECT 127.0.0.1 HTTP/1.1\r\n\r\n",
                           "CONNECT 127.0.0.1:70000 HTTP/1.1\r\n\r\n", "CONNECT [::1 HTTP/1.1\r\n\r\n",
                           "GET https://127.0.0.1/ HTTP/1.1\r\n\r\n", "GET\r\n\r\n", "\r\n\r\n"}) {
    EXPECT_THAT(Exchange(head), StartsWith("HTTP/1.1 400 Bad Request\r\n")) << head;
  }
}

TEST_F(ProxyTest, ReportsServersThatAreDown) {
  ASSERT_TRUE(stand_.SetFault(0, {.type = FaultType::Down}));
  EXPECT_EQ(GetByProxy(Server("status")).status, 502);
  EXPECT_EQ(GetOnly().outcome, "Connection refused");
  EXPECT_EQ(GetOnly().status, 502);
}

TEST_F(ProxyTest, RefusesTheNextOnesWhenAFaultIsSet) {
  ASSERT_TRUE(stand_.SetFault(kProxy, {.type = FaultType::Status, .uses = 2, .number = 407}));
  for (const int status : {407, 407, 200}) EXPECT_EQ(GetByProxy(Server("status")).status, status);
}

TEST_F(ProxyTest, DropsAConnectionWhenAFaultIsSet) {
  ASSERT_TRUE(stand_.SetFault(kProxy, {.type = FaultType::Drop, .uses = 1}));
  EXPECT_EQ(GetByProxy(Server("status")).status, 0);
  EXPECT_EQ(GetByProxy(Server("status")).status, 200);
}

TEST_F(ProxyTest, ASlowFaultEndsWhenItIsCleared) {
  ASSERT_TRUE(stand_.SetFault(kProxy, {.type = FaultType::Slow, .number = 60000}));
  const auto begin = std::chrono::steady_clock::now();
  std::thread client([this] { EXPECT_EQ(GetByProxy(Server("status")).status, 200); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  ASSERT_TRUE(stand_.ClearFaults(kProxy));
  client.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST_F(ProxyTest, GoesDownWhileATunnelIsOpenAndComesBack) {
  const std::string port = std::to_string(PortOf(stand_.GetKeyServerUrls().front()));
  RawPeer peer(PortOf(stand_.GetProxyUrl()));
  ASSERT_TRUE(peer.Send("CONNECT 127.0.0.1:" + port + " HTTP/1.1\r\n\r\n"));
  ASSERT_THAT(peer.ReadUntil("\r\n\r\n"), StartsWith("HTTP/1.1 200 "));
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(stand_.SetFault(kProxy, {.type = FaultType::Down}));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_EQ(GetByProxy(Server("status")).status, 0);
  ASSERT_TRUE(stand_.ClearFaults(kProxy));
  EXPECT_EQ(GetByProxy(Server("status")).status, 200);
}

TEST_F(StandTest, HasNoProxyUnlessAsked) {
  EXPECT_EQ(stand_.GetProxyUrl(), "");
  EXPECT_TRUE(stand_.GetProxyRecords().empty());
  EXPECT_FALSE(stand_.SetFault(kProxy, {.type = FaultType::Status}));
  EXPECT_FALSE(stand_.ClearFaults(kProxy));
}

class SecureProxyTest : public ProxyTest {
 protected:
  SecureProxyTest() : ProxyTest(/*tls=*/true) {}
};

TEST_F(SecureProxyTest, TunnelsTls) {
  Peer peer(ByProxy());
  for (int i = 0; i < 2; ++i) EXPECT_EQ(peer.Send("GET", Server("status")).body, "alive\n");
  EXPECT_EQ(GetOnly().method, "CONNECT") << "both requests went through one tunnel";
  EXPECT_EQ(GetOnly().outcome, "open");
}

}  // namespace
}  // namespace CryptStand
