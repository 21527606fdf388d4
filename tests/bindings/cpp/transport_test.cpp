#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/bindings/cpp/cpp_fixture.h"

namespace CppInterface {
namespace {

using cryptcli::Failure;
using cryptcli::HttpRequest;
using cryptcli::HttpResponse;
using cryptcli::Status;
using ::testing::HasSubstr;

class OwnTransport : public ClientTest {
 protected:
  void SetUp() override {
    options.service = "https://crypt.example/api";
    scratch.Make("plain", "x");
  }
  /// Makes a client with the transport and returns the error of an operation.
  cryptcli::Error FailWith(cryptcli::Transport transport) {
    options.transport = std::move(transport);
    MakeClient();
    const auto made = client->Encrypt(kRoom, Path("plain"), Path("secret"));
    EXPECT_FALSE(made.has_value());
    return made.has_value() ? cryptcli::Error() : made.error();
  }
};

TEST_F(OwnTransport, GetsTheRequestWithCredentialsAndTimeouts) {
  std::string line;
  std::string credentials;
  options.headers = {{"Authorization", "Bearer 7"}};
  options.connectTimeout = std::chrono::seconds(1);
  options.timeout = std::chrono::seconds(2);
  const auto error = FailWith([&](const HttpRequest& request) {
    line = std::string(request.method) + " " + std::string(request.url);
    for (const cryptcli::Header& header : request.headers) {
      if (header.name == "Authorization") credentials = header.value;
    }
    EXPECT_EQ(request.connectTimeout, std::chrono::seconds(1));
    EXPECT_EQ(request.timeout, std::chrono::seconds(2));
    return HttpResponse{.status = 404, .headers = {{"Content-Type", "text/plain"}}, .body = "no"};
  });
  EXPECT_EQ(line, "GET https://crypt.example/api/crypt/key/demo");
  EXPECT_EQ(credentials, "Bearer 7");
  EXPECT_EQ(error.httpStatus, 404U);
  EXPECT_EQ(error.url, "https://crypt.example/api/crypt/key/demo");
}

TEST_F(OwnTransport, AFailureOfItIsUnreachableWithItsReason) {
  const auto error = FailWith([](const HttpRequest&) -> cryptcli::Result<HttpResponse> {
    return Failure(Status::Internal, "the cable is cut");
  });
  EXPECT_EQ(error.code, Status::Unreachable);
  EXPECT_TRUE(error.retryable);
  EXPECT_EQ(error.message, "Could not get room key: the cable is cut");
}

TEST_F(OwnTransport, ATimeoutOfItIsATimeout) {
  const auto error = FailWith([](const HttpRequest&) -> cryptcli::Result<HttpResponse> {
    return Failure(Status::Timeout, "too slow");
  });
  EXPECT_EQ(error.code, Status::Timeout);
  EXPECT_TRUE(error.retryable);
  EXPECT_EQ(error.message, "Could not get room key: too slow");
}

TEST_F(OwnTransport, ACancellationOfItCancels) {
  const auto error = FailWith([](const HttpRequest&) -> cryptcli::Result<HttpResponse> {
    return Failure(Status::Cancelled, "the program ends");
  });
  EXPECT_EQ(error.code, Status::Cancelled);
}

TEST_F(OwnTransport, AnExceptionOfItIsUnreachableWithItsReason) {
  const auto error = FailWith([](const HttpRequest&) -> cryptcli::Result<HttpResponse> {
    throw std::runtime_error("the cable is cut");
  });
  EXPECT_EQ(error.code, Status::Unreachable);
  EXPECT_EQ(error.message, "Could not get room key: The transport threw an exception: the cable is cut");
}

TEST_F(OwnTransport, AnExceptionOfAnyTypeIsUnreachable) {
  const auto error = FailWith([](const HttpRequest&) -> cryptcli::Result<HttpResponse> { throw 7; });
  EXPECT_EQ(error.code, Status::Unreachable);
  EXPECT_EQ(error.message, "Could not get room key: The transport threw an exception");
}

TEST_F(OwnTransport, AnInvalidResponseIsNone) {
  const std::string withNul("a\0b", 3);
  const HttpResponse bad[] = {{.status = 0},
                              {.status = 99},
                              {.status = 1000},
                              {.status = 200, .headers = {{"Name", withNul}}},
                              {.status = 200, .headers = {{withNul, "value"}}}};
  for (const HttpResponse& response : bad) {
    const auto error = FailWith([&](const HttpRequest&) { return response; });
    EXPECT_EQ(error.code, Status::Unreachable) << response.status;
    EXPECT_THAT(error.message, HasSubstr("The transport's response is invalid"));
  }
}

TEST_F(OwnTransport, LivesAsLongAsItsClient) {
  auto alive = std::make_shared<int>(0);
  options.transport = [alive](const HttpRequest&) { return HttpResponse{.status = 404}; };
  MakeClient();
  options.transport = nullptr;
  EXPECT_EQ(alive.use_count(), 2);
  client.reset();
  EXPECT_EQ(alive.use_count(), 1);
}

}  // namespace
}  // namespace CppInterface
