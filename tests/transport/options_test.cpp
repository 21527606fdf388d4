// Wrong options are refused when the transport is created.
#include "tests/support/files.h"
#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using OruGuiBase::AnsiStr;
using OruKalvix::CryptClientCurl;
using OruKalvix::CryptClientCurlOptions;

std::string Refusal(const CryptClientCurlOptions& options) {
  AnsiStr errorText;
  const auto http = CryptClientCurl::Create(options, errorText);
  EXPECT_EQ(http, nullptr);
  return Str(errorText);
}

TEST(CurlOptions, DefaultsMakeATransport) {
  EXPECT_NE(MakeCurl(), nullptr);
}

TEST(CurlOptions, AMissingCAFileIsRefused) {
  EXPECT_EQ(Refusal({.caFile = "/no/such/ca.pem"}),
            "Could not read CA file \"/no/such/ca.pem\": No such file or directory");
}

TEST(CurlOptions, AMissingClientCertificateIsRefused) {
  EXPECT_EQ(Refusal({.clientCertificate = "/no/such/me.pem"}),
            "Could not read client certificate \"/no/such/me.pem\": No such file or directory");
}

TEST(CurlOptions, AMissingClientKeyIsRefused) {
  const ScratchDirectory scratch;
  scratch.Make("me.pem", "");
  CryptClientCurlOptions options;
  options.clientCertificate = Ansi(scratch.Path("me.pem").string());
  options.clientKey = "/no/such/key.pem";
  EXPECT_EQ(Refusal(options), "Could not read client key \"/no/such/key.pem\": No such file or directory");
}

TEST(CurlOptions, AFileThatNeverEndsIsRefused) {
  EXPECT_EQ(Refusal({.caFile = "/dev/zero"}),
            "Could not read CA file \"/dev/zero\": it is larger than 4 MiB");
}

TEST(CurlOptions, ADirectoryIsNoCertificateFile) {
  EXPECT_EQ(Refusal({.clientCertificate = "/tmp"}),
            "Could not read client certificate \"/tmp\": Is a directory");
}

TEST(CurlOptions, AKeyWithoutACertificateIsRefused) {
  EXPECT_EQ(Refusal({.clientKey = "/dev/null"}), "A client key needs a client certificate");
}

TEST(CurlOptions, AnInvalidHeaderIsRefused) {
  CryptClientCurlOptions options;
  options.headers = Map(R"({"X Y":"a"})");
  EXPECT_EQ(Refusal(options), "Invalid header name \"X Y\"");
}

TEST(CurlOptions, AnInvalidServiceUrlIsRefused) {
  CryptClientCurlOptions options;
  options.serviceUrl = "service";
  EXPECT_THAT(Refusal(options), ::testing::StartsWith("Invalid URL: "));
}

TEST(CurlOptions, CredentialsForNoServiceAreRefused) {
  CryptClientCurlOptions options;
  options.credentials = [](const auto&, const auto&, auto&, auto&) { return true; };
  EXPECT_EQ(Refusal(options), "Credentials need the URL of the crypt service");
}

}  // namespace
}  // namespace TestSupport
