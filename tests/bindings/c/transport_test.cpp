#include <string>
#include <vector>

#include "tests/bindings/c/c_fixture.h"

namespace CInterface {
namespace {

/// A transport that records requests and gives one response to each.
struct Recorder {
  std::vector<std::string> urls;
  std::vector<std::string> headers;
  std::vector<std::string> withCredentials;  ///< URLs
  uint32_t connectTimeout = 0;
  uint32_t timeout = 0;
  uint32_t status = 200;
  int32_t result = 0;
  bool badStatus = false;
  cryptcli_status code = CRYPTCLI_OK;  ///< of a failure; none if OK
  int32_t codeResult = 0;

  static int32_t Send(void* context, const cryptcli_request* request, cryptcli_response* response) {
    auto& self = *static_cast<Recorder*>(context);
    self.urls.emplace_back(std::string(cryptcli_request_method(request)) + " " +
                           cryptcli_request_url(request));
    for (std::size_t i = 0; cryptcli_request_header_name(request, i) != nullptr; ++i) {
      self.headers.emplace_back(std::string(cryptcli_request_header_name(request, i)) + ": " +
                                cryptcli_request_header_value(request, i));
      if (self.headers.back().starts_with("Authorization: ")) {
        self.withCredentials.emplace_back(cryptcli_request_url(request));
      }
    }
    self.connectTimeout = cryptcli_request_connect_timeout(request);
    self.timeout = cryptcli_request_timeout(request);
    EXPECT_EQ(cryptcli_request_header_name(request, 1000), nullptr);
    cryptcli_response_set_status(response, self.badStatus ? 1 : self.status);
    cryptcli_response_add_header(response, "Date", "Wed, 15 May 2024 12:00:00 GMT");
    cryptcli_response_append_body(response, "{}", 2);
    if (self.code != CRYPTCLI_OK) self.codeResult = cryptcli_response_set_error_code(response, self.code);
    return self.result;
  }
};

class Transport : public ClientTest {
 protected:
  void SetUp() override {
    scratch.Make("plain", "x");
    ASSERT_EQ(cryptcli_options_set_service(options.get(), "https://crypt.example/api", nullptr), CRYPTCLI_OK);
    cryptcli_options_set_transport(options.get(), &Recorder::Send, &recorder);
  }

  Recorder recorder;
};

TEST_F(Transport, GetsTheRequestWithCredentialsAndTimeouts) {
  ASSERT_EQ(cryptcli_options_add_header(options.get(), "Authorization", "Bearer 7", nullptr), CRYPTCLI_OK);
  cryptcli_options_set_connect_timeout(options.get(), 1'000);
  cryptcli_options_set_timeout(options.get(), 2'000);
  MakeClient();
  EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_SERVER_ERROR);
  ASSERT_FALSE(recorder.urls.empty());
  EXPECT_EQ(recorder.urls[0], "GET https://crypt.example/api/crypt/key/demo");
  EXPECT_THAT(recorder.headers, ::testing::Contains("Authorization: Bearer 7"));
  EXPECT_EQ(recorder.connectTimeout, 1'000U);
  EXPECT_EQ(recorder.timeout, 2'000U);
}

TEST_F(Transport, KeepsCredentialsFromKeyServers) {
  ASSERT_EQ(cryptcli_options_add_header(options.get(), "Authorization", "Bearer 7", nullptr), CRYPTCLI_OK);
  MakeClient();
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_perform(client.get(), "GetAuditLog",
                            R"({"keyserver":["https://crypt.example/apiary"],"group":"g"})", nullptr, report,
                            error);
  });
  EXPECT_NE(outcome.status, CRYPTCLI_OK);
  ASSERT_FALSE(recorder.urls.empty());
  EXPECT_THAT(recorder.urls[0], ::testing::HasSubstr("apiary"));
  EXPECT_EQ(recorder.headers.front().find("Bearer"), std::string::npos);
}

TEST_F(Transport, KeepsCredentialsFromPathsThatLeadOutOfTheService) {
  ASSERT_EQ(cryptcli_options_add_header(options.get(), "Authorization", "Bearer 7", nullptr), CRYPTCLI_OK);
  MakeClient();
  for (const char* path : {"..", "%2e%2e", ".%2E"}) {
    recorder.urls.clear();
    const std::string arguments =
        std::string(R"({"keyserver":["https://crypt.example/api/)") + path + R"(/x"],"group":"g"})";
    (void)Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_perform(client.get(), "GetAuditLog", arguments.c_str(), nullptr, report, error);
    });
    ASSERT_FALSE(recorder.urls.empty());
    EXPECT_THAT(recorder.urls[0], ::testing::HasSubstr(path));
    EXPECT_THAT(recorder.withCredentials, ::testing::Not(::testing::Contains(::testing::HasSubstr("/x/"))));
  }
}

TEST_F(Transport, GetsEachHeaderOnceWhateverItsCase) {
  for (const auto& [name, value] :
       {std::pair("Authorization", "first"), std::pair("authorization", "second")}) {
    ASSERT_EQ(cryptcli_options_add_header(options.get(), name, value, nullptr), CRYPTCLI_OK);
  }
  MakeClient();
  EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_SERVER_ERROR);
  EXPECT_THAT(recorder.headers, ::testing::Contains("Authorization: second"));
  EXPECT_THAT(recorder.headers, ::testing::Not(::testing::Contains(::testing::HasSubstr("first"))));
}

TEST_F(Transport, NeedsAServiceThatIsAUrl) {
  ASSERT_EQ(cryptcli_options_set_service(options.get(), "ftp://crypt.example/api", nullptr), CRYPTCLI_OK);
  cryptcli_client* made = nullptr;
  EXPECT_EQ(cryptcli_client_new(options.get(), &made, nullptr), CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(made, nullptr);
}

TEST_F(Transport, AFailureWithoutAReasonHasOne) {
  MakeClient();
  recorder.result = -1;
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_EQ(outcome.Message(), "Could not get room key: The application's transport failed");
}

TEST_F(Transport, SaysWhyThereWasNoResponse) {
  MakeClient();
  recorder.result = -1;
  for (const cryptcli_status code :
       std::vector<cryptcli_status>{CRYPTCLI_TIMEOUT, CRYPTCLI_UNREACHABLE, CRYPTCLI_CANCELLED}) {
    recorder.code = code;
    const Outcome outcome = Encrypt("plain", "secret");
    EXPECT_EQ(outcome.status, code);
    EXPECT_EQ(recorder.codeResult, 0);
    EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), code != CRYPTCLI_CANCELLED ? 1 : 0);
  }
}

TEST_F(Transport, SaysNothingElseAboutAFailure) {
  MakeClient();
  for (const cryptcli_status code : std::vector<cryptcli_status>{CRYPTCLI_DAMAGED, CRYPTCLI_IO, 99, -1}) {
    recorder.code = code;
    EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_UNREACHABLE);
    EXPECT_EQ(recorder.codeResult, -1);
  }
}

TEST_F(Transport, AnInvalidStatusIsNoResponse) {
  MakeClient();
  recorder.badStatus = true;
  EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_UNREACHABLE);
}

}  // namespace
}  // namespace CInterface
