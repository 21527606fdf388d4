// What --record writes. The file itself is tested in recording_test.cpp.
#include <fstream>
#include <thread>

#include "tests/stand/admin_peer.h"
#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

std::vector<KVMap> Lines(const std::string& path) {
  std::vector<KVMap> lines;
  std::ifstream text(path, std::ios::binary);
  for (std::string line; std::getline(text, line);) {
    const auto object = ReadObject(line);
    EXPECT_TRUE(object.has_value()) << line;
    lines.push_back(object.value_or(KVMap()));
  }
  return lines;
}

KVMap Side(const KVMap& line, const char* name) {
  return ReadMap(line, name).value_or(KVMap());
}

std::string HeaderOf(const KVMap& side, const std::string& name) {
  for (const Val& header : ReadArray(side, "headers").value_or(OruGuiBase::Array<Val>())) {
    if (header.AsArray()[0].AsString() == name.c_str())
      return std::string(header.AsArray()[1].AsString().View());
  }
  return "(none)";
}

Options RecordingTo(const std::string& path) {
  Options options;
  options.recordFile = path;
  return options;
}

// An environment that records into a file of the test.
class RecordOptionTest : public StandTest {
 protected:
  RecordOptionTest() : StandTest(RecordingTo(Path())) {}

  static std::string Path() { return Files().Path("recording"); }
  /// The last line, as an object.
  static KVMap Last() {
    const auto lines = Lines(Path());
    return lines.empty() ? KVMap() : lines.back();
  }
  void TearDown() override { std::filesystem::remove(Path()); }

 private:
  static Folder& Files() {
    static Folder folder;
    return folder;
  }
};

TEST_F(RecordOptionTest, BeginsWithWhatItIs) {
  const KVMap start = Lines(Path()).at(0);
  EXPECT_EQ(ReadText(start, "recording"), "cryptstand");
  EXPECT_EQ(ReadInteger(start, "version"), 1);
  EXPECT_EQ(ReadText(start, "service"), stand_.GetServiceUrl());
  EXPECT_EQ(ReadTexts(start, "keyservers"), stand_.GetKeyServerUrls());
  EXPECT_THAT(ReadText(start, "contents").value_or(""), HasSubstr("secrets"));
}

TEST_F(RecordOptionTest, HasEachExchangeWithItsSecrets) {
  const std::string token = FetchToken("getKeyRequest");
  const Reply reply = PostCommand(GetKeyPayload(), token, 1);
  const KVMap line = Last();
  EXPECT_EQ(ReadInteger(line, "number"), 2);
  EXPECT_EQ(ReadText(line, "server"), "1");
  EXPECT_EQ(ReadText(line, "method"), "POST");
  EXPECT_EQ(ReadText(line, "target"), "/rest/json");
  EXPECT_EQ(ReadText(line, "operation"), "getKeyRequest");
  EXPECT_THAT(ReadText(line, "time").value_or(""), testing::MatchesRegex("....-..-..T..:..:..\\....Z"));
  EXPECT_EQ(HeaderOf(Side(line, "request"), "X-SEC-AUTHZTOKEN"), token);
  EXPECT_THAT(ReadText(Side(line, "request"), "body").value_or(""), HasSubstr("getKeyRequest"));
  const KVMap response = Side(line, "response");
  EXPECT_EQ(ReadInteger(response, "status"), reply.status);
  EXPECT_EQ(ReadText(response, "body"), reply.body);
  EXPECT_EQ(ReadBool(response, "isWhole"), true);
  EXPECT_EQ(HeaderOf(response, "Date"), reply.Header("Date"));
  EXPECT_EQ(HeaderOf(response, "Content-Type"), "application/json");
}

TEST_F(RecordOptionTest, HasLargeBodiesWhole) {
  constexpr int kSize = 1 << 20;
  ASSERT_TRUE(stand_.SetFault(kCryptService, {FaultType::JsonHuge, "", 1, kSize, ""}));
  const Reply reply = Get(Service("crypt/key/demo"));
  EXPECT_EQ(ReadText(Side(Last(), "response"), "body"), reply.body);
  EXPECT_GT(reply.body.size(), std::size_t{kSize});
}

TEST_F(RecordOptionTest, HasBytesThatAreNotUtf8AsBase64) {
  ASSERT_TRUE(stand_.SetFault(kCryptService, {FaultType::JsonNotUtf8, "", 1, 0, ""}));
  const Reply reply = Get(Service("crypt/key/demo"));
  const KVMap response = Side(Last(), "response");
  EXPECT_EQ(FromBase64(ReadText(response, "bodyBase64").value_or("")), reply.body);
  EXPECT_EQ(ReadText(response, "body"), std::nullopt);
}

TEST_F(RecordOptionTest, HasThePartOfACutResponseThatWasSent) {
  ASSERT_TRUE(stand_.SetFault(kCryptService, {FaultType::Cut, "", 1, 7, ""}));
  const Reply reply = Get(Service("crypt/key/demo"));
  EXPECT_THAT(reply.body, SizeIs(7));
  const KVMap response = Side(Last(), "response");
  EXPECT_EQ(ReadText(response, "body"), reply.body);
  EXPECT_EQ(ReadBool(response, "isWhole"), false);
}

TEST_F(RecordOptionTest, HasNoRequestsOfTheControlInterface) {
  EXPECT_EQ(Get(Service("stand/v1/events")).status, 200);
  EXPECT_THAT(Lines(Path()), SizeIs(1));
}

class RecordedStreamTest : public RecordOptionTest {
 protected:
  static constexpr const char* kGroup = "QOB.1.100.1";
  Reply FetchLog() { return RunCommand(Object("type", "getAuditLogRequest", "groupId", kGroup), kGroup); }
};

TEST_F(RecordedStreamTest, HasAStreamThatWasSent) {
  stand_.GetSettings().SetGeneratedAudit(0, 10000);
  const Reply reply = FetchLog();
  EXPECT_GT(reply.body.size(), 10000U);
  const KVMap response = Side(Last(), "response");
  EXPECT_EQ(ReadText(response, "body"), reply.body);
  EXPECT_EQ(ReadBool(response, "isWhole"), true);
}

TEST_F(RecordedStreamTest, HasThePartOfACutStream) {
  stand_.GetSettings().SetGeneratedAudit(0, 10000);
  ASSERT_TRUE(stand_.SetFault(0, {FaultType::Cut, "getAuditLogRequest", 1, 5000, ""}));
  const Reply reply = FetchLog();
  EXPECT_THAT(reply.body, SizeIs(5000));
  // The line is written after the connection is closed, which is all that a client sees.
  for (int i = 0; i < 500 && ReadText(Last(), "operation") != "getAuditLogRequest"; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const KVMap response = Side(Last(), "response");
  EXPECT_EQ(ReadText(response, "body"), reply.body);
  EXPECT_EQ(ReadBool(response, "isWhole"), false);
}

TEST(RecordStartTest, FailsWhereTheFileHasOtherContents) {
  const Folder folder;
  std::ofstream(folder.Path("letter")) << "a letter\n";
  std::string error;
  Stand stand(RecordingTo(folder.Path("letter")));
  EXPECT_FALSE(stand.Start(error));
  EXPECT_THAT(error, HasSubstr("neither empty nor a recording"));
}

}  // namespace
}  // namespace CryptStand
