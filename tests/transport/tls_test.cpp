// TLS: which servers are trusted, and how the client authenticates.
#include <memory>

#include "stand/cert_maker.h"
#include "tests/support/files.h"
#include "tests/transport/secure_server.h"
#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::CertSpec;
using CryptStand::Identity;
using CryptStand::KeyPair;
using OruKalvix::CryptClientCurlOptions;
using ::testing::StartsWith;

CertSpec ServerSpec(const std::string& name) {
  CertSpec spec = CertSpec::EndEntity(name);
  spec.extensions.emplace_back("subjectAltName", name);
  return spec;
}

class CurlTLS : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteFile(Path("ca.pem"), authority_.certificate.ToPEM());
    WriteFile(Path("other.pem"),
              Identity::MakeRoot(CertSpec::Authority("Other CA"), KeyPair::MakeEC()).certificate.ToPEM());
    options_.caFile = Ansi(Path("ca.pem").string());
  }

  std::filesystem::path Path(const char* name) const { return scratch_.Path(name); }
  Identity Issue(const CertSpec& spec, const char* certificate, const char* key) {
    Identity identity = Identity::MakeIssued(spec, authority_, KeyPair::MakeEC());
    WriteFile(Path(certificate), identity.certificate.ToPEM());
    WriteFile(Path(key), identity.key.ToPEM());
    return identity;
  }
  void Show(const char* certificate, const char* key) {
    options_.clientCertificate = Ansi(Path(certificate).string());
    options_.clientKey = Ansi(Path(key).string());
  }
  /// Why no transport can be created from the options.
  std::string CreationError() const {
    OruGuiBase::AnsiStr reason;
    EXPECT_EQ(OruKalvix::CryptClientCurl::Create(options_, reason), nullptr);
    return Str(reason);
  }
  std::string Refused(const char* what, const char* file, const char* reason) const {
    return std::string("Could not read ") + what + " \"" + Path(file).string() + "\": " + reason;
  }
  std::unique_ptr<SecureServer> Start(const std::string& name, const char* clientAuthority = nullptr) {
    Issue(ServerSpec(name), "server.pem", "server.key");
    return std::make_unique<SecureServer>(Path("server.pem"), Path("server.key"),
                                          clientAuthority == nullptr ? "" : Path(clientAuthority));
  }
  Outcome Get(const std::string& url) { return Send(*MakeCurl(options_), url); }

  ScratchDirectory scratch_;
  Identity authority_ = Identity::MakeRoot(CertSpec::Authority("Test CA"), KeyPair::MakeEC());
  CryptClientCurlOptions options_;
};

TEST_F(CurlTLS, AServerOfTheNamedAuthorityIsTrusted) {
  const auto server = Start("IP:127.0.0.1");
  EXPECT_EQ(Get(server->Url()).body, "secure");
}

TEST_F(CurlTLS, AnotherHostsCertificateIsRefused) {
  const auto server = Start("DNS:other.example");
  const Outcome outcome = Get(server->Url());
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Could not verify the certificate of " + server->Authority()));
}

TEST_F(CurlTLS, AnUnknownAuthorityIsRefused) {
  const auto server = Start("IP:127.0.0.1");
  options_.caFile = Ansi(Path("other.pem").string());
  const Outcome outcome = Get(server->Url());
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Could not verify the certificate of " + server->Authority()));
}

TEST_F(CurlTLS, WithoutACAFileTheSystemsAuthoritiesDecide) {
  const auto server = Start("IP:127.0.0.1");
  options_.caFile.Clear();
  EXPECT_THAT(Get(server->Url()).errorText, StartsWith("Could not verify the certificate of "));
}

TEST_F(CurlTLS, AnExpiredCertificateIsRefused) {
  CertSpec spec = ServerSpec("IP:127.0.0.1");
  spec.validity = CryptStand::Validity::FromNow(-7200, -3600);
  Issue(spec, "server.pem", "server.key");
  const SecureServer server(Path("server.pem"), Path("server.key"));
  const Outcome outcome = Get(server.Url());
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, ::testing::HasSubstr("expired"));
}

TEST_F(CurlTLS, ACAFileWithoutCertificatesIsRefused) {
  WriteFile(Path("empty.pem"), "nothing\n");
  options_.caFile = Ansi(Path("empty.pem").string());
  EXPECT_EQ(CreationError(), Refused("CA file", "empty.pem", "it has no certificate"));
}

TEST_F(CurlTLS, ACAFileWithABrokenCertificateIsRefused) {
  WriteFile(Path("broken.pem"), authority_.certificate.ToPEM() +
                                    "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n");
  options_.caFile = Ansi(Path("broken.pem").string());
  EXPECT_THAT(CreationError(),
              StartsWith(Refused("CA file", "broken.pem", "a certificate in it is not valid")));
}

TEST_F(CurlTLS, AVersionBelow1_2IsRefused) {
  const auto server = Start("IP:127.0.0.1");
  server->AllowAtMost(TLS1_1_VERSION);
  EXPECT_LT(Get(server->Url()).result, 0);
}

TEST_F(CurlTLS, AServerWithoutTLSIsRefused) {
  RawServer plain([](RawConnection& connection) {
    connection.Respond(400, "speak plainly");
    connection.WaitForEnd();
  });
  const Outcome outcome = Get("https://" + plain.Authority() + "/");
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, ::testing::HasSubstr(plain.Authority()));
}

TEST_F(CurlTLS, AClientCertificateOpensAServerThatAsksForOne) {
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
  options_.clientCertificate = Ansi(Path("me.pem").string());
  options_.clientKey = Ansi(Path("me.key").string());
  EXPECT_EQ(Get(server->Url()).body, "secure");
}

TEST_F(CurlTLS, OneFileMayHoldCertificateAndKey) {
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  const Identity me = Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
  WriteFile(Path("both.pem"), me.certificate.ToPEM() + me.key.ToPEM());
  options_.clientCertificate = Ansi(Path("both.pem").string());
  EXPECT_EQ(Get(server->Url()).body, "secure");
}

TEST_F(CurlTLS, AClientCertificateMayComeWithItsChain) {
  const Identity between =
      Identity::MakeIssued(CertSpec::Authority("Between"), authority_, KeyPair::MakeEC());
  const Identity me = Identity::MakeIssued(CertSpec::EndEntity("Client"), between, KeyPair::MakeEC());
  WriteFile(Path("chain.pem"), me.certificate.ToPEM() + between.certificate.ToPEM());
  WriteFile(Path("me.key"), me.key.ToPEM());
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  Show("chain.pem", "me.key");
  EXPECT_EQ(Get(server->Url()).body, "secure");
}

TEST_F(CurlTLS, ItsFilesAreReadOnce) {
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
  Show("me.pem", "me.key");
  const auto http = MakeCurl(options_);
  // A new certificate has come, and not its key yet.
  Issue(CertSpec::EndEntity("Client"), "me.pem", "later.key");
  std::filesystem::remove(Path("ca.pem"));
  EXPECT_EQ(Send(*http, server->Url()).body, "secure");
}

TEST_F(CurlTLS, AKeyOfAnotherCertificateIsRefused) {
  Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
  Issue(CertSpec::EndEntity("Other"), "other.pem", "other.key");
  Show("me.pem", "other.key");
  EXPECT_EQ(CreationError(),
            Refused("client key", "other.key", "it is not the key of the client certificate"));
}

TEST_F(CurlTLS, ACertificateFileWithoutAKeyNeedsAnotherFile) {
  Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
  options_.clientCertificate = Ansi(Path("me.pem").string());
  EXPECT_EQ(CreationError(),
            Refused("client key", "me.pem", "it has no private key, or one that the password does not open"));
}

TEST_F(CurlTLS, AMissingClientCertificateIsNamed) {
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  EXPECT_THAT(Get(server->Url()).errorText,
              "A client certificate is required by " + server->Authority() + ": certificate required");
}

TEST_F(CurlTLS, ALostRefusalIsSuspected) {
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  server->ResetRefused();
  const std::string text = Get(server->Url()).errorText;
  EXPECT_THAT(text, ::testing::AnyOf(StartsWith("A client certificate is required by "),
                                     ::testing::EndsWith("; the server had asked for a client certificate")));
}

TEST_F(CurlTLS, ARefusedClientCertificateIsNamed) {
  const auto server = Start("IP:127.0.0.1", "other.pem");
  Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
  options_.clientCertificate = Ansi(Path("me.pem").string());
  options_.clientKey = Ansi(Path("me.key").string());
  EXPECT_THAT(Get(server->Url()).errorText,
              StartsWith("The client certificate was refused by " + server->Authority() + ": "));
}

class CurlTLSPassword : public CurlTLS {
 protected:
  void SetUp() override {
    CurlTLS::SetUp();
    const Identity me = Issue(CertSpec::EndEntity("Client"), "me.pem", "me.key");
    WriteFile(Path("locked.key"), me.key.ToEncryptedPEM("open"));
    options_.clientCertificate = Ansi(Path("me.pem").string());
    options_.clientKey = Ansi(Path("locked.key").string());
  }
};

TEST_F(CurlTLSPassword, OpensALockedKey) {
  const auto server = Start("IP:127.0.0.1", "ca.pem");
  options_.clientKeyPassword = "open";
  EXPECT_EQ(Get(server->Url()).body, "secure");
}

TEST_F(CurlTLSPassword, AWrongOneIsRefused) {
  options_.clientKeyPassword = "closed";
  EXPECT_EQ(CreationError(), Refused("client key", "locked.key",
                                     "it has no private key, or one that the password does not open"));
}

TEST_F(CurlTLSPassword, AMissingOneIsNotAskedForAtTheTerminal) {
  EXPECT_EQ(CreationError(), Refused("client key", "locked.key",
                                     "it has no private key, or one that the password does not open"));
}

}  // namespace
}  // namespace TestSupport
