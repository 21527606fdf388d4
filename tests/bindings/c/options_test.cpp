#include <string>
#include <vector>

#include "tests/bindings/c/environment_fixture.h"

namespace CInterface {
namespace {

using ::testing::HasSubstr;

struct Options : EnvironmentTest {
  Outcome NewClient() {
    return Call([&](cryptcli_report**, cryptcli_error** error) {
      cryptcli_client* made = nullptr;
      const cryptcli_status status = cryptcli_client_new(options.get(), &made, error);
      cryptcli_client_free(made);
      return status;
    });
  }
};

TEST_F(Options, RefuseWhatIsNoUrl) {
  for (const char* url : {"http://host/\n", "http://host/\x01", "http://h\xFFst/"}) {
    EXPECT_EQ(cryptcli_options_set_service(options.get(), url, nullptr), CRYPTCLI_INVALID_ARGUMENT) << url;
    EXPECT_EQ(cryptcli_options_set_proxy(options.get(), url, nullptr), CRYPTCLI_INVALID_ARGUMENT) << url;
  }
}

TEST_F(Options, RefuseAProxyThatIsNoHttpUrl) {
  for (const char* url : {"foo://x", "http://", "http://user:pw@host:1/", "socks5://host:1", "host:1"}) {
    ASSERT_EQ(cryptcli_options_set_proxy(options.get(), url, nullptr), CRYPTCLI_OK) << url;
    const Outcome outcome = NewClient();
    EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT) << url;
    EXPECT_THAT(outcome.Message(), ::testing::StartsWith("Invalid URL of the proxy: ")) << url;
    EXPECT_EQ(outcome.Message().find("pw"), std::string::npos);
  }
  for (const char* url : {"http://host", "https://host:3128/", ""}) {
    ASSERT_EQ(cryptcli_options_set_proxy(options.get(), url, nullptr), CRYPTCLI_OK) << url;
    EXPECT_EQ(NewClient().status, CRYPTCLI_OK) << url;
  }
}

TEST_F(Options, AProxyHasNoEffectWithACallback) {
  ASSERT_EQ(cryptcli_options_set_proxy(options.get(), "socks5://host:1", nullptr), CRYPTCLI_OK);
  cryptcli_options_set_transport(
      options.get(), [](void*, const cryptcli_request*, cryptcli_response*) { return -1; }, nullptr);
  EXPECT_EQ(NewClient().status, CRYPTCLI_OK);
}

TEST_F(Options, RefuseHeadersThatWouldBreakARequest) {
  const std::pair<const char*, const char*> bad[] = {
      {"", "v"}, {"na me", "v"}, {"name:", "v"}, {"name", "v\r\nother: v"}, {"name", "\xFF"}, {nullptr, "v"}};
  for (const auto& [name, value] : bad) {
    const Outcome outcome = Call([&, name = name, value = value](cryptcli_report**, cryptcli_error** error) {
      return cryptcli_options_add_header(options.get(), name, value, error);
    });
    EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT);
  }
}

TEST_F(Options, AHeaderThatIsRefusedIsNotQuoted) {
  const Outcome outcome = Call([&](cryptcli_report**, cryptcli_error** error) {
    return cryptcli_options_add_header(options.get(), "Authorization", "secret\n", error);
  });
  EXPECT_EQ(outcome.Message().find("secret"), std::string::npos);
}

TEST_F(Options, ACertificateAuthorityFileHasToBeThere) {
  ASSERT_EQ(cryptcli_options_set_ca_file(options.get(), Path("missing.pem").c_str(), nullptr), CRYPTCLI_OK);
  cryptcli_client* made = nullptr;
  cryptcli_error* error = nullptr;
  EXPECT_EQ(cryptcli_client_new(options.get(), &made, &error), CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(made, nullptr);
  EXPECT_THAT(cryptcli_error_message(error), HasSubstr("missing.pem"));
  cryptcli_error_free(error);
}

TEST_F(Options, ATextFileIsNoCertificateFile) {
  scratch.Make("text", "nothing\n");
  ASSERT_EQ(cryptcli_options_set_ca_file(options.get(), Path("text").c_str(), nullptr), CRYPTCLI_OK);
  const Outcome authority = NewClient();
  EXPECT_EQ(authority.status, CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(authority.Message(), "Could not read CA file \"" + Path("text") + "\": it has no certificate");
  ASSERT_EQ(cryptcli_options_set_ca_file(options.get(), nullptr, nullptr), CRYPTCLI_OK);
  cryptcli_options_set_client_certificate(options.get(), Path("text").c_str(), nullptr, nullptr, nullptr);
  const Outcome own = NewClient();
  EXPECT_EQ(own.status, CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(own.Message(),
            "Could not read client certificate \"" + Path("text") + "\": it has no certificate");
}

TEST_F(Options, AKeyNeedsItsCertificate) {
  EXPECT_EQ(cryptcli_options_set_client_certificate(options.get(), nullptr, "key.pem", nullptr, nullptr),
            CRYPTCLI_INVALID_ARGUMENT);
}

TEST_F(Options, APasswordFileThatIsTooLargeIsRefused) {
  constexpr std::size_t kLimit = std::size_t{64} * 1024;
  scratch.Make("large", std::string(kLimit + 1, 'x'));
  scratch.Make("largest", std::string(kLimit, 'x'));
  const auto make = [&](const std::string& file) {
    cryptcli_options_set_client_certificate(options.get(), "missing.pem", nullptr, file.c_str(), nullptr);
    return Call([&](cryptcli_report**, cryptcli_error** error) {
      cryptcli_client* made = nullptr;
      return cryptcli_client_new(options.get(), &made, error);
    });
  };
  // A device never ends.
  for (const std::string& file : {Path("large"), std::string("/dev/zero")}) {
    const Outcome outcome = make(file);
    EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT) << outcome.Message();
    EXPECT_EQ(outcome.Message(), "The password file \"" + file + "\" is larger than 64 KiB");
  }
  EXPECT_THAT(make(Path("largest")).Message(), HasSubstr("missing.pem"));
  EXPECT_EQ(make(Path("missing")).status, CRYPTCLI_IO);
}

TEST_F(Options, AClientKeepsTheOptionsThatItWasMadeFrom) {
  ASSERT_EQ(cryptcli_options_set_service(options.get(), "http://127.0.0.1:1/", nullptr), CRYPTCLI_OK);
  Protect("content");
  EXPECT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_OK);
}

TEST_F(Options, NullIsAcceptedWhereAnObjectIsMissing) {
  cryptcli_options_free(nullptr);
  cryptcli_client_free(nullptr);
  cryptcli_call_free(nullptr);
  cryptcli_report_free(nullptr);
  cryptcli_error_free(nullptr);
  cryptcli_call_cancel(nullptr);
  cryptcli_options_set_timeout(nullptr, 1);
  EXPECT_EQ(cryptcli_options_set_service(nullptr, "http://host/", nullptr), CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(cryptcli_call_set_accept(nullptr, CRYPTCLI_ACCEPT_ANYTHING, nullptr), CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(
      cryptcli_encrypt(nullptr, kRoom, cryptcli_path("a"), cryptcli_path("b"), nullptr, nullptr, nullptr),
      CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_STREQ(cryptcli_error_message(nullptr), "no memory");
  EXPECT_STREQ(
      cryptcli_error_json(nullptr),
      R"({"code":"internal","message":"no memory","retryable":false,"httpStatus":0,"url":"","attempts":[]})");
  EXPECT_STREQ(cryptcli_report_signed_room(nullptr), "");
}

TEST_F(Options, APolicyNeedsACall) {
  const Outcome outcome = Call([](cryptcli_report**, cryptcli_error** error) {
    return cryptcli_call_set_accept(nullptr, CRYPTCLI_ACCEPT_PROVEN, error);
  });
  EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(outcome.Message(), "No call");
}

TEST_F(Options, UnknownPoliciesAreRefused) {
  EXPECT_EQ(cryptcli_call_set_accept(call.get(), 4, nullptr), CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(cryptcli_call_set_accept(call.get(), -1, nullptr), CRYPTCLI_INVALID_ARGUMENT);
}

TEST_F(Options, NamesAreStable) {
  EXPECT_STREQ(cryptcli_status_name(CRYPTCLI_ORIGIN_NOT_PROVEN), "origin_not_proven");
  EXPECT_STREQ(cryptcli_status_name(999), "internal");
  EXPECT_STREQ(cryptcli_origin_name(CRYPTCLI_ORIGIN_SIGNATURE_ONLY), "signature_only");
  EXPECT_STREQ(cryptcli_origin_name(999), "unproven");
}

// ---- The log

class Log : public EnvironmentTest {
 protected:
  void ListenTo(cryptcli_log_level level, bool reveal) {
    cryptcli_options_set_log(
        options.get(), level,
        [](void* context, cryptcli_log_level, const char* message) {
          static_cast<Log*>(context)->text += std::string(message) + "\n";
        },
        this, reveal ? 1 : 0);
    MakeClient();
  }

  std::string text;
};

TEST_F(Log, ShowsRequestsWithoutBodies) {
  ListenTo(CRYPTCLI_LOG_REQUEST, /*reveal=*/false);
  Protect("content");
  EXPECT_THAT(text, HasSubstr("GET " + stand.GetServiceUrl() + "crypt/key/demo"));
  EXPECT_EQ(text.find("authztoken\":"), std::string::npos);
}

TEST_F(Log, LeavesSecretsOutUnlessTheyAreAskedFor) {
  ListenTo(CRYPTCLI_LOG_DEBUG, /*reveal=*/false);
  Protect("content");
  ASSERT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_OK);
  EXPECT_THAT(text, HasSubstr("room=[demo]"));
  EXPECT_EQ(text.find("authztoken\":"), std::string::npos);
  EXPECT_EQ(text.find("plainData\":"), std::string::npos);
}

TEST_F(Log, RevealsSecretsOnRequest) {
  ListenTo(CRYPTCLI_LOG_DEBUG, /*reveal=*/true);
  Protect("content");
  EXPECT_THAT(text, HasSubstr("authztoken\":"));
}

TEST_F(Log, ShowsErrorsAlone) {
  ListenTo(CRYPTCLI_LOG_ERROR, /*reveal=*/false);
  Protect("content");
  EXPECT_EQ(text, "");
  Decrypt("missing", "opened");
  Decrypt("plain", "opened");
  EXPECT_THAT(text, HasSubstr("Could not parse encrypted file"));
}

}  // namespace
}  // namespace CInterface
