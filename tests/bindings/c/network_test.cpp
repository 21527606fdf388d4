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

TEST_F(Network, ReportsACaFileThatDisappears) {
  StartSecured();
  MakeClient();
  std::filesystem::remove(Path("ca.pem"));
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_THAT(outcome.Message(),
              AllOf(HasSubstr("Could not use the CA file for " + Authority()), HasSubstr(Path("ca.pem"))));
}

TEST_F(Network, DoesNotTrustWithoutTheCaFile) {
  StartSecured();
  scratch.Make("other.pem",
               Identity::MakeRoot(CryptStand::CertSpec::Authority("Other"), CryptStand::KeyPair::MakeEC())
                   .certificate.ToPEM());
  Trust("other.pem");
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
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
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_THAT(outcome.Message(), AllOf(HasSubstr(Authority()), HasSubstr("certificate required")));
}

TEST_F(Network, ReportsAClientCertificateOfAnotherAuthority) {
  StartSecured("make");
  Show(Identity::MakeRoot(CryptStand::CertSpec::EndEntity("Other"), CryptStand::KeyPair::MakeEC()));
  const Outcome outcome = EncryptOnce();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_THAT(outcome.Message(), AllOf(HasSubstr(Authority()), HasSubstr("unknown ca")));
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

}  // namespace
}  // namespace CInterface
