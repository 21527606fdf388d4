#include <filesystem>
#include <string>
#include <vector>

#include "tests/client/dispatch_fixture.h"
#include "tests/support/files.h"
#include "tests/support/trace_recorder.h"

namespace OruKalvix {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using TestSupport::Envelope;
using TestSupport::ErrorCode;
using TestSupport::NoExchange;
using TestSupport::ScratchDirectory;
using TestSupport::Status;
using TestSupport::Str;
using TestSupport::TraceRecorder;

// ---- Update: keys first, then a new key

constexpr const char* kThreeKeys =
    R"(,"room":"r","seqnr":"42","certificates":["c"],"transaction":"T",)"
    R"("keys":[{"id":"1","data":"a"},{"id":"2","data":"b"},{"id":"3","data":"c"}])";
constexpr const char* kThreeUpdated =
    R"("keys":[{"id":"1","data":"A"},{"id":"2","data":"B"},{"id":"3","data":"C"}])";

class DispatchedUpdate : public DispatchedCase {
 protected:
  void RespondWithThreeKeys() {
    Respond(Modified("A"));
    RespondNext(Modified("B"));
    RespondNext(Modified("C"));
  }
};

// "Update" of no keys and without "newkey" gives room and sequence number back and sends nothing.
TEST_F(DispatchedUpdate, SendsNothingWithoutKeysAndNewKeyFlag) {
  EXPECT_EQ(Perform("Update", R"({"room":"r","seqnr":"42","keys":[],"newkey":false})"), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42"})");
  EXPECT_EQ(Perform("CryptUpdate", "{}"), 0);
  EXPECT_EQ(Result(), R"({"room":"","seqnr":""})");
  EXPECT_EQ(Error(), "before");
}

// "Update" wraps each key again and sends no transaction though one is given.
TEST_F(DispatchedUpdate, WrapsKeysAgainWithoutTransaction) {
  RespondWithThreeKeys();
  EXPECT_EQ(Perform("Update", With(kThreeKeys)), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42",)" + std::string(kThreeUpdated) + "}");
  EXPECT_EQ(http.GetLines()[1], TokenLine("r"));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"modifyWrappedKeyRequest"})");
  EXPECT_EQ(http.GetRequest(2).body,
            Envelope(R"({"type":"modifyWrappedKeyRequest","encodedWrappedKey":"a",)"
                     R"("encryptionKeys":[{"type":"externalCertificate","encodedCertificate":"c"}]})"));
}

// "Update" with "newkey" makes a key after it has wrapped the others again.
TEST_F(DispatchedUpdate, MakesNewKeyBesideGivenKeys) {
  RespondWithThreeKeys();
  RespondNext(Generated());
  EXPECT_EQ(Perform("Update", With(std::string(kThreeKeys) + R"(,"newkey":true)")), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42",)" + std::string(kThreeUpdated) + R"(,"newkey":"new"})");
  EXPECT_THAT(http.GetRequests().back().body, HasSubstr(R"("certificateSubject":"CN=r-tr")"));
}

// "Update" with "newkey" and no keys makes a key alone.
TEST_F(DispatchedUpdate, MakesNewKeyWithoutGivenKeys) {
  Respond(Generated());
  EXPECT_EQ(Perform("Update", With(R"(,"room":"r","seqnr":"42","certificates":["c"],"newkey":true)")), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42","newkey":"new"})");
}

// "Update" reads its keys when its client is set up already, and looks for "newkey" after them.
TEST_F(DispatchedUpdate, ReadsKeysAfterClientIsConfigured) {
  const TraceRecorder traces;
  EXPECT_EQ(Perform("Update", R"({"keyserver":[],"statustimeout":"soon","room":"r","seqnr":"1",)"
                              R"("certificates":[]})"),
            0);
  std::vector<std::string> texts;
  for (const auto& event : traces.GetEvents()) texts.push_back(event.text);
  EXPECT_THAT(texts, ElementsAre("CryptClient: Error: Invalid timeout value [soon]",
                                 "Val::ReportInvalidType: read as type 8, holds type 0",
                                 "Val::ReportInvalidType: read as type 1, holds type 0"));
}

// "Update" succeeds without "newkey" when only the new key cannot be made.
TEST_F(DispatchedUpdate, SucceedsWhenNewKeyCannotBeMade) {
  RespondWithThreeKeys();
  RespondNext(ErrorCode(615));
  EXPECT_EQ(Perform("Update", With(std::string(kThreeKeys) + R"(,"newkey":true)")), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42",)" + std::string(kThreeUpdated) + "}");
  EXPECT_EQ(Error(), "before");
}

// "Update" succeeds even when the new key was all that was wanted and failed.
TEST_F(DispatchedUpdate, SucceedsWhenOnlyNewKeyWasWantedAndFailed) {
  EXPECT_EQ(Perform("Update", R"({"room":"r","seqnr":"42","newkey":true})"), 0);
  EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42"})");
  EXPECT_EQ(Error(), "before");
}

// "Update" fails with its keys, and then does not look at "newkey".
TEST_F(DispatchedUpdate, FailsWithKeysAndMakesNoNewKey) {
  const TraceRecorder traces;
  Respond(Modified("A"));
  RespondNext(ErrorCode(605));
  EXPECT_EQ(Perform("Update", With(std::string(kThreeKeys) + R"(,"newkey":"no flag")")), kFailed);
  EXPECT_TRUE(result.IsNil());
  EXPECT_EQ(Error(), "605 Invalid Wrapped Key");
  EXPECT_THAT(traces.GetInvalidTypes(), Not(::testing::Contains(kBool)));
  for (const auto& request : http.GetRequests()) {
    EXPECT_THAT(request.body, Not(HasSubstr("generateWrappedKeyRequest")));
  }
}

// An "Update" whose keys fail leaves the caller's map alone.
TEST_F(DispatchedUpdate, LeavesCallersMapAloneWhenKeysFail) {
  OruGuiBase::KVMap map = TestSupport::Map(R"({"old":1})");
  http.Then(NoExchange("down"));
  EXPECT_FALSE(CryptClient::ExecuteMethod(&http, kService, "", CryptClient::Method::Update,
                                          TestSupport::Map(With(kThreeKeys)), map, error));
  EXPECT_EQ(TestSupport::JsonText(map), R"({"old":1})");
}

// A "newkey" that is not a flag is reported and counts as false.
TEST_F(DispatchedUpdate, ReadsNewKeyFlagOfWrongTypeAsFalse) {
  for (const char* flag : {"1", R"("true")", "null", "[true]", "1.5"}) {
    const TraceRecorder traces;
    EXPECT_EQ(Perform("Update", With(R"(,"room":"r","seqnr":"42","certificates":[],"keys":[],"newkey":)" +
                                     std::string(flag))),
              0);
    EXPECT_THAT(traces.GetInvalidTypes(), ElementsAre(kBool)) << flag;
    EXPECT_EQ(Result(), R"({"room":"r","seqnr":"42"})");
  }
}

// ---- Audit log

class DispatchedAuditLog : public DispatchedCase {
 protected:
  static constexpr const char* kTwoServers =
      R"({"keyserver":["https://one.example","https://two.example"],"statustimeout":"5",)"
      R"("transaction":"T","group":"g","groupname":"name"})";

  /// The log that the result names, which is removed.
  std::string TakeLog() {
    const std::string path = Str(result.AsMap().Get("filename").AsString());
    const std::string text = TestSupport::ReadFile(path);
    std::filesystem::remove(path);
    return text;
  }

  ScratchDirectory scratch;
};

// "GetAuditLog" gives the file's name and an empty error when all servers gave their log.
TEST_F(DispatchedAuditLog, ReturnsFileNameAndNoError) {
  Respond(Log("h\na\n"));
  Respond(Log("h\nb\n"));
  EXPECT_EQ(Perform("GetAuditLog", kTwoServers), 0);
  EXPECT_EQ(result.AsMap().GetCount(), 1U);
  EXPECT_EQ(TakeLog(), "h\na\nb\n");
  EXPECT_EQ(Error(), "");
  EXPECT_EQ(http.GetLines()[1], TokenLine("g"));
  EXPECT_EQ(http.GetRequest(1).body,
            R"({"keyserver":"https://one.example","operation":"getAuditLogRequest"})");
}

// A partial log succeeds and reports the last failure in the error beside the result.
TEST_F(DispatchedAuditLog, ReportsPartialLogBesideResult) {
  Respond(Log("h\na\n"));
  http.Then(NoExchange("100% down"));
  EXPECT_EQ(Perform("CryptGetAuditLog", kTwoServers), 0);
  EXPECT_EQ(TakeLog(), "h\na\n");
  EXPECT_EQ(Error(),
            "Could not get audit log from all key servers: Could not connect to key server: 100% down");
}

// An invalid "statustimeout" shows as a partial log.
TEST_F(DispatchedAuditLog, ReportsInvalidStatusTimeoutAsPartialLog) {
  Respond(Log("h\na\n"));
  EXPECT_EQ(
      Perform("GetAuditLog", R"({"keyserver":["https://one.example"],"statustimeout":"soon","group":"g"})"),
      0);
  EXPECT_EQ(TakeLog(), "h\na\n");
  EXPECT_EQ(Error(), "Could not get audit log from all key servers: Invalid timeout value [soon]");
}

TEST_F(DispatchedAuditLog, FailsWithLastReasonWhenNoServerHasLog) {
  Respond(Status(500));
  http.Then(NoExchange("down"));
  EXPECT_EQ(Perform("GetAuditLog", kTwoServers), kFailed);
  EXPECT_EQ(Error(), "Could not connect to key server: down");
  EXPECT_TRUE(result.IsNil());
}

// A failed "GetAuditLog" leaves the caller's map alone.
TEST_F(DispatchedAuditLog, LeavesCallersMapAloneWhenItFails) {
  OruGuiBase::KVMap map = TestSupport::Map(R"({"old":1})");
  EXPECT_FALSE(CryptClient::ExecuteMethod(&http, kService, "", CryptClient::Method::GetAuditLog,
                                          TestSupport::Map("{}"), map, error));
  EXPECT_EQ(TestSupport::JsonText(map), R"({"old":1})");
  EXPECT_EQ(Error(), "Invalid key server URL");
}

}  // namespace
}  // namespace OruKalvix
