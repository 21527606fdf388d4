#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "tests/stand/http_fixture.h"

namespace CryptStand {
namespace {

using testing::HasSubstr;

CertSpec LoopbackSpec() {
  CertSpec spec = CertSpec::EndEntity("server");
  spec.extensions.emplace_back("subjectAltName", "IP:127.0.0.1");
  return spec;
}

/// A server with a certificate of its own authority.
class HttpTlsTest : public HttpServerTest {
 protected:
  explicit HttpTlsTest(HttpTimeouts timeouts = {}) : HttpServerTest(timeouts) {}

  void SetUp() override {
    context_ = MakeContext("");
    server_.Secure({[this] { return context_; },
                    [this](const std::string& reason) {
                      const std::lock_guard<std::mutex> lock(mutex_);
                      failure_ = reason;
                    }});
    HttpServerTest::SetUp();
  }
  // Its threads use members of this class, which end before those of its base.
  void TearDown() override { server_.Down(); }
  TlsContext MakeContext(const std::string& clientAuthorities) {
    std::string error;
    TlsContext context = TlsContext::Make(Identity::MakeIssued(LoopbackSpec(), authority_, KeyPair::MakeEC()),
                                          clientAuthorities, error);
    EXPECT_FALSE(context.IsEmpty()) << error;
    return context;
  }
  std::string SecureUrl() const { return "https://127.0.0.1:" + std::to_string(server_.GetPort()) + "/"; }
  PeerTrust Trust() const { return {authority_.certificate.ToPEM()}; }
  PeerTrust TrustAs(const Identity& client) const {
    return {authority_.certificate.ToPEM(), client.certificate.ToPEM(), client.key.ToPEM()};
  }
  /// The reason of a handshake that failed, as soon as the server knows it.
  std::string WaitForFailure() {
    for (int i = 0; i < 2000; ++i) {
      {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!failure_.empty()) return failure_;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return {};
  }

  Identity authority_ = Identity::MakeRoot(CertSpec::Authority("Server CA"), KeyPair::MakeEC());
  Identity clientAuthority_ = Identity::MakeRoot(CertSpec::Authority("Client CA"), KeyPair::MakeEC());
  TlsContext context_;
  std::mutex mutex_;
  std::string failure_;  // guarded by mutex_
};

TEST_F(HttpTlsTest, ServesSeveralRequestsOnOneConnection) {
  Peer peer(Trust());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(peer.Send("POST", SecureUrl(), "text").body, "POST / text");
}

TEST_F(HttpTlsTest, CarriesLargeBodiesBothWays) {
  handler_ = [](const HttpRequest& request, const std::stop_token&) {
    HttpReply reply;
    reply.body = request.body;
    return reply;
  };
  const std::string large(3U << 20U, 'x');
  EXPECT_EQ(Peer(Trust()).Send("POST", SecureUrl(), large).body, large);
}

TEST_F(HttpTlsTest, SendsEachChunkWhenItIsMade) {
  std::atomic<int> made = 0;
  std::atomic<bool> isRead = false;
  handler_ = [&](const HttpRequest&, const std::stop_token& stop) {
    HttpReply reply;
    reply.openBody = [&made, &isRead, stop] {
      return [&made, &isRead, stop]() -> std::string {
        // The second chunk comes only when the client has the first one.
        if (++made == 2) {
          while (!isRead && !stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return made <= 2 ? "chunk" : "";
      };
    };
    return reply;
  };
  const auto onFirst = [&isRead] { isRead = true; };
  EXPECT_EQ(Peer(Trust()).Stream(SecureUrl(), onFirst).body, "chunkchunk");
}

TEST_F(HttpTlsTest, PlainHttpGetsNoResponse) {
  EXPECT_EQ(Get(Url()).status, 0);
  EXPECT_EQ(WaitForFailure(), "http request");
}

TEST_F(HttpTlsTest, ReportsThatTheClientDoesNotTrustTheCertificate) {
  EXPECT_EQ(Peer({clientAuthority_.certificate.ToPEM()}).Send("GET", SecureUrl()).status, 0);
  EXPECT_THAT(WaitForFailure(), HasSubstr("unknown ca"));
}

TEST_F(HttpTlsTest, GivesTheHandlerTheSubjectOfTheClient) {
  context_ = MakeContext(clientAuthority_.certificate.ToPEM());
  handler_ = [](const HttpRequest& request, const std::stop_token&) {
    HttpReply reply;
    reply.body = request.peer;
    return reply;
  };
  const Identity client =
      Identity::MakeIssued(CertSpec::EndEntity("Client 1"), clientAuthority_, KeyPair::MakeEC());
  EXPECT_EQ(Peer(TrustAs(client)).Send("GET", SecureUrl()).body, "CN=Client 1");
}

TEST_F(HttpTlsTest, RefusesClientsWithoutTheCertificateThatItAsksFor) {
  context_ = MakeContext(clientAuthority_.certificate.ToPEM());
  const Reply reply = Peer(Trust()).Send("GET", SecureUrl());
  EXPECT_EQ(reply.status, 0);
  EXPECT_THAT(reply.error, HasSubstr("certificate required"));
  EXPECT_EQ(WaitForFailure(), "peer did not return a certificate");
}

TEST_F(HttpTlsTest, RefusesClientsOfAnotherAuthority) {
  context_ = MakeContext(clientAuthority_.certificate.ToPEM());
  const Identity other = Identity::MakeRoot(CertSpec::EndEntity("Other"), KeyPair::MakeEC());
  const Reply reply = Peer(TrustAs(other)).Send("GET", SecureUrl());
  EXPECT_EQ(reply.status, 0);
  EXPECT_THAT(reply.error, HasSubstr("unknown ca"));
  EXPECT_THAT(WaitForFailure(), HasSubstr("certificate verify failed (self-signed certificate)"));
}

TEST_F(HttpTlsTest, ShowsANewCertificateOnceConnectionsHaveEnded) {
  Peer peer(Trust());
  ASSERT_EQ(peer.Send("GET", SecureUrl()).status, 200);
  CertSpec spec = LoopbackSpec();
  spec.validity = Validity::FromNow(-7200, -3600);
  std::string error;
  context_ = TlsContext::Make(Identity::MakeIssued(spec, authority_, KeyPair::MakeEC()), "", error);
  server_.EndConnections();
  EXPECT_THAT(peer.Send("GET", SecureUrl()).error, HasSubstr("expired"));
}

TEST_F(HttpTlsTest, ACutBodyEndsWithoutANotice) {
  handler_ = [](const HttpRequest&, const std::stop_token&) {
    HttpReply reply;
    reply.body = std::string(1000, 'x');
    reply.cutAfter = 100;
    return reply;
  };
  const Reply reply = Peer(Trust()).Send("GET", SecureUrl());
  EXPECT_EQ(reply.status, 0);
  EXPECT_EQ(reply.body, std::string(100, 'x'));
}

TEST_F(HttpTlsTest, GoesDownInTheMiddleOfAHandshake) {
  const RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send("\x16\x03"));
  const auto begin = std::chrono::steady_clock::now();
  server_.Down();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(HttpTlsTest, GoesDownWhileAConnectionIsIdle) {
  Peer peer(Trust());
  ASSERT_EQ(peer.Send("GET", SecureUrl()).status, 200);
  const auto begin = std::chrono::steady_clock::now();
  server_.Down();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
  EXPECT_TRUE(peer.Send("GET", SecureUrl()).isRefused);
}

class HttpTlsTimeoutTest : public HttpTlsTest {
 protected:
  HttpTlsTimeoutTest() : HttpTlsTest(HttpTimeouts{300, 300}) {}
};

TEST_F(HttpTlsTimeoutTest, GivesUpAClientThatDoesNotShakeHands) {
  RawPeer peer(server_.GetPort());
  ASSERT_TRUE(peer.Send("\x16\x03"));
  EXPECT_EQ(peer.ReadAll(), "");
  EXPECT_TRUE(peer.HasEnded());
  EXPECT_EQ(WaitForFailure(), "it took too long");
}

TEST_F(HttpTlsTimeoutTest, LimitsTheWholeHandshake) {
  RawPeer peer(server_.GetPort());
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(peer.Send(std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11)));
  // A byte every 100 ms is never a silence of 300 ms.
  while (peer.Send("x") && std::chrono::steady_clock::now() - begin < std::chrono::seconds(10)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!failure_.empty()) break;
  }
  EXPECT_EQ(WaitForFailure(), "it took too long");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST(TlsContextTest, RefusesAnAuthorityThatIsNoCertificate) {
  const Identity server = Identity::MakeRoot(LoopbackSpec(), KeyPair::MakeEC());
  std::string error;
  EXPECT_TRUE(TlsContext::Make(server, "nothing\n", error).IsEmpty());
  EXPECT_EQ(error, "TLS: the authorities of client certificates are not certificates in PEM");
}

TEST(TlsContextTest, RefusesAKeyThatIsNotTheCertificates) {
  Identity server = Identity::MakeRoot(LoopbackSpec(), KeyPair::MakeEC());
  server.key = KeyPair::MakeEC();
  std::string error;
  EXPECT_TRUE(TlsContext::Make(server, "", error).IsEmpty());
  EXPECT_THAT(error, HasSubstr("key values mismatch"));
}

}  // namespace
}  // namespace CryptStand
