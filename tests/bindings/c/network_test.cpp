// The options of the transport against the servers of a local test environment: certificates, headers, a
// proxy, connections that die and bytes that come slowly. Each failure has its code and says what is wrong.
#include <algorithm>
#include <filesystem>
#include <vector>

#include "stand/stand.h"
#include "tests/bindings/c/c_fixture.h"

namespace CInterface {
namespace {

using CryptStand::Fault;
using CryptStand::FaultType;
using CryptStand::Identity;
using ::testing::AllOf;
using ::testing::HasSubstr;

class Network : public ClientTest {
 protected:
  /// Starts the servers and sets the service in the options.
  void Start(CryptStand::Options setup) {
    stand = std::make_unique<CryptStand::Stand>(std::move(setup));
    std::string reason;
    ASSERT_TRUE(stand->Start(reason)) << reason;
    ASSERT_EQ(cryptcli_options_set_service(options.get(), stand->GetServiceUrl().c_str(), nullptr),
              CRYPTCLI_OK);
    scratch.Make("plain", "content");
  }
  void StartSecured(const char* clientCa = "") {
    CryptStand::Options setup;
    setup.tls = true;
    setup.clientCa = clientCa;
    Start(std::move(setup));
    scratch.Make("ca.pem", stand->GetServerAuthority());
    Trust("ca.pem");
  }
  void Trust(const char* file) {
    ASSERT_EQ(cryptcli_options_set_ca_file(options.get(), Path(file).c_str(), nullptr), CRYPTCLI_OK);
  }
  void Show(const Identity& identity) {
    scratch.Make("client.pem", identity.certificate.ToPEM());
    scratch.Make("client.key", identity.key.ToPEM());
    ASSERT_EQ(cryptcli_options_set_client_certificate(options.get(), Path("client.pem").c_str(),
                                                      Path("client.key").c_str(), nullptr, nullptr),
              CRYPTCLI_OK);
  }
  Outcome EncryptOnce() {
    MakeClient();
    return Encrypt("plain", "secret");
  }
  void ExpectRoundTrip() {
    const Outcome encrypted = EncryptOnce();
    ASSERT_EQ(encrypted.status, CRYPTCLI_OK) << encrypted.Message();
    const Outcome decrypted = Decrypt("secret", "again");
    EXPECT_EQ(decrypted.status, CRYPTCLI_OK) << decrypted.Message();
    EXPECT_EQ(scratch.Read("again"), "content");
  }
  std::string Authority() const {
    const std::string url = stand->GetServiceUrl();
    const std::size_t begin = url.find("//") + 2;
    return url.substr(begin, url.size() - begin - 1);
  }
  void SetFault(int server, Fault fault) { ASSERT_TRUE(stand->SetFault(server, fault)); }
  void SetKeyServerFaults(const Fault& fault) {
    for (int server = 0; server < 3; ++server) SetFault(server, fault);
  }

  std::unique_ptr<CryptStand::Stand> stand;
};

TEST_F(Network, ProtectsOverTls) {
  StartSecured();
  ExpectRoundTrip();
}

TEST_F(Network, ReportsACaFileThatIsMissing) {
  StartSecured();
  Trust("none.pem");
  cryptcli_client* made = nullptr;
  cryptcli_error* raw = nullptr;
  EXPECT_EQ(cryptcli_client_new(options.get(), &made, &raw), CRYPTCLI_INVALID_ARGUMENT);
  const Owned<cryptcli_error> error(raw);
  EXPECT_EQ(made, nullptr);
  EXPECT_EQ(cryptcli_error_message(error.get()),
            "Could not read CA file \"" + Path("none.pem") + "\": No such file or directory");
}

// Operators replace these files while programs run. A client works on with what it has read.
TEST_F(Network, KeepsTheFilesThatItsClientWasMadeFrom) {
  StartSecured("make");
  Show(stand->GetClient());
  MakeClient();
  std::filesystem::remove(Path("ca.pem"));
  std::filesystem::remove(Path("client.pem"));
  std::filesystem::remove(Path("client.key"));
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
}

TEST_F(Network, DoesNotTrustWithoutTheCaFile) {
  StartSecured();
  scratch.Make("other.pem",
               Identity::MakeRoot(CryptStand::CertSpec::Authority("Other"), CryptStand::KeyPair::MakeEC())
                   .certificate.ToPEM());
  Trust("other.pem");
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0);
  EXPECT_THAT(outcome.Message(), HasSubstr("Could not verify the certificate of " + Authority()));
}

TEST_F(Network, RefusesBadCertificatesOfTheCryptService) {
  StartSecured();
  MakeClient();
  const struct {
    const char* certificate;
    const char* reason;
  } rows[] = {{"expired", "certificate has expired"},
              {"wrong-host", "no alternative certificate subject name matches"},
              {"self-signed", "self-signed certificate"}};
  for (const auto& row : rows) {
    SetFault(CryptStand::kCryptService, {.type = FaultType::ServerCertificate, .text = row.certificate});
    const Outcome outcome = Encrypt("plain", "secret");
    EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE) << row.certificate;
    EXPECT_THAT(outcome.Message(), AllOf(HasSubstr("Could not verify the certificate of " + Authority()),
                                         HasSubstr(row.reason)));
  }
  ASSERT_TRUE(stand->ClearFaults(CryptStand::kCryptService));
  EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_OK);
}

TEST_F(Network, FailsOverFromAKeyServerWithABadCertificate) {
  StartSecured();
  for (const char* certificate : {"expired", "wrong-host", "self-signed"}) {
    SetFault(0, {.type = FaultType::ServerCertificate, .text = certificate});
    ExpectRoundTrip();
  }
}

TEST_F(Network, ReportsBadCertificatesOfAllKeyServers) {
  StartSecured();
  SetKeyServerFaults({.type = FaultType::ServerCertificate, .text = "expired"});
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_THAT(outcome.Message(), HasSubstr("certificate has expired"));
}

TEST_F(Network, ProtectsWithAClientCertificate) {
  StartSecured("make");
  Show(stand->GetClient());
  ExpectRoundTrip();
}

TEST_F(Network, ReportsAMissingClientCertificate) {
  StartSecured("make");
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNAUTHORISED);
  EXPECT_THAT(outcome.Message(), HasSubstr("A client certificate is required by " + Authority()));
}

TEST_F(Network, ReportsAClientCertificateOfAnotherAuthority) {
  StartSecured("make");
  Show(Identity::MakeRoot(CryptStand::CertSpec::EndEntity("Other"), CryptStand::KeyPair::MakeEC()));
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNAUTHORISED);
  EXPECT_THAT(outcome.Message(), HasSubstr("The client certificate was refused by " + Authority()));
}

// Key servers refuse the header, so that success means that none of them got it.
TEST_F(Network, SendsHeadersToTheCryptServiceAlone) {
  CryptStand::Options setup;
  setup.requiredHeaders = {"Authorization: Bearer 7", "X-Tenant: a"};
  Start(setup);
  ASSERT_EQ(cryptcli_options_add_header(options.get(), "Authorization", "Bearer 7", nullptr), CRYPTCLI_OK);
  ASSERT_EQ(cryptcli_options_add_header(options.get(), "X-Tenant", "a", nullptr), CRYPTCLI_OK);
  ExpectRoundTrip();
}

TEST_F(Network, ReportsAHeaderThatTheCryptServiceMisses) {
  CryptStand::Options setup;
  setup.requiredHeaders = {"Authorization: Bearer 7"};
  Start(setup);
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNAUTHORISED);
  EXPECT_EQ(cryptcli_error_http_status(outcome.error.get()), 401U);
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0);
}

TEST_F(Network, GoesThroughAProxy) {
  for (const bool tls : {false, true}) {
    CryptStand::Options setup;
    setup.tls = tls;
    setup.proxyPort = 0;
    Start(setup);
    if (tls) {
      scratch.Make("ca.pem", stand->GetServerAuthority());
      Trust("ca.pem");
    }
    ASSERT_EQ(cryptcli_options_set_proxy(options.get(), stand->GetProxyUrl().c_str(), nullptr), CRYPTCLI_OK);
    ExpectRoundTrip();
    const auto records = stand->GetProxyRecords();
    ASSERT_FALSE(records.empty());
    for (const auto& record : records) EXPECT_EQ(record.method == "CONNECT", tls);
    // A tunnel carries several requests.
    if (!tls) {
      EXPECT_EQ(records.size(), stand->GetEvents().size());
    }
  }
}

TEST_F(Network, ReportsAProxyThatRefuses) {
  CryptStand::Options setup;
  setup.proxyPort = 0;
  Start(setup);
  ASSERT_EQ(cryptcli_options_set_proxy(options.get(), stand->GetProxyUrl().c_str(), nullptr), CRYPTCLI_OK);
  MakeClient();
  const std::pair<int, cryptcli_status> rows[] = {{407, CRYPTCLI_UNAUTHORISED}, {502, CRYPTCLI_SERVER_ERROR}};
  for (const auto& [status, code] : rows) {
    SetFault(CryptStand::kProxy, {.type = FaultType::Status, .number = status});
    const Outcome outcome = Encrypt("plain", "secret");
    EXPECT_EQ(outcome.status, code) << outcome.Message();
    EXPECT_EQ(cryptcli_error_http_status(outcome.error.get()), static_cast<std::uint32_t>(status));
  }
}

TEST_F(Network, ReportsAProxyThatRefusesATunnel) {
  CryptStand::Options setup;
  setup.proxyPort = 0;
  setup.tls = true;
  Start(setup);
  ASSERT_EQ(cryptcli_options_set_proxy(options.get(), stand->GetProxyUrl().c_str(), nullptr), CRYPTCLI_OK);
  SetFault(CryptStand::kProxy, {.type = FaultType::Status, .number = 407});
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_THAT(outcome.Message(), AllOf(HasSubstr(Authority() + " through the proxy"), HasSubstr("407")));
}

TEST_F(Network, ConnectsAgainWhenServersHaveClosedConnections) {
  StartSecured();
  ExpectRoundTrip();
  for (int i = 0; i < 3; ++i) {
    for (int server = CryptStand::kCryptService; server < 3; ++server) {
      ASSERT_TRUE(stand->EndConnections(server));
    }
    const Outcome outcome = Encrypt("plain", "secret");
    EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  }
}

// The server closes each connection after one response without announcing it, so the next request has often
// been sent when the end arrives. Then nobody knows whether a command was carried out, and the caller has to
// decide.
TEST_F(Network, ReportsOnlyRetryableFailuresWhenEachResponseIsTheLast) {
  StartSecured();
  SetFault(CryptStand::kCryptService, {.type = FaultType::Close});
  SetKeyServerFaults({.type = FaultType::Close});
  MakeClient();
  for (int i = 0; i < 10; ++i) {
    const Outcome outcome = Encrypt("plain", "secret");
    if (outcome.status == CRYPTCLI_OK) continue;
    EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
    EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 1);
    EXPECT_THAT(outcome.Message(), HasSubstr("may have been carried out and was not repeated"));
  }
  stand->ClearFaults(CryptStand::kCryptService);
  for (int server = 0; server < 3; ++server) stand->ClearFaults(server);
  EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_OK);
}

TEST_F(Network, RepeatsAGetWhoseConnectionDies) {
  StartSecured();
  ExpectRoundTrip();
  stand->ClearEvents();
  SetFault(CryptStand::kCryptService, {.type = FaultType::Drop, .operation = "key", .uses = 1});
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_EQ(stand->GetEvents().at(0).outcome, "not served (fault)");
  EXPECT_EQ(stand->GetEvents().at(1).operation, "key");
}

TEST_F(Network, SignsOnAnotherKeyServerWhenAConnectionDies) {
  StartSecured();
  MakeClient();
  ASSERT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_OK);
  for (const auto& event : stand->GetEvents()) {
    if (event.operation != "signRequest") continue;
    SetFault(event.server, {.type = FaultType::Drop, .operation = "signRequest", .uses = 1});
  }
  stand->ClearEvents();
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  std::vector<std::pair<int, std::string>> signings;
  for (const auto& event : stand->GetEvents()) {
    if (event.operation == "signRequest") signings.emplace_back(event.server, event.outcome);
  }
  ASSERT_EQ(signings.size(), 2U);
  EXPECT_EQ(signings[0].second, "not served (fault)");
  EXPECT_EQ(signings[1].second, "ok");
  EXPECT_NE(signings[0].first, signings[1].first) << "the transport itself repeats no command";
}

TEST_F(Network, DoesNotRepeatACommandWhoseConnectionDies) {
  StartSecured();
  MakeClient();
  ASSERT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_OK);
  SetKeyServerFaults({.type = FaultType::Drop, .operation = "signRequest"});
  stand->ClearEvents();
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 1);
  EXPECT_THAT(outcome.Message(), HasSubstr("was closed"));
  const auto events = stand->GetEvents();
  const auto isSigning = [](const auto& event) { return event.operation == "signRequest"; };
  EXPECT_EQ(std::count_if(events.begin(), events.end(), isSigning), 3) << "once on each key server";
}

TEST_F(Network, GivesUpSlowBytesAfterTheTotalTimeout) {
  StartSecured();
  cryptcli_options_set_timeout(options.get(), 300);
  SetFault(CryptStand::kCryptService, {.type = FaultType::Trickle, .number = 50});
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_TIMEOUT);
  EXPECT_THAT(outcome.Message(), HasSubstr("Gave up waiting for " + Authority()));
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 1);
}

TEST_F(Network, TakesSlowBytesWithinTheTotalTimeout) {
  Start({});
  SetFault(0, {.type = FaultType::Trickle, .operation = "status", .number = 1});
  ExpectRoundTrip();
}

}  // namespace
}  // namespace CInterface
