#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#include "tests/bindings/c/environment_fixture.h"
#include "tests/bindings/c/scripted_fixture.h"

namespace CInterface {
namespace {

using CryptStand::FaultType;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr int kServiceFault = CryptStand::kCryptService;

using Errors = EnvironmentTest;

TEST_F(Errors, AMissingSourceIsAnInputError) {
  const Outcome outcome = Decrypt("missing", "opened");
  EXPECT_EQ(outcome.status, CRYPTCLI_IO);
  EXPECT_THAT(outcome.Message(), HasSubstr("No such file or directory"));
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0);
}

TEST_F(Errors, AFileThatIsNoMessageIsNotProtected) {
  scratch.Make("secret", "no message");
  EXPECT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_NOT_PROTECTED);
}

TEST_F(Errors, ATargetWithoutDirectoryIsAnOutputError) {
  scratch.Make("plain", "x");
  EXPECT_EQ(Encrypt("plain", "nowhere/secret").status, CRYPTCLI_IO);
}

TEST_F(Errors, AFullTargetIsNoSpace) {
  Protect("x");
  const int full = ::open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                            cryptcli_descriptor(full), nullptr, report, error);
  });
  ::close(full);
  EXPECT_EQ(outcome.status, CRYPTCLI_NO_SPACE) << outcome.Message();
}

TEST_F(Errors, AFullTemporaryDirectoryIsNotBlamedOnTheSource) {
  const std::string directory = Path("none");
  ASSERT_EQ(cryptcli_options_set_temporary_directory(options.get(), directory.c_str(), nullptr), CRYPTCLI_OK);
  MakeClient();
  const auto encrypt = [&] {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const std::string bytes(20'000, 'x');
    EXPECT_EQ(::write(ends[1], bytes.data(), bytes.size()), 20'000);
    ::close(ends[1]);
    const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_encrypt(client.get(), kRoom, cryptcli_descriptor(ends[0]),
                              cryptcli_path(Path("secret").c_str()), call.get(), report, error);
    });
    ::close(ends[0]);
    return outcome.Message();
  };
  EXPECT_EQ(encrypt(), "Could not create a temporary file: No such file or directory");
  std::filesystem::create_directory(directory);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{8'000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string message = encrypt();
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(message, "Could not create a temporary file: File too large");
}

TEST_F(Errors, NeitherAPathNorADescriptorIsAnInvalidArgument) {
  Protect("x");
  const cryptcli_file none = cryptcli_path(nullptr);
  const std::string name = Path("secret");
  const cryptcli_file file = cryptcli_path(name.c_str());
  const auto expectInvalid = [](auto work) {
    const Outcome outcome = Call(work);
    EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT) << outcome.Message();
    EXPECT_EQ(outcome.Message(), "No path or descriptor");
  };
  for (const auto& [from, to] : {std::pair(none, file), std::pair(file, none)}) {
    expectInvalid([&, source = from, target = to](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_encrypt(client.get(), kRoom, source, target, nullptr, report, error);
    });
    expectInvalid([&, source = from, target = to](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_decrypt(client.get(), kRoom, source, target, nullptr, report, error);
    });
  }
  expectInvalid([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_verify(client.get(), kRoom, none, nullptr, report, error);
  });
  expectInvalid([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_inspect(none, report, error);
  });
}

// The pipe stays empty: only the cancellation ends the wait.
TEST_F(Errors, ACancelledWaitForASourceSaysThatItWasCancelled) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  cryptcli_call_cancel(call.get());
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_encrypt(client.get(), kRoom, cryptcli_descriptor(ends[0]),
                            cryptcli_path(Path("secret").c_str()), call.get(), report, error);
  });
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ(outcome.status, CRYPTCLI_CANCELLED);
  EXPECT_EQ(outcome.Message(), "The operation was cancelled");
}

TEST_F(Errors, AnUnknownRoomIsNamedAsSuch) {
  scratch.Make("plain", "x");
  const Outcome outcome = Encrypt("plain", "secret", "no such room");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNKNOWN_ROOM) << outcome.Message();
  EXPECT_EQ(cryptcli_error_http_status(outcome.error.get()), 200U);
  EXPECT_EQ(cryptcli_error_url(outcome.error.get()), stand.GetServiceUrl() + "crypt/key/no%20such%20room");
}

TEST_F(Errors, AServiceThatIsDownIsUnreachable) {
  scratch.Make("plain", "x");
  ASSERT_TRUE(stand.SetFault(kServiceFault, {.type = FaultType::Down}));
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE) << outcome.Message();
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 1);
}

TEST_F(Errors, ASlowServiceIsATimeout) {
  cryptcli_options_set_timeout(options.get(), 300);
  MakeClient();
  scratch.Make("plain", "x");
  ASSERT_TRUE(stand.SetFault(kServiceFault, {.type = FaultType::Slow, .number = 5'000}));
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_TIMEOUT) << outcome.Message();
}

TEST_F(Errors, ARefusalOfTheCallerIsUnauthorised) {
  scratch.Make("plain", "x");
  for (const int status : {401, 403}) {
    ASSERT_TRUE(stand.SetFault(kServiceFault, {.type = FaultType::Status, .number = status}));
    EXPECT_EQ(Encrypt("plain", "secret").status, CRYPTCLI_UNAUTHORISED) << status;
  }
}

TEST_F(Errors, AnOverloadedServiceIsWorthAnotherAttempt) {
  scratch.Make("plain", "x");
  ASSERT_TRUE(stand.SetFault(kServiceFault, {.type = FaultType::Status, .number = 503}));
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_SERVER_ERROR) << outcome.Message();
  EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 1);
}

TEST_F(Errors, EachKeyServerThatWasAskedIsListed) {
  Protect("x");
  SetFaults({.type = FaultType::ErrorCode, .number = 607});
  const Outcome outcome = Decrypt("secret", "opened");
  EXPECT_EQ(outcome.status, CRYPTCLI_SERVER_ERROR) << outcome.Message();
  const cryptcli_error* error = outcome.error.get();
  ASSERT_EQ(cryptcli_error_attempt_count(error), 3U) << cryptcli_error_json(error);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_THAT(cryptcli_error_attempt_server(error, i), StartsWith("http://127.0.0.1:"));
    EXPECT_STREQ(cryptcli_error_attempt_message(error, i), "607 Key Not Found");
    EXPECT_EQ(cryptcli_error_attempt_code(error, i), CRYPTCLI_SERVER_ERROR);
  }
  EXPECT_EQ(cryptcli_error_attempt_server(error, 3), nullptr);
  EXPECT_THAT(cryptcli_error_json(error), HasSubstr(R"("attempts":[{"server":)"));
}

TEST_F(Errors, DeadKeyServersAreListedAsUnreachable) {
  Protect("x");
  SetFaults({.type = FaultType::Down});
  const Outcome outcome = Decrypt("secret", "opened");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE) << outcome.Message();
  ASSERT_EQ(cryptcli_error_attempt_count(outcome.error.get()), 3U)
      << cryptcli_error_json(outcome.error.get());
  EXPECT_EQ(cryptcli_error_attempt_code(outcome.error.get(), 2), CRYPTCLI_UNREACHABLE);
}

// An encryption goes through the key servers more than once.
TEST_F(Errors, EachKeyServerIsListedOnce) {
  Protect("x");
  SetFaults({.type = FaultType::Down});
  const Outcome outcome = Encrypt("plain", "other");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE) << outcome.Message();
  EXPECT_EQ(cryptcli_error_attempt_count(outcome.error.get()), 3U)
      << cryptcli_error_json(outcome.error.get());
}

TEST_F(Errors, ABadSignatureOfAKeyServerFailsEncrypt) {
  scratch.Make("plain", "x");
  scratch.Make("secret", "as before");
  SetFaults({.type = FaultType::BadSignature});
  const Outcome outcome = Encrypt("plain", "secret");
  EXPECT_EQ(outcome.status, CRYPTCLI_SERVER_ERROR) << outcome.Message();
  EXPECT_EQ(scratch.Read("secret"), "as before");
}

using ScriptedErrors = ScriptedTest;

TEST_F(ScriptedErrors, ARefusedKeyHasItsOwnCode) {
  services.Set("key", TestSupport::Json(R"({"errorid":"QOB.1.1001.1.422645","errortext":"Not now"})"));
  forged.Envelope("content");
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_KEY_REFUSED);
  EXPECT_EQ(outcome.Message(), "Not now");
}

// The message is that of the class, which does not look at what else the response lacks.
TEST_F(ScriptedErrors, AResponseWithoutAKeyOrItsRoomIsTheServersFault) {
  forged.Envelope("content");
  for (const char* body : {"[]", "{}", R"({"room":"","group":"","certificate":"","data":""})"}) {
    services.Set("key", TestSupport::Json(body));
    const Outcome outcome = Open();
    EXPECT_EQ(outcome.status, CRYPTCLI_SERVER_ERROR) << body;
    EXPECT_EQ(outcome.Message(), "Could not find matching room key") << body;
    EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0) << body;
  }
  services.Set("key", TestSupport::Json(R"({"room":"r","group":"g"})"));
  EXPECT_EQ(Open().status, CRYPTCLI_UNKNOWN_ROOM);
}

TEST_F(ScriptedErrors, ATransportThatFailsIsUnreachable) {
  forged.Envelope("content");
  services.Set("key", TestSupport::NoExchange("the cable is cut"));
  const Outcome outcome = Open();
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE);
  EXPECT_EQ(outcome.Message(), "Could not get room key: the cable is cut");
}

TEST_F(ScriptedErrors, ANameThatIsNotUtf8IsAnInvalidRoom) {
  forged.Envelope("content");
  EXPECT_EQ(Decrypt("secret", "opened", "\xFF").status, CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(Decrypt("secret", "opened", "").status, CRYPTCLI_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace CInterface
