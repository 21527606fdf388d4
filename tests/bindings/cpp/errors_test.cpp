#include <stop_token>
#include <string>

#include "tests/bindings/cpp/cpp_fixture.h"
#include "tests/bindings/key_servers.h"

namespace CppInterface {
namespace {

using cryptcli::Status;
using CryptStand::FaultType;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using TestSupport::ListKeyServers;

using Errors = EnvironmentTest;

TEST_F(Errors, AMissingSourceIsAnInputError) {
  const auto opened = client->Decrypt(kRoom, Path("missing"), Path("opened"));
  ASSERT_FALSE(opened.has_value());
  EXPECT_EQ(opened.error().code, Status::Io);
  EXPECT_THAT(opened.error().message, HasSubstr("No such file or directory"));
  EXPECT_FALSE(opened.error().retryable);
  EXPECT_EQ(opened.error().httpStatus, 0U);
  EXPECT_EQ(opened.error().url, "");
}

TEST_F(Errors, AnUnknownRoomNamesTheExchange) {
  scratch.Make("plain", "x");
  const auto made = client->Encrypt("no such room", Path("plain"), Path("secret"));
  ASSERT_FALSE(made.has_value());
  EXPECT_EQ(made.error().code, Status::UnknownRoom) << made.error().message;
  EXPECT_EQ(made.error().httpStatus, 200U);
  EXPECT_EQ(made.error().url, stand.GetServiceUrl() + "crypt/key/no%20such%20room");
}

TEST_F(Errors, EachKeyServerThatWasAskedIsListed) {
  Protect("x");
  for (int server = 0; server < 3; ++server)
    ASSERT_TRUE(stand.SetFault(server, {.type = FaultType::ErrorCode, .number = 607}));
  const auto opened = client->Decrypt(kRoom, Path("secret"), Path("opened"));
  ASSERT_FALSE(opened.has_value());
  const cryptcli::Error& error = opened.error();
  EXPECT_EQ(error.code, Status::ServerError) << error.message;
  ASSERT_EQ(error.attempts.size(), 3U) << error.json;
  for (const cryptcli::Attempt& attempt : error.attempts) {
    EXPECT_THAT(attempt.server, StartsWith("http://127.0.0.1:"));
    EXPECT_EQ(attempt.message, "607 Key Not Found");
    EXPECT_EQ(attempt.code, Status::ServerError);
  }
  EXPECT_THAT(error.json, HasSubstr(R"("attempts":[{"server":)"));
}

TEST_F(Errors, AnOverloadedServiceIsWorthAnotherAttempt) {
  scratch.Make("plain", "x");
  ASSERT_TRUE(stand.SetFault(CryptStand::kCryptService, {.type = FaultType::Status, .number = 503}));
  const auto made = client->Encrypt(kRoom, Path("plain"), Path("secret"));
  ASSERT_FALSE(made.has_value());
  EXPECT_EQ(made.error().code, Status::ServerError);
  EXPECT_TRUE(made.error().retryable);
  EXPECT_EQ(made.error().httpStatus, 503U);
}

TEST_F(Errors, AreValuesThatOutliveTheirClient) {
  auto opened = client->Decrypt(kRoom, Path("missing"), Path("opened"));
  client.reset();
  ASSERT_FALSE(opened.has_value());
  const cryptcli::Error copy = std::move(opened).error();
  EXPECT_THAT(copy.json, HasSubstr(R"("code":"io")"));
}

// ---- Named operations, and the look at a room and at servers

using NamedOperations = EnvironmentTest;

TEST_F(NamedOperations, GiveTheirResultAsJson) {
  const std::string hash = std::string(86, 'A') + "==";
  const auto json = client->Perform("SignByKey", R"({"keyserver":)" + ListKeyServers(stand) +
                                                     R"(,"object":"demo","id":"integrity",)"
                                                     R"("algorithm":"RSASSA-PKCS1-v1_5-SHA-512","hash":")" +
                                                     hash + "\"}");
  ASSERT_TRUE(json.has_value()) << json.error().message;
  EXPECT_THAT(*json, StartsWith(R"({"signature":")"));
}

TEST_F(NamedOperations, RefuseWrongArgumentsBeforeAnythingIsSent) {
  stand.ClearEvents();
  const auto json = client->Perform("DeleteKey", R"({"groop":"g"})");
  ASSERT_FALSE(json.has_value());
  EXPECT_EQ(json.error().code, Status::InvalidArgument);
  EXPECT_EQ(json.error().message, "Unknown argument \"groop\" of DeleteKey");
  EXPECT_TRUE(stand.GetEvents().empty());
}

using Servers = EnvironmentTest;

TEST_F(Servers, RoomDescribesTheRoomAndItsKeyServers) {
  Protect("x");
  const auto json = client->Room(kRoom);
  ASSERT_TRUE(json.has_value()) << json.error().message;
  EXPECT_THAT(*json, HasSubstr(R"("keyType":"wrapped")"));
  EXPECT_THAT(*json, HasSubstr(R"("room":"demo")"));
}

TEST_F(Servers, ARoomThatIsUnknownIsAFailure) {
  const auto json = client->Room("no such room");
  ASSERT_FALSE(json.has_value());
  EXPECT_EQ(json.error().code, Status::UnknownRoom) << json.error().message;
}

TEST_F(Servers, CheckAsksTheServiceAloneWithoutARoom) {
  const auto json = client->Check();
  ASSERT_TRUE(json.has_value()) << json.error().message;
  EXPECT_THAT(*json, HasSubstr(R"("ok":true)"));
  EXPECT_EQ(json->find(R"("key_server")"), std::string::npos);
}

TEST_F(Servers, AKeyServerThatIsDownIsAFinding) {
  Protect("x");
  ASSERT_TRUE(stand.SetFault(0, {.type = FaultType::Down}));
  const auto json = client->Check(kRoom);
  ASSERT_TRUE(json.has_value()) << json.error().message;
  EXPECT_THAT(*json, StartsWith(R"({"ok":false)"));
  EXPECT_THAT(*json, HasSubstr(R"("code":"unreachable")"));
}

TEST_F(Servers, ACheckCanBeStopped) {
  std::stop_source stop;
  stop.request_stop();
  const auto json = client->Check(kRoom, {.stop = stop.get_token()});
  ASSERT_FALSE(json.has_value());
  EXPECT_EQ(json.error().code, Status::Cancelled);
}

}  // namespace
}  // namespace CppInterface
