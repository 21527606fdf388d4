// SSLKEYLOGFILE does not make the transport write the secrets of its sessions to a file. libcurl reads the
// variable once in a process, so each case has a process of its own.
#include <cstdio>
#include <cstdlib>
#include <curl/curl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "stand/cert_maker.h"
#include "tests/support/files.h"
#include "tests/transport/secure_server.h"
#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::CertSpec;
using CryptStand::Identity;
using CryptStand::KeyPair;

class CurlKeyLog : public ::testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has not used libcurl yet
    WriteFile(scratch_.Path("ca.pem"), authority_.certificate.ToPEM());
    CertSpec spec = CertSpec::EndEntity("server");
    spec.extensions.emplace_back("subjectAltName", "IP:127.0.0.1");
    const Identity server = Identity::MakeIssued(spec, authority_, KeyPair::MakeEC());
    WriteFile(scratch_.Path("server.pem"), server.certificate.ToPEM());
    WriteFile(scratch_.Path("server.key"), server.key.ToPEM());
    setenv("SSLKEYLOGFILE", Log().c_str(), 1);
  }
  void TearDown() override { unsetenv("SSLKEYLOGFILE"); }

  std::filesystem::path Log() const { return scratch_.Path("keys.log"); }
  /// Ends the process of a case, with 0 if the exchange succeeded and the log is as expected.
  [[noreturn]] void Leave(bool answered, bool isWritten) const {
    std::ifstream file(Log(), std::ios::binary);
    const std::string log(std::istreambuf_iterator<char>(file), {});
    std::fputs(log.c_str(), stderr);
    const bool asExpected = isWritten ? log.find("CLIENT_") != std::string::npos : log.empty();
    std::filesystem::remove_all(scratch_.Path(""));
    if (!answered) std::_Exit(1);
    std::_Exit(asExpected ? 0 : 2);
  }
  std::string AskByTransport() const {
    OruKalvix::CryptClientCurlOptions options;
    options.caFile = Ansi(scratch_.Path("ca.pem").string());
    const SecureServer server(scratch_.Path("server.pem"), scratch_.Path("server.key"));
    return Send(*MakeCurl(options), server.Url()).body;
  }
  bool AskByLibcurlAlone() const {
    const SecureServer server(scratch_.Path("server.pem"), scratch_.Path("server.key"));
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, server.Url().c_str());
    curl_easy_setopt(handle, CURLOPT_CAINFO, scratch_.Path("ca.pem").c_str());
    curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    const bool answered = curl_easy_perform(handle) == CURLE_OK;
    curl_easy_cleanup(handle);
    curl_global_cleanup();
    return answered;
  }

  ScratchDirectory scratch_;
  Identity authority_ = Identity::MakeRoot(CertSpec::Authority("Test CA"), KeyPair::MakeEC());
};

TEST_F(CurlKeyLog, StaysEmptyDespiteTheEnvironment) {
  EXPECT_EXIT(Leave(AskByTransport() == "secure", false), testing::ExitedWithCode(0), "");
}

// Proves that the test above can fail.
TEST_F(CurlKeyLog, IsWrittenByLibcurlAlone) {
  EXPECT_EXIT(Leave(AskByLibcurlAlone(), true), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace TestSupport
