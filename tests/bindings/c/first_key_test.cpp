#include <cstdint>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "tests/bindings/c/environment_fixture.h"
#include "tests/bindings/c/scripted_fixture.h"

namespace CInterface {
namespace {

constexpr int kClients = 8;

// Clients that protect the first file of a room at the same time, under both rules that a crypt service can
// have for sequence numbers: all of them use the same key.
class FirstKey : public EnvironmentTest, public ::testing::WithParamInterface<bool> {
 protected:
  cryptcli_status ProtectAs(const std::string& target) {
    return cryptcli_encrypt(client.get(), "fresh", cryptcli_path(Path("plain").c_str()),
                            cryptcli_path(Path(target).c_str()), nullptr, nullptr, nullptr);
  }
  void ExpectOneKey() {
    std::size_t uploads = 0;
    for (const CryptStand::Event& event : stand.GetEvents()) {
      if (event.operation == "newkey" && event.status == 200) ++uploads;
    }
    EXPECT_EQ(uploads, 1U);
    for (int i = 0; i < kClients; ++i) {
      const Outcome outcome = Decrypt("secret" + std::to_string(i), "opened", "fresh");
      EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
    }
  }
  void MakeRoom() {
    ASSERT_TRUE(stand.AddRoom("fresh"));
    stand.GetSettings().SetSequencePerRequest(GetParam());
    scratch.Make("plain", "content");
  }
};

TEST_P(FirstKey, EightThreadsAllSucceed) {
  MakeRoom();
  std::vector<std::thread> threads;
  for (int i = 0; i < kClients; ++i) {
    threads.emplace_back([&, i] { EXPECT_EQ(ProtectAs("secret" + std::to_string(i)), CRYPTCLI_OK); });
  }
  for (std::thread& thread : threads) thread.join();
  ExpectOneKey();
}

TEST_P(FirstKey, EightProcessesAllSucceed) {
  MakeRoom();
  std::vector<pid_t> children;
  for (int i = 0; i < kClients; ++i) {
    std::string program = CRYPTCLI_PROTECT_PROGRAM;
    std::string service = stand.GetServiceUrl();
    std::string room = "fresh";
    std::string source = Path("plain");
    std::string target = Path("secret" + std::to_string(i));
    char* const arguments[] = {program.data(), service.data(), room.data(),
                               source.data(),  target.data(),  nullptr};
    pid_t child = -1;
    ASSERT_EQ(::posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
  ExpectOneKey();
}

INSTANTIATE_TEST_SUITE_P(Rules, FirstKey, ::testing::Bool(), [](const ::testing::TestParamInfo<bool>& rule) {
  return rule.param ? "NumberPerRequest" : "NumberPerUpload";
});

// The other client's key came before the list of members, so the service would accept the number of that
// list.
TEST_F(ScriptedTest, AFirstKeyOfAnotherClientIsSeenBeforeTheUpload) {
  const auto none =
      TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(), "certificate", R"("")");
  services.Once("key", TestSupport::Json(none));
  scratch.Make("plain", "content");
  const Outcome outcome = Encrypt("plain", "secret", kScriptedRoom);
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_EQ(services.Count("certlist"), 1U);
  EXPECT_EQ(services.Count("newkey"), 0U);
}

/// A transport in which the second request for the room's key, the one before the upload, is cancelled: by
/// the transport's own status, or by the caller.
class CancelledFirstKey : public ScriptedTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(cryptcli_options_set_service(options.get(), TestSupport::kServiceUrl, nullptr), CRYPTCLI_OK);
    cryptcli_options_set_transport(options.get(), &CancelledFirstKey::SendOrCancel, this);
    MakeClient();
    scratch.Make("plain", "content");
    services.Set("key", TestSupport::Json(TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(),
                                                            "certificate", R"("")")));
  }
  void ExpectNoUpload() {
    const Outcome outcome = Encrypt("plain", "secret", kScriptedRoom);
    EXPECT_EQ(outcome.status, CRYPTCLI_CANCELLED) << outcome.Message();
    EXPECT_EQ(questions_, 2);
    EXPECT_EQ(services.Count("newkey"), 0U);
    EXPECT_FALSE(scratch.Exists("secret"));
  }

  bool byTransport_ = false;

 private:
  static std::int32_t SendOrCancel(void* context, const cryptcli_request* request,
                                   cryptcli_response* response) {
    auto& self = *static_cast<CancelledFirstKey*>(context);
    const bool isForKey = std::string_view(cryptcli_request_url(request)).find("/key/") != std::string::npos;
    if (isForKey && ++self.questions_ == 2) {
      if (self.byTransport_) return cryptcli_response_set_error_code(response, CRYPTCLI_CANCELLED) - 1;
      cryptcli_call_cancel(self.call.get());
    }
    return Fill(self.Ask(request), response);
  }

  int questions_ = 0;
};

TEST_F(CancelledFirstKey, ByTheCallerIsNotUploaded) {
  ExpectNoUpload();
}

TEST_F(CancelledFirstKey, ByTheTransportIsNotUploaded) {
  byTransport_ = true;
  ExpectNoUpload();
}

// The service shows a key that cannot be used. It is not another client's new key, so the client uploads its
// own.
class UnusableKey : public EnvironmentTest {};

TEST_F(UnusableKey, IsReplacedOnce) {
  using CryptStand::RoomCertificate;
  Protect("content");
  for (const auto type : {RoomCertificate::Expired, RoomCertificate::Foreign, RoomCertificate::WrongIssuer}) {
    ASSERT_TRUE(stand.SetRoomCertificate(kRoom, type));
    stand.ClearEvents();
    const Outcome outcome = Encrypt("plain", "secret", kRoom);
    EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
    std::size_t uploads = 0;
    for (const CryptStand::Event& event : stand.GetEvents()) {
      if (event.operation == "newkey") ++uploads;
    }
    EXPECT_EQ(uploads, 1U);
  }
}

// 412 means the same as 409: the key was made for an earlier state of the room.
TEST_F(ScriptedTest, AFirstKeyThatIsRefusedWithEitherStatusIsTriedAgain) {
  const auto none = TestSupport::Json(
      TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(), "certificate", R"("")"));
  scratch.Make("plain", "content");
  std::size_t uploads = 0;
  for (const std::uint32_t status : {409U, 412U}) {
    // The first attempt asks before the list of members and before the upload, the second one finds the key.
    for (int i = 0; i < 2; ++i) services.Once("key", none);
    services.Once("newkey", TestSupport::Status(status));
    const Outcome outcome = Encrypt("plain", "secret", kScriptedRoom);
    EXPECT_EQ(outcome.status, CRYPTCLI_OK) << status << ": " << outcome.Message();
    EXPECT_EQ(services.Count("newkey"), ++uploads) << status;
  }
}

// To any other request neither status means that another client was faster.
TEST_F(ScriptedTest, NoOtherRequestIsTriedAgain) {
  const auto none = TestSupport::Json(
      TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(), "certificate", R"("")"));
  scratch.Make("plain", "content");
  scratch.Make("secret", "as before");
  for (const char* step : {"key", "certlist", "generateWrappedKeyRequest", "signRequest"}) {
    for (const std::uint32_t status : {409U, 412U}) {
      const std::size_t before = services.Count(step);
      if (std::string_view(step) == "certlist" || std::string_view(step) == "generateWrappedKeyRequest")
        services.Once("key", none);
      services.Once(step, TestSupport::Status(status));
      const Outcome outcome = Encrypt("plain", "secret", kScriptedRoom);
      EXPECT_EQ(outcome.status, CRYPTCLI_SERVER_ERROR) << step << " " << status << ": " << outcome.Message();
      EXPECT_EQ(cryptcli_error_is_retryable(outcome.error.get()), 0) << step << " " << status;
      EXPECT_EQ(services.Count(step), before + 1) << step << " " << status;
    }
  }
  EXPECT_EQ(services.Count("newkey"), 0U);
  EXPECT_EQ(scratch.Read("secret"), "as before");
}

}  // namespace
}  // namespace CInterface
