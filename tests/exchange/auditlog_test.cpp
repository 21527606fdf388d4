#include <filesystem>

#include "tests/exchange/auditlogtest.h"
#include "tests/support/tracerecorder.h"

namespace OruKalvix {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;
using TestSupport::Alive;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::HeaderOf;
using TestSupport::HttpAnswer;
using TestSupport::Json;
using TestSupport::NoExchange;
using TestSupport::Payload;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;

TEST_F(AuditLog, HoldsTheHeaderLineOnceAndTheRowsOfAllServers) {
  Attempt(Csv("h1,h2\na,1\nb,2\n"));
  Attempt(Csv("h1,h2\nc,3\n"));
  Attempt(Csv("h1,h2\nd,4\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h1,h2\na,1\nb,2\nc,3\nd,4\n");
  EXPECT_EQ(Error(), "");
}

TEST_F(AuditLog, IsAskedForWithTheGroupAtEachServer) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_THAT(http.GetLines(), ElementsAre("GET https://one.example/status",
                                           "POST https://crypt.example/api/crypt/authztoken/group%201",
                                           "POST https://one.example/rest/json"));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"getAuditLogRequest"})");
  EXPECT_EQ(http.GetRequest(2).body, Envelope(R"({"type":"getAuditLogRequest","groupId":"group 1"})"));
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t");
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "Content-Type"), "text/json");
}

TEST_F(AuditLog, SendsTheSameEnvelopeAndATokenOfItsOwnToEachServer) {
  for (const char* token : {"t1", "t2", "t3"}) http.Then(Alive()).Then(Token(token)).Then(Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_EQ(http.GetRequest(2).body, http.GetRequest(5).body);
  EXPECT_EQ(http.GetRequest(2).body, http.GetRequest(8).body);
  EXPECT_EQ(HeaderOf(http.GetRequest(2), "X-SEC-AUTHZTOKEN"), "t1");
  EXPECT_EQ(HeaderOf(http.GetRequest(5), "X-SEC-AUTHZTOKEN"), "t2");
  EXPECT_EQ(HeaderOf(http.GetRequest(8), "X-SEC-AUTHZTOKEN"), "t3");
}

TEST_F(AuditLog, IsNamedAfterTheGroupAndTheTime) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  const std::filesystem::path path = Str(fileName);
  EXPECT_EQ(path.parent_path(), scratch.Path("temporary"));
  const std::string name = path.filename();
  EXPECT_TRUE(name.starts_with("Audit Log its name 20")) << name;
  EXPECT_TRUE(name.ends_with(".csv")) << name;
  EXPECT_EQ(name.substr(19).find('T'), std::string::npos) << name;
  TakeLog();
}

TEST_F(AuditLog, HasANameThatFileSystemsTake) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get("../../a/b:c\n"));
  const std::filesystem::path path = Str(fileName);
  EXPECT_EQ(path.parent_path(), scratch.Path("temporary"));
  EXPECT_TRUE(path.filename().string().starts_with("Audit Log .._.._a_b_c_ 20")) << path;
  TakeLog();
}

TEST_F(AuditLog, GoesThroughATemporaryFileOfItsGroup) {
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  const std::filesystem::path target = http.GetRequest(2).targetFile;
  EXPECT_EQ(target.filename(), "auditlog-group 1.tmp");
  EXPECT_FALSE(std::filesystem::exists(target));
  EXPECT_THAT(scratch.GetTemporaryNames(), SizeIs(1));
  TakeLog();
}

// ---- Servers that give no log

TEST_F(AuditLog, PassesOverAServerThatCannotBeReached) {
  Attempt(Csv("h\na\n"));
  http.Then(NoExchange("down"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\nc\n");
  EXPECT_EQ(Error(), "Could not connect to key server: down");
}

TEST_F(AuditLog, PassesOverAServerWhoseExchangeFails) {
  Attempt(Status(500, "h\nnot a row\n"));
  Attempt(NoExchange("broken off"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nc\n");
  EXPECT_EQ(Error(), "broken off");
}

TEST_F(AuditLog, PassesOverAServerThatRefusesByHeader) {
  Attempt(Csv("h\nnot a row\n", {{"X-Sec-Status", "607"}}));
  Attempt(Csv("h\nb\n"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\nc\n");
  EXPECT_EQ(Error(), "607 Key Not Found");
}

TEST_F(AuditLog, IsNoneWithoutAnyServersLog) {
  Attempt(Status(500));
  Attempt(Csv("h\n", {{"x-sec-status", "612"}}));
  http.Then(NoExchange("down"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Could not connect to key server: down");
  ExpectNothingGot();
}

TEST_F(AuditLog, KeepsAnOlderMessageBesideAWholeLog) {
  client.SetStatusTimeout("soon");
  AttemptAt({kOne}, Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_EQ(Error(), "Invalid timeout value [soon]");
}

struct StatusRow {
  const char* header;
  const char* message;
};

TEST_F(AuditLog, TellsTheCodeOfTheStatusHeader) {
  const StatusRow rows[] = {
      {"607", "607 Key Not Found"}, {"601", "601 Invalid Payload"}, {"620", "620 Unknown Error"},
      {"0", "0 Unknown Error"},     {"-5", "-5 Unknown Error"},     {"no number", "0 Unknown Error"},
      {"607x", "0 Unknown Error"},  {" ", "0 Unknown Error"},
  };
  for (const StatusRow& row : rows) {
    peer.serverTimes = {};
    AttemptAt({kOne}, Csv("h\na\n", {{"X-SEC-STATUS", row.header}}));
    EXPECT_FALSE(Get()) << row.header;
    EXPECT_EQ(Error(), row.message) << row.header;
    ExpectNothingGot();
  }
}

TEST_F(AuditLog, TakesAnEmptyStatusHeaderForNone) {
  AttemptAt({kOne}, Csv("h\na\n", {{"X-SEC-STATUS", ""}}));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\n");
}

TEST_F(AuditLog, ReportsTheStatusHeaderThatAGoodAnswerLacks) {
  const TestSupport::TraceRecorder traces;
  AttemptAt({kOne}, Csv("h\na\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(5U));
}

// ---- Content types

TEST_F(AuditLog, TakesTheContentTypeWithParametersAndInAnyCase) {
  for (const char* type : {"text/csv;charset=utf-8", "text/csv ; charset=utf-8", " text/csv", "Text/CSV",
                           "text/csv;", "text/csv; a=b; c=d"}) {
    peer.serverTimes = {};
    AttemptAt({kOne}, Typed(Json("h\na\n"), type));
    ASSERT_TRUE(Get()) << type;
    EXPECT_EQ(TakeLog(), "h\na\n");
  }
}

TEST_F(AuditLog, RefusesAnyOtherContentType) {
  const StatusRow rows[] = {
      {"text/plain", "Unexpected content type text/plain"},
      {"text/csvx", "Unexpected content type text/csvx"},
      {"text/html; charset=utf-8", "Unexpected content type text/html"},
      {";text/csv", "Unexpected content type "},
      {"", "Unexpected content type "},
      {"application/100%s", "Unexpected content type application/100%s"},
  };
  for (const StatusRow& row : rows) {
    peer.serverTimes = {};
    AttemptAt({kOne}, Typed(Json("h\na\n"), row.header));
    EXPECT_FALSE(Get()) << row.header;
    EXPECT_EQ(Error(), row.message);
    ExpectNothingGot();
  }
}

TEST_F(AuditLog, RefusesAnAnswerWithoutAContentType) {
  AttemptAt({kOne}, Json("h\na\n"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Unexpected content type ");
  ExpectNothingGot();
}

TEST_F(AuditLog, TellsTheCodeOfARefusalInJSON) {
  AttemptAt({kOne}, Typed(ErrorCode(612), "application/json"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "612 Auditlog Error");
  ExpectNothingGot();
}

TEST_F(AuditLog, DoesNotTakeAnAnswerOfItsOwnTypeInJSONForALog) {
  AttemptAt({kOne}, Typed(Payload(R"({"type":"getAuditLogResponse"})"), "text/json"));
  EXPECT_FALSE(Get());
  EXPECT_EQ(Error(), "Unexpected content type text/json");
  ExpectNothingGot();
}

TEST_F(AuditLog, GoesOnBehindAnAnswerInJSON) {
  Attempt(Typed(ErrorCode(612), "application/json"));
  Attempt(Csv("h\nb\n"));
  Attempt(Typed(Json("{"), "application/json"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\n");
  EXPECT_EQ(Error(), "Unexpected content type application/json");
}

TEST_F(AuditLog, DoesNotLookForAnErrorInACsvBody) {
  HttpAnswer refusal = ErrorCode(612);
  AttemptAt({kOne}, Typed(refusal, "text/csv"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), refusal.body + "\n");
  EXPECT_EQ(Error(), "");
}

// ---- Lines

TEST_F(AuditLog, TakesTheHeaderFromTheFirstServerThatHasOne) {
  Attempt(Csv(""));
  Attempt(Csv("h\nb\n"));
  Attempt(Csv("h\nc\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\nb\nc\n");
  EXPECT_EQ(Error(), "");
}

TEST_F(AuditLog, IsAnEmptyFileWhenAllBodiesAreEmpty) {
  AttemptAt({kOne}, Csv(""));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "");
}

TEST_F(AuditLog, EndsALastLineThatLacksItsEnd) {
  Attempt(Csv("h\na"));
  Attempt(Csv("h"));
  Attempt(Csv("h\nc"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\nc\n");
}

TEST_F(AuditLog, EndsItsLinesInANewlineAlone) {
  AttemptAt({kOne}, Csv("h\r\na\r\n\r\nb\r\n"));
  ASSERT_TRUE(Get());
  EXPECT_EQ(TakeLog(), "h\na\n\nb\n");
}

TEST_F(AuditLog, CopiesALogThatIsLongerThanAnyBuffer) {
  std::string rows;
  for (int i = 0; i < 20000; ++i) rows += "row " + std::to_string(i) + "\n";
  rows += std::string(100000, 'x') + "\n";
  Attempt(Csv("h\n" + rows));
  Attempt(Csv("h\n" + rows));
  Attempt(Csv("h\n"));
  ASSERT_TRUE(Get());
  EXPECT_TRUE(TakeLog() == "h\n" + rows + rows);
}

TEST_F(AuditLog, AddsToATargetThatHoldsItsHeaderAlready) {
  AttemptAt({kOne}, Csv("h\na\n"));
  const OruGuiBase::File target = scratch.Make("target.csv", "h\nold\n");
  ASSERT_TRUE(peer.KeyServerGetAuditLog("group 1", target));
  EXPECT_EQ(scratch.Read("target.csv"), "h\nold\na\n");
}

// ---- The rotation

TEST_F(AuditLog, BeginsAtTheFirstServerWhereverTheRotationStands) {
  *CryptClientTestPeer::GetKeyServerBase() = 2;
  client.SetKeyServer(Strings({kOne, "https://two.example", "https://three.example"}));
  for (int i = 0; i < 3; ++i) Attempt(Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  EXPECT_EQ(http.GetLines()[0], "GET https://one.example/status");
  EXPECT_EQ(http.GetLines()[3], "GET https://two.example/status");
  EXPECT_EQ(http.GetLines()[6], "GET https://three.example/status");
}

TEST_F(AuditLog, LeavesTheNextCommandAtTheFirstServer) {
  *CryptClientTestPeer::GetKeyServerBase() = 1;
  client.SetKeyServer(Strings({kOne, "https://two.example", "https://three.example"}));
  for (int i = 0; i < 3; ++i) Attempt(Csv("h\n"));
  ASSERT_TRUE(Get());
  TakeLog();
  http.Then(Token("t")).Then(Payload(R"({"type":"reencryptResponse"})"));
  ASSERT_TRUE(client.Reencrypt("g", "c"));
  EXPECT_EQ(http.GetLines().back(), "POST https://one.example/rest/json");
}

TEST_F(AuditLog, VisitsEachServerAgainTheNextTime) {
  UseServers({kOne, "https://two.example"});
  Attempt(Csv("h\na\n"));
  Attempt(Csv("h\nb\n"));
  ASSERT_TRUE(Get("first"));
  EXPECT_EQ(TakeLog(), "h\na\nb\n");
  http.Then(Token("t")).Then(Csv("h\nc\n")).Then(Token("t")).Then(Csv("h\nd\n"));
  ASSERT_TRUE(Get("second"));
  EXPECT_EQ(TakeLog(), "h\nc\nd\n");
}

}  // namespace
}  // namespace OruKalvix
