// Recordings that the program made, replayed without it.
#include <cryptcli/cryptcli.hpp>
#include <cryptstand/environment.h>
#include <cryptstand/replay.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace StandFixture {
namespace {

using cryptstand::Replay;
using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* kStart = R"({"recording":"cryptstand","version":1,"service":"http://127.0.0.1:1/",)"
                               R"("keyservers":["http://127.0.0.1:2","http://127.0.0.1:3"]})"
                               "\n";

// A line of a recording. Bodies are JSON.
std::string Line(int number, const std::string& server, const std::string& method, const std::string& target,
                 const std::string& request, const std::string& response) {
  const auto quoted = [](std::string text) {
    for (std::size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2) text.insert(at, "\\");
    return '"' + text + '"';
  };
  return R"({"number":)" + std::to_string(number) + R"(,"server":")" + server + R"(","method":")" + method +
         R"(","target":")" + target + R"(","request":{"headers":[],"body":)" + quoted(request) +
         R"(},"response":{"status":200,"headers":[["Date","today"]],"body":)" + quoted(response) +
         R"(,"isWhole":true}})"
         "\n";
}

class ReplayTest : public testing::Test {
 protected:
  ReplayTest() {
    std::string folder = testing::TempDir() + "replay-test-XXXXXX";
    if (mkdtemp(folder.data()) != nullptr) folder_ = folder;
  }
  ReplayTest(const ReplayTest&) = delete;
  ReplayTest& operator=(const ReplayTest&) = delete;
  ~ReplayTest() override { std::filesystem::remove_all(folder_); }

  std::string Path(const std::string& name) const { return folder_ + "/" + name; }
  std::string Write(const std::string& text) const {
    std::ofstream(Path("recording")) << text;
    return Path("recording");
  }
  cryptcli::Result<Replay> Load(const std::string& text,
                                const cryptstand::ReplayOptions& options = {}) const {
    return Replay::Load(Write(text), options);
  }
  /// The body of the response, or the reason why there is none.
  static std::string Send(const Replay& replay, std::string_view method, std::string_view url,
                          std::string_view body = "") {
    const auto response = replay(cryptcli::HttpRequest{.method = method, .url = url, .body = body});
    return response.has_value() ? response->body : response.error().message;
  }

 private:
  std::string folder_;
};

TEST_F(ReplayTest, RespondsAsRecorded) {
  const auto replay = Load(kStart + Line(1, "crypt", "GET", "/crypt/key/demo", "", R"({"room":"demo"})"));
  ASSERT_TRUE(replay.has_value()) << replay.error().message;
  EXPECT_EQ(replay->GetService(), "http://127.0.0.1:1/");
  EXPECT_THAT(replay->GetKeyServers(), testing::ElementsAre("http://127.0.0.1:2", "http://127.0.0.1:3"));
  EXPECT_EQ(replay->CountUnused(), 1U);
  const auto response = (*replay)({.method = "GET", .url = "http://127.0.0.1:1/crypt/key/demo"});
  ASSERT_TRUE(response.has_value()) << response.error().message;
  EXPECT_EQ(response->status, 200U);
  EXPECT_EQ(response->body, R"({"room":"demo"})");
  ASSERT_EQ(response->headers.size(), 1U);
  EXPECT_EQ(response->headers[0].name + ":" + response->headers[0].value, "Date:today");
  EXPECT_EQ(replay->CountUnused(), 0U);
}

TEST_F(ReplayTest, RespondsToEqualRequestsInTheirOrder) {
  const auto replay = Load(kStart + Line(1, "0", "POST", "/rest/json", "{}", "first") +
                           Line(2, "1", "POST", "/rest/json", "{}", "second"));
  EXPECT_EQ(Send(*replay, "POST", "http://127.0.0.1:3/rest/json", "{}"), "first");
  EXPECT_EQ(Send(*replay, "POST", "http://127.0.0.1:3/rest/json", "{}"), "second");
  EXPECT_THAT(Send(*replay, "POST", "http://127.0.0.1:3/rest/json", "{}"),
              EndsWith("POST /rest/json of a key server, and no other exchange"));
}

TEST_F(ReplayTest, PrefersARequestWithTheSameBody) {
  const auto replay = Load(kStart + Line(1, "crypt", "POST", "/crypt/key/demo", R"({"id":1})", "first") +
                           Line(2, "crypt", "POST", "/crypt/key/demo", R"({"id":2})", "second"));
  EXPECT_EQ(Send(*replay, "POST", "http://127.0.0.1:1/crypt/key/demo", R"({"id":2})"), "second");
  EXPECT_EQ(Send(*replay, "POST", "http://127.0.0.1:1/crypt/key/demo", R"({"id":3})"), "first");
}

// A client names the key server that it is at, which it has chosen at random.
TEST_F(ReplayTest, ComparesBodiesWithoutTheKeyServer) {
  const auto request = [](const std::string& server) {
    return R"({"keyserver":")" + server + R"(","operation":"signRequest"})";
  };
  const char* const url = "http://127.0.0.1:1/crypt/authztoken/demo";
  const auto replay = Load(
      kStart + Line(1, "crypt", "POST", "/crypt/authztoken/demo", request("http://127.0.0.1:3"), "first") +
      Line(2, "crypt", "POST", "/crypt/authztoken/demo", request("http://127.0.0.1:2"), "second") +
      Line(3, "crypt", "POST", "/crypt/authztoken/demo", request(""), "third"));
  EXPECT_EQ(Send(*replay, "POST", url, request("http://127.0.0.1:2")), "first");
  EXPECT_EQ(Send(*replay, "POST", url, request("")), "second");
  EXPECT_EQ(Send(*replay, "POST", url, request("http://127.0.0.1:3")), "third");
}

TEST_F(ReplayTest, RepeatsStatusAndListsAlone) {
  const auto replay = Load(kStart + Line(1, "0", "GET", "/status?17", "", "one") +
                           Line(2, "1", "GET", "/status?4", "", "two") +
                           Line(3, "crypt", "GET", "/crypt/key/demo", "", "key"));
  for (const char* body : {"one", "two", "two"})
    EXPECT_EQ(Send(*replay, "GET", "http://127.0.0.1:2/status?99"), body);
  EXPECT_EQ(Send(*replay, "GET", "http://127.0.0.1:1/crypt/key/demo"), "key");
  EXPECT_THAT(Send(*replay, "GET", "http://127.0.0.1:1/crypt/key/demo"), HasSubstr("no response left"));
}

TEST_F(ReplayTest, TellsCommandsApart) {
  const auto replay =
      Load(kStart + Line(1, "0", "POST", "/rest/json", R"({"payload":{"type":"signRequest"}})", "signed") +
           Line(2, "0", "POST", "/rest/json", R"({"payload":{"type":"decryptRequest"}})", "plain") +
           Line(3, "crypt", "POST", "/crypt/authztoken/demo", R"({"operation":"signRequest"})", "token"));
  EXPECT_EQ(Send(*replay, "POST", "http://127.0.0.1:2/rest/json", R"({"payload":{"type":"decryptRequest"}})"),
            "plain");
  EXPECT_EQ(
      Send(*replay, "POST", "http://127.0.0.1:1/crypt/authztoken/demo", R"({"operation":"getKeyRequest"})"),
      "The recording has no response left to POST /crypt/authztoken/demo (getKeyRequest) of the crypt "
      "service; the next exchange in it is number 1, POST /rest/json (signRequest) of a key server");
}

TEST_F(ReplayTest, NamesAServerThatWasNotRecorded) {
  const auto replay = Load(kStart);
  for (const char* url : {"http://127.0.0.1:4/status", "http://127.0.0.1:22/status"})
    EXPECT_THAT(Send(*replay, "GET", url), HasSubstr(std::string(url) + ", a server that it does not name"));
}

TEST_F(ReplayTest, FailsWhereAResponseWasCutOff) {
  std::string line = Line(1, "0", "GET", "/status", "", "half");
  line.replace(line.find("true"), 4, "false");
  EXPECT_EQ(Send(*Load(kStart + line), "GET", "http://127.0.0.1:2/status"),
            "The recorded response was cut off");
}

TEST_F(ReplayTest, FailsWhereThereWasNoResponse) {
  std::string line = Line(1, "0", "GET", "/status", "", "");
  line.replace(line.find("200"), 3, "0");
  EXPECT_EQ(Send(*Load(kStart + line), "GET", "http://127.0.0.1:2/status"),
            "The recorded connection ended without a response");
}

TEST_F(ReplayTest, HasBodiesThatAreBytes) {
  const std::string line = R"({"number":1,"server":"0","method":"GET","target":"/status","request":{},)"
                           R"("response":{"status":200,"bodyBase64":"AMMo"}})";
  EXPECT_EQ(Send(*Load(kStart + line + "\n"), "GET", "http://127.0.0.1:2/status"), std::string("\0\xC3(", 3));
}

TEST_F(ReplayTest, ReadsARecordingThatWasContinuedAfterACrash) {
  std::string later = kStart;
  later.replace(later.find(":1/"), 3, ":7/");
  const std::string whole = Line(1, "0", "GET", "/status", "", "alive");
  const auto replay = Load(kStart + whole + whole.substr(0, 40) + "\n" + later + whole + whole.substr(0, 9));
  ASSERT_TRUE(replay.has_value()) << replay.error().message;
  EXPECT_EQ(replay->CountUnused(), 2U);
  EXPECT_EQ(replay->GetService(), "http://127.0.0.1:1/");
}

TEST_F(ReplayTest, BeginsAfterANumber) {
  const std::string lines = kStart + Line(1, "0", "POST", "/rest/json", "{}", "first") +
                            Line(3, "0", "POST", "/rest/json", "{}", "second") +
                            Line(4, "0", "POST", "/rest/json", "{}", "third");
  for (const std::int64_t after : {1, 2}) {
    const auto replay = Load(lines, {.after = after});
    ASSERT_TRUE(replay.has_value()) << replay.error().message;
    EXPECT_EQ(replay->CountUnused(), 2U);
    EXPECT_EQ(Send(*replay, "POST", "http://127.0.0.1:2/rest/json", "{}"), "second");
  }
  EXPECT_EQ(Load(lines, {.after = 4})->CountUnused(), 0U);
}

TEST_F(ReplayTest, CountsTheNumberToBeginAfterInTheLastStart) {
  std::string later = kStart;
  later.replace(later.find(":1/"), 3, ":7/");
  const auto line = [](int number, const char* room) {
    return Line(number, "crypt", "GET", "/crypt/key/demo", "", room);
  };
  const auto replay =
      Load(kStart + line(1, "a") + line(2, "b") + line(3, "c") + later + line(1, "d") + line(2, "e"),
           {.after = 1});
  ASSERT_TRUE(replay.has_value()) << replay.error().message;
  EXPECT_EQ(replay->GetService(), "http://127.0.0.1:7/");
  EXPECT_EQ(replay->CountUnused(), 1U);
  EXPECT_EQ(Send(*replay, "GET", "http://127.0.0.1:7/crypt/key/demo"), "e");
  EXPECT_THAT(Send(*replay, "GET", "http://127.0.0.1:1/crypt/key/demo"),
              EndsWith("that it does not name, and no other exchange"));
}

TEST_F(ReplayTest, RefusesWhatIsNoRecording) {
  const std::string whole = Line(1, "0", "GET", "/status", "", "alive");
  const std::string later = R"({"recording":"cryptstand","version":2})";
  const std::pair<std::string, const char*> cases[] = {
      {"", "the file is empty"},
      {"a letter", "line 1 is not that of a recording"},
      {whole, "line 1 is not that of a recording"},
      {R"({"recording":"cryptstand","version":1})", "the recording names no crypt service"},
      {later + "\n", "version 2 of recordings is not known"},
      {kStart + ("{}\n" + whole), "line 2 is not that of a recording"},
      {kStart + std::string("{}\n"), "line 2 is not that of a recording"},
      {kStart + whole.substr(0, 40) + "\n" + whole, "line 2 is not that of a recording"}};
  for (const auto& [text, reason] : cases) {
    const auto replay = Load(text);
    ASSERT_FALSE(replay.has_value()) << text;
    EXPECT_EQ(replay.error().message, Path("recording") + ": " + reason) << text;
    EXPECT_EQ(replay.error().code, cryptcli::Status::Io);
  }
  EXPECT_EQ(Replay::Load("/nowhere/file").error().message, "/nowhere/file: No such file or directory");
}

// ---- What a client does

// Runs the program with a recording, and replays it after the program has ended.
class RecordedTest : public ReplayTest {
 protected:
  static constexpr const char* kContent = "the plain bytes of a file";

  void SetUp() override {
    const bool isReady = environment_.Start({.keyServers = 2, .arguments = {"--record", Path("recorded")}});
    ASSERT_TRUE(isReady) << environment_.GetError();
    auto made = MakeClient();
    ASSERT_TRUE(made.has_value()) << made.error().message;
    client_.emplace(*std::move(made));
    const auto secret = client_->Encrypt("demo", cryptcli::Source::FromMemory(kContent), Path("secret"));
    ASSERT_TRUE(secret.has_value()) << secret.error().message;
  }
  cryptcli::Result<cryptcli::Client> MakeClient() const {
    return cryptcli::Client::Create({.service = environment_.GetService()});
  }
  void Control(const char* method, const char* path, const char* body = "") {
    const auto changed = environment_.Control(method, path, body);
    EXPECT_TRUE(changed) << path << ": " << changed.Describe();
  }
  /// A client of the recording, once the servers are gone.
  cryptcli::Result<cryptcli::Client> MakeReplaying() {
    environment_.Stop();
    return Replay::Load(Path("recorded")).and_then([](const Replay& replay) {
      return cryptcli::Client::Create({.service = replay.GetService(), .transport = replay});
    });
  }

  cryptstand::Environment environment_;
  std::optional<cryptcli::Client> client_;
};

TEST_F(RecordedTest, OpensAFileWithoutServers) {
  const auto there = client_->Decrypt("demo", Path("secret"), Path("opened-there"));
  ASSERT_TRUE(there.has_value()) << there.error().message;
  const auto client = MakeReplaying();
  ASSERT_TRUE(client.has_value()) << client.error().message;
  std::string opened;
  const auto here = client->Decrypt("demo", Path("secret"), cryptcli::Target::ToMemory(opened));
  ASSERT_TRUE(here.has_value()) << here.error().message;
  EXPECT_EQ(opened, kContent);
  EXPECT_EQ(here->chain, there->chain);
  EXPECT_EQ(here->origin, cryptcli::Origin::Proven);
}

TEST_F(RecordedTest, FailsAsItFailedThere) {
  const auto there = client_->Decrypt("nowhere", Path("secret"), Path("opened"));
  ASSERT_FALSE(there.has_value());
  const auto client = MakeReplaying();
  ASSERT_TRUE(client.has_value()) << client.error().message;
  const auto here = client->Decrypt("nowhere", Path("secret"), Path("opened"));
  ASSERT_FALSE(here.has_value());
  EXPECT_EQ(here.error().code, there.error().code);
  EXPECT_EQ(here.error().message, there.error().message);
  EXPECT_EQ(here.error().url, there.error().url);
}

// As a customer meets it: the file is good, but the service does not know the certificate that signed it.
TEST_F(RecordedTest, RefusesAnOriginAsThere) {
  Control("PUT", "/stand/v1/lists", R"({"integrity":"without-ours"})");
  const auto there = client_->Decrypt("demo", Path("secret"), Path("opened"));
  ASSERT_FALSE(there.has_value());
  EXPECT_EQ(there.error().code, cryptcli::Status::OriginNotProven);
  const auto client = MakeReplaying();
  ASSERT_TRUE(client.has_value()) << client.error().message;
  const auto here = client->Decrypt("demo", Path("secret"), Path("opened"));
  ASSERT_FALSE(here.has_value());
  EXPECT_EQ(here.error().code, there.error().code);
  EXPECT_EQ(here.error().message, there.error().message);
}

// However often, and whichever key server the client chooses. Where they were recorded, it was one for each.
TEST_F(RecordedTest, RepeatsOperationsInTheirOrder) {
  Control("POST", "/stand/v1/faults", R"({"server":"0","fault":"down"})");
  ASSERT_TRUE(MakeClient()->Decrypt("demo", Path("secret"), Path("opened")).has_value());
  Control("DELETE", "/stand/v1/faults");
  Control("POST", "/stand/v1/faults", R"({"server":"1","fault":"down"})");
  Control("PUT", "/stand/v1/lists", R"({"integrity":"without-ours"})");
  ASSERT_FALSE(MakeClient()->Decrypt("demo", Path("secret"), Path("refused")).has_value());
  for (int i = 0; i < 20; ++i) {
    const auto client = MakeReplaying();
    ASSERT_TRUE(client.has_value()) << client.error().message;
    std::string opened;
    const auto first = client->Decrypt("demo", Path("secret"), cryptcli::Target::ToMemory(opened));
    ASSERT_TRUE(first.has_value()) << i << ": " << first.error().message;
    const auto second = client->Decrypt("demo", Path("secret"), cryptcli::Target::ToMemory(opened));
    ASSERT_FALSE(second.has_value()) << i;
    ASSERT_EQ(second.error().code, cryptcli::Status::OriginNotProven) << second.error().message;
  }
}

TEST_F(RecordedTest, FailsOverAsThere) {
  Control("POST", "/stand/v1/faults", R"({"server":"all","fault":"error-code","number":619})");
  const auto there = client_->Decrypt("demo", Path("secret"), Path("opened"));
  ASSERT_FALSE(there.has_value());
  EXPECT_EQ(there.error().attempts.size(), 2U);
  const auto client = MakeReplaying();
  ASSERT_TRUE(client.has_value()) << client.error().message;
  const auto here = client->Decrypt("demo", Path("secret"), Path("opened"));
  ASSERT_FALSE(here.has_value());
  EXPECT_EQ(here.error().message, there.error().message);
  EXPECT_EQ(here.error().attempts.size(), 2U);
  EXPECT_TRUE(here.error().retryable);
}

TEST_F(RecordedTest, DoesNotProtectWithARecordedSignature) {
  const auto client = MakeReplaying();
  ASSERT_TRUE(client.has_value()) << client.error().message;
  const auto here = client->Encrypt("demo", cryptcli::Source::FromMemory("other bytes"), Path("other"));
  EXPECT_FALSE(here.has_value());
  EXPECT_FALSE(std::filesystem::exists(Path("other")));
}

}  // namespace
}  // namespace StandFixture
