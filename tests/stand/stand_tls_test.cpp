#include <atomic>
#include <chrono>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <thread>

#include "stand/text_file.h"
#include "tests/stand/folder.h"
#include "tests/stand/raw_peer.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr std::time_t kDay = 86400;

Options TlsOptions(const std::string& clientCa = "") {
  Options options;
  options.tls = true;
  options.clientCa = clientCa;
  return options;
}

unsigned FileMode(const std::string& path) {
  struct stat found = {};
  return stat(path.c_str(), &found) == 0 ? found.st_mode & 0777U : 0;
}

/// Servers that speak TLS, and a client that trusts their authority.
class StandTlsTest : public StandTest {
 protected:
  explicit StandTlsTest(Options options = TlsOptions()) : StandTest(std::move(options)) {}

  PeerTrust Trust() const { return {stand_.GetServerAuthority()}; }
  Reply GetFrom(const std::string& url) const { return Peer(Trust()).Send("GET", url); }
  std::string KeyUrl() const { return Service("crypt/key/demo"); }
};

TEST_F(StandTlsTest, AllServersSpeakTls) {
  EXPECT_THAT(stand_.GetServiceUrl(), StartsWith("https://127.0.0.1:"));
  EXPECT_EQ(GetFrom(KeyUrl()).Text("room"), "demo");
  for (const std::string& url : stand_.GetKeyServerUrls())
    EXPECT_EQ(GetFrom(url + "/status").body, "alive\n");
}

TEST_F(StandTlsTest, AnnouncesSecureKeyServers) {
  EXPECT_EQ(ReadTexts(GetFrom(KeyUrl()).Object(), "keyserver"), stand_.GetKeyServerUrls());
  EXPECT_THAT(stand_.GetKeyServerUrls().front(), StartsWith("https://"));
}

TEST_F(StandTlsTest, IsTrustedAsLocalhostToo) {
  std::string url = KeyUrl();
  url.replace(url.find("127.0.0.1"), 9, "localhost");
  EXPECT_EQ(GetFrom(url).status, 200);
}

TEST_F(StandTlsTest, IsNotTrustedWithoutItsAuthority) {
  EXPECT_EQ(Get(KeyUrl()).status, 0);
}

TEST_F(StandTlsTest, TheAuthorityIsNotOnTheListsForFiles) {
  for (const char* list : {"certstore", "truststore"}) {
    EXPECT_EQ(GetFrom(Server(list)).body.find(stand_.GetServerAuthority()), std::string::npos) << list;
  }
}

TEST_F(StandTlsTest, ShowsCertificatesThatClientsRefuse) {
  const struct {
    const char* name;
    const char* error;
  } rows[] = {{"expired", "certificate has expired"},
              {"wrong-host", "subject name"},
              {"self-signed", "self-signed certificate"},
              {"", "certificate has expired"}};
  for (const auto& row : rows) {
    Peer peer(Trust());
    ASSERT_EQ(peer.Send("GET", Server("status")).status, 200);
    ASSERT_TRUE(stand_.SetFault(0, {.type = FaultType::ServerCertificate, .text = row.name}));
    // The connection that was open ends, too. If the server was not idle yet, that is still to come: the
    // request that meets it gets no response, and the next one a new connection.
    const Reply first = peer.Send("GET", Server("status"));
    EXPECT_EQ(first.status, 0) << row.name;
    EXPECT_THAT(first.error + peer.Send("GET", Server("status")).error, HasSubstr(row.error)) << row.name;
    EXPECT_EQ(GetFrom(Server("status", 1)).status, 200) << "the others are as before";
    ASSERT_TRUE(stand_.ClearFaults(0));
    EXPECT_EQ(GetFrom(Server("status")).status, 200);
  }
}

TEST_F(StandTlsTest, RefusesUnknownCertificates) {
  EXPECT_FALSE(stand_.SetFault(0, {.type = FaultType::ServerCertificate, .text = "other"}));
  EXPECT_FALSE(stand_.SetServerCertificate(3, ServerCertificate::Expired));
}

TEST_F(StandTlsTest, LogsHandshakesThatFail) {
  stand_.ClearEvents();
  const auto begin = std::chrono::system_clock::now();
  Get(KeyUrl());
  std::vector<Event> events;
  for (int i = 0; i < 2000 && events.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the client may know before the server
    events = stand_.GetEvents();
  }
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].operation, "handshake");
  EXPECT_EQ(events[0].server, kCryptService);
  EXPECT_THAT(events[0].outcome, StartsWith("TLS: "));
  EXPECT_GE(events[0].time, begin);
}

TEST_F(StandTlsTest, DoesNotLogWhoLooksWhetherAPortIsOpen) {
  stand_.ClearEvents();
  const std::string url = Server("");
  { const RawPeer peer(PortOf(url)); }
  Get(KeyUrl());
  for (int i = 0; i < 2000 && stand_.GetEvents().empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  for (const Event& event : stand_.GetEvents()) EXPECT_EQ(event.server, kCryptService);
}

// Whoever reads the list of faults can rely on it.
TEST_F(StandTlsTest, ShowsTheCertificateThatItsFaultsSay) {
  for (int round = 0; round < 300; ++round) {
    std::atomic<int> ready = 0;
    const auto meet = [&] {
      for (++ready; ready < 2;) {
      }
    };
    std::thread other([&] {
      meet();
      stand_.SetFault(0, {.type = FaultType::ServerCertificate});
    });
    meet();
    stand_.ClearFaults(0);
    other.join();
    const auto faults = ReadArray(GetFrom(Service("stand/v1/faults")).Object(), "set");
    ASSERT_TRUE(faults.has_value());
    ASSERT_EQ(GetFrom(Server("status")).status, faults->GetCount() == 0 ? 200 : 0) << round;
  }
}

// One thread changes what another one walks through.
TEST_F(StandTlsTest, EndsConnectionsWhileItGoesDown) {
  std::atomic<bool> done = false;
  std::thread other([&] {
    while (!done) {
      stand_.SetServerCertificate(0, ServerCertificate::Expired);
      stand_.SetServerCertificate(0, ServerCertificate::Good);
    }
  });
  const std::string url = Server("");
  const int port = PortOf(url);
  for (int round = 0; round < 100; ++round) {
    const RawPeer one(port);
    const RawPeer two(port);
    EXPECT_TRUE(stand_.SetFault(0, {.type = FaultType::Down}));
    EXPECT_TRUE(stand_.ClearFaults(0));
  }
  done = true;
  other.join();
}

TEST_F(StandTest, HasNoCertificateWithoutTls) {
  EXPECT_EQ(stand_.GetServerAuthority(), "");
  EXPECT_FALSE(stand_.SetServerCertificate(0, ServerCertificate::Expired));
  EXPECT_FALSE(stand_.SetFault(0, {.type = FaultType::ServerCertificate}));
}

TEST(StandTlsHostsTest, CertifiesAllowedHosts) {
  Options options = TlsOptions();
  options.listen = "0.0.0.0";
  options.allowedHosts = {"stand.localhost", "127.0.0.9", "[fd00::1]", "fd00::2"};
  Stand stand(options);
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const std::string port = stand.GetServiceUrl().substr(stand.GetServiceUrl().rfind(':'));
  for (const char* host : {"stand.localhost", "127.0.0.9"}) {
    const Reply reply =
        Peer({stand.GetServerAuthority()}).Send("GET", "https://" + (host + port) + "stand/v1/events");
    EXPECT_EQ(reply.status, 200) << host << reply.error;
  }
}

TEST(StandTlsHostsTest, RefusesAnAllowedHostThatIsNone) {
  Options options = TlsOptions();
  options.allowedHosts = {"a,DNS:b"};
  Stand stand(options);
  std::string error;
  EXPECT_FALSE(stand.Start(error));
  EXPECT_EQ(error, "An allowed host is neither a name nor an IP address");
}

class StandClientCertificateTest : public StandTlsTest {
 protected:
  StandClientCertificateTest() : StandTlsTest(TlsOptions("make")) {}
};

TEST_F(StandClientCertificateTest, LetsItsClientIn) {
  const Identity client = stand_.GetClient();
  Peer peer({stand_.GetServerAuthority(), client.certificate.ToPEM(), client.key.ToPEM()});
  EXPECT_EQ(peer.Send("GET", KeyUrl()).status, 200);
  EXPECT_EQ(peer.Send("GET", Server("status")).status, 200);
  EXPECT_EQ(stand_.GetEvents().size(), 2U);
  for (const Event& event : stand_.GetEvents()) EXPECT_EQ(event.peer, "CN=Client,O=Development stand");
}

TEST_F(StandClientCertificateTest, RefusesOthersOnEveryServer) {
  EXPECT_THAT(GetFrom(KeyUrl()).error, HasSubstr("certificate required"));
  EXPECT_THAT(GetFrom(Server("status")).error, HasSubstr("certificate required"));
}

TEST(StandTlsFolderTest, WritesItsCertificatesAndKeepsThem) {
  const Folder folder;
  Options options = TlsOptions("make");
  options.folder = folder.Path("state");
  std::string authority;
  std::string client;
  for (int i = 0; i < 2; ++i) {
    Stand stand(options);
    std::string error;
    ASSERT_TRUE(stand.Start(error)) << error;
    EXPECT_EQ(stand.GetServerAuthorityFile(), options.folder + "/server-ca.pem");
    EXPECT_EQ(ReadTextFile(stand.GetServerAuthorityFile(), error), stand.GetServerAuthority());
    EXPECT_EQ(ReadTextFile(options.folder + "/client.pem", error), stand.GetClient().certificate.ToPEM());
    EXPECT_EQ(ReadTextFile(options.folder + "/client.key", error), stand.GetClient().key.ToPEM());
    if (i == 1) {
      EXPECT_EQ(stand.GetServerAuthority(), authority);
      EXPECT_EQ(stand.GetClient().certificate.ToPEM(), client);
    }
    authority = stand.GetServerAuthority();
    client = stand.GetClient().certificate.ToPEM();
  }
  EXPECT_EQ(FileMode(options.folder + "/client.key"), 0600U);
  EXPECT_EQ(FileMode(options.folder + "/server-ca.pem"), 0644U);
}

// The page suggests commands with it. Anybody may read the state, so it has no value of a required header.
TEST(StandTlsFolderTest, ShowsInTheStateWhatClientsNeed) {
  const Folder folder;
  Options options = TlsOptions("make");
  options.folder = folder.Path("state");
  options.requiredHeaders = {"X-Tenant: 7"};
  Stand stand(options);
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const Identity client = stand.GetClient();
  Peer peer({stand.GetServerAuthority(), client.certificate.ToPEM(), client.key.ToPEM()});
  const KVMap state = peer.Send("GET", stand.GetServiceUrl() + "stand/v1/state").Object();
  EXPECT_EQ(ReadBool(state, "asksForCertificate"), true);
  EXPECT_EQ(ReadText(state, "caFile"), options.folder + "/server-ca.pem");
  EXPECT_EQ(ReadText(state, "clientCertificate"), options.folder + "/client.pem");
  EXPECT_EQ(ReadText(state, "clientKey"), options.folder + "/client.key");
  EXPECT_EQ(ReadTexts(state, "requiredHeaders"), std::vector<std::string>{"X-Tenant"});
}

TEST(StandTlsFolderTest, AsksForCertificatesOfAuthoritiesInAFile) {
  const Folder folder;
  const Identity authority = Identity::MakeRoot(CertSpec::Authority("Ours"), KeyPair::MakeEC());
  std::string error;
  ASSERT_TRUE(WriteTextFile(folder.Path("ca.pem"), authority.certificate.ToPEM(), 0600, error)) << error;
  Stand stand(TlsOptions(folder.Path("ca.pem")));
  ASSERT_TRUE(stand.Start(error)) << error;
  EXPECT_TRUE(stand.GetClient().certificate.IsEmpty());
  const Identity client = Identity::MakeIssued(CertSpec::EndEntity("Me"), authority, KeyPair::MakeEC());
  const std::string url = stand.GetServiceUrl() + "crypt/key/demo";
  EXPECT_EQ(Peer({stand.GetServerAuthority(), client.certificate.ToPEM(), client.key.ToPEM()})
                .Send("GET", url)
                .status,
            200);
  EXPECT_EQ(Peer({stand.GetServerAuthority()}).Send("GET", url).status, 0);
}

TEST(StandTlsFolderTest, SaysWhyClientAuthoritiesCannotBeUsed) {
  const Folder folder;
  std::string error;
  ASSERT_TRUE(WriteTextFile(folder.Path("empty.pem"), "nothing\n", 0600, error)) << error;
  Options plain;
  plain.clientCa = "make";
  const std::pair<Options, std::string> rows[] = {
      {TlsOptions(folder.Path("none.pem")), folder.Path("none.pem") + ": No such file or directory"},
      {TlsOptions(folder.Path("empty.pem")), folder.Path("empty.pem") + ": no certificates in PEM"},
      {plain, "Client certificates need TLS"}};
  for (const auto& [options, reason] : rows) {
    Stand stand(options);
    EXPECT_FALSE(stand.Start(error));
    EXPECT_EQ(error, reason);
  }
}

class TlsIdentitiesTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(store_.Open("", error)) << error;
    Prepare();
  }
  void Prepare() {
    std::string error;
    ASSERT_TRUE(identities_.Prepare({"stand.example", "192.0.2.1"}, error)) << error;
    ASSERT_TRUE(identities_.PrepareClient(error)) << error;
  }
  std::string ServerCertificatePem() {
    const TlsContext context = identities_.GetContext(0);
    X509* const certificate = SSL_CTX_get0_certificate(context.Get0());
    X509_up_ref(certificate);
    return Cert(certificate).ToPEM();
  }

  std::time_t now_ = std::time(nullptr);
  Store store_;
  TlsIdentities identities_{store_, [this] { return now_; }};
};

TEST_F(TlsIdentitiesTest, RenewsTheServersCertificateInTime) {
  const std::string first = ServerCertificatePem();
  now_ += 366 * kDay;
  EXPECT_EQ(ServerCertificatePem(), first);
  now_ += 2 * kDay;
  EXPECT_NE(ServerCertificatePem(), first);
}

TEST_F(TlsIdentitiesTest, RenewsAuthoritiesAtAStartInTime) {
  const std::string authority = identities_.GetServerAuthority();
  const std::string client = identities_.GetClient().certificate.ToPEM();
  Prepare();
  EXPECT_EQ(identities_.GetServerAuthority(), authority);
  EXPECT_EQ(identities_.GetClient().certificate.ToPEM(), client);
  now_ += 3249 * kDay;
  Prepare();
  EXPECT_EQ(identities_.GetServerAuthority(), authority);
  EXPECT_NE(identities_.GetClient().certificate.ToPEM(), client);
  now_ += 2 * kDay;
  Prepare();
  EXPECT_NE(identities_.GetServerAuthority(), authority);
}

TEST_F(TlsIdentitiesTest, CertifiesItsHosts) {
  const TlsContext context = identities_.GetContext(0);
  X509* const certificate = SSL_CTX_get0_certificate(context.Get0());
  for (const char* host : {"localhost", "stand.example"}) {
    EXPECT_EQ(X509_check_host(certificate, host, 0, 0, nullptr), 1) << host;
  }
  for (const char* address : {"127.0.0.1", "::1", "192.0.2.1"}) {
    EXPECT_EQ(X509_check_ip_asc(certificate, address, 0), 1) << address;
  }
  EXPECT_EQ(X509_check_host(certificate, "other.example", 0, 0, nullptr), 0);
}

TEST(TextFileTest, ReplacesAFileWithItsOwnMode) {
  const Folder folder;
  const std::string path = folder.Path("key");
  std::string error;
  ASSERT_TRUE(WriteTextFile(path, "first", 0644, error)) << error;
  ASSERT_TRUE(WriteTextFile(path, "second", 0600, error)) << error;
  EXPECT_EQ(ReadTextFile(path, error), "second");
  EXPECT_EQ(FileMode(path), 0600U);
}

TEST(TextFileTest, SaysWhyAFileCannotBeUsed) {
  const Folder folder;
  std::string error;
  EXPECT_FALSE(WriteTextFile(folder.Path("a/b"), "x", 0600, error));
  EXPECT_EQ(error, folder.Path("a/b.new") + ": No such file or directory");
  EXPECT_EQ(ReadTextFile(folder.Path("a/b"), error), std::nullopt);
  EXPECT_EQ(error, folder.Path("a/b") + ": No such file or directory");
}

}  // namespace
}  // namespace CryptStand
