#include <string>

#include "bindings/c/text.h"
#include "foundation/json.h"
#include "tests/bindings/c/environment_fixture.h"
#include "tests/bindings/c/look_fixture.h"
#include "tests/bindings/key_servers.h"
#include "tests/support/text.h"

namespace CryptCliC {
namespace {

TEST(Wipe, OverwritesEveryCharacter) {
  std::string text(100, 'k');
  Wipe(text);
  EXPECT_EQ(text, std::string(100, '\0'));
}

}  // namespace
}  // namespace CryptCliC

namespace CInterface {
namespace {

using ::testing::HasSubstr;
using TestSupport::ListKeyServers;

class Perform : public EnvironmentTest {
 protected:
  Outcome Do(const char* operation, const std::string& arguments) {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_perform(client.get(), operation, arguments.c_str(), nullptr, report, error);
    });
  }
};

TEST_F(Perform, AnOperationGivesItsResultAsJson) {
  const std::string hash(88, 'A');
  const Outcome outcome =
      Do("SignByKey",
         R"({"keyserver":)" + ListKeyServers(stand) +
             R"(,"object":"demo","id":"integrity","algorithm":"RSASSA-PKCS1-v1_5-SHA-512","hash":")" +
             hash.substr(0, 86) + "==\"}");
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_THAT(cryptcli_report_json(outcome.report.get()), HasSubstr(R"({"signature":")"));
}

/// The result of a fetch of audit logs, whose file is removed.
KVMap TakeLog(const Outcome& outcome) {
  KVMap result = ParseReport(outcome);
  EXPECT_TRUE(std::filesystem::remove(StringIn(result, "filename")));
  return result;
}

TEST_F(Perform, AnAuditLogIsAFile) {
  const Outcome outcome =
      Do("CryptGetAuditLog", R"({"keyserver":)" + ListKeyServers(stand) + R"(,"group":"QOB.1.100.1"})");
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  TakeLog(outcome);
}

struct BadCall {
  const char* operation;
  const char* arguments;
  const char* reason;
};

TEST_F(Perform, WrongArgumentsAreRefusedBeforeAnythingIsSent) {
  const BadCall calls[] = {
      {"NoSuch", "{}", "Unknown operation \"NoSuch\""},
      {"DeleteKey", "no JSON", "The arguments are no JSON: "},
      {"DeleteKey", "[]", "The arguments are no JSON object"},
      {"DeleteKey", R"({"groop":"g"})", "Unknown argument \"groop\" of DeleteKey"},
      {"DeleteKey", "{}", "Missing argument \"keyserver\" of DeleteKey"},
      {"DeleteKey", R"({"keyserver":"u","group":"g","key":{}})",
       "Argument \"keyserver\" of DeleteKey has to be of type array of strings"},
      {"DeleteKey", R"({"keyserver":[1],"group":"g","key":{}})",
       "Argument \"keyserver\" of DeleteKey has to be of type array of strings"},
      {"DeleteKey", R"({"keyserver":["u"],"group":"g","key":"k"})",
       "Argument \"key\" of DeleteKey has to be of type object"},
      {"Update", R"({"keyserver":["u"],"room":"r","certificates":[],"newkey":1})",
       "Argument \"newkey\" of Update has to be of type boolean"},
      {"GetAuditLog", R"({"keyserver":[],"group":"g"})",
       "Argument \"keyserver\" of GetAuditLog has to name a key server"},
      {"GetAuditLog", R"({"keyserver":["foo"],"group":"g"})", "Invalid URL of a key server: "},
      {"GetAuditLog", R"({"keyserver":["ftp://127.0.0.1","foo"],"group":"g"})",
       "Invalid URL of a key server: only http and https are supported"},
      {"GetAuditLog", R"({"keyserver":["http://127.0.0.1:1"],"group":"g","statustimeout":"abc"})",
       "Argument \"statustimeout\" of GetAuditLog has to be a number of seconds"},
  };
  stand.ClearEvents();
  for (const BadCall& row : calls) {
    const Outcome outcome = Do(row.operation, row.arguments);
    EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT) << row.arguments;
    EXPECT_THAT(outcome.Message(), ::testing::StartsWith(row.reason));
  }
  EXPECT_TRUE(stand.GetEvents().empty());
}

// The list may be the crypt service's, and a wrong entry must not keep the servers after it from being asked.
TEST_F(Perform, AWrongUrlAmongOthersIsPassedOver) {
  const std::string servers = TestSupport::ListKeyServers(stand);
  const Outcome outcome = Do("GetAuditLog", R"({"keyserver":["ftp://127.0.0.1",)" + servers.substr(1) +
                                                R"(,"group":"QOB.1.100.1"})");
  ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  const KVMap failure = TakeLog(outcome).Get("failure").AsMap();
  EXPECT_EQ(failure.Get("attempts").AsArray().GetCount(), 1U);
}

TEST_F(Perform, AnIncompleteAuditLogNamesTheServersThatFailed) {
  for (const int server : {0, 1}) {
    ASSERT_TRUE(stand.SetFault(server, {.type = CryptStand::FaultType::Status, .number = 503}));
    const std::vector<std::string> urls = stand.GetKeyServerUrls();
    const Outcome outcome = Do(
        "GetAuditLog", R"({"keyserver":[")" + urls[0] + R"(",")" + urls[1] + R"("],"group":"QOB.1.100.1"})");
    ASSERT_TRUE(stand.ClearFaults(server));
    ASSERT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
    const KVMap failure = TakeLog(outcome).Get("failure").AsMap();
    const auto attempts = failure.Get("attempts").AsArray();
    ASSERT_EQ(attempts.GetCount(), 1U) << server;
    EXPECT_EQ(StringIn(attempts[0].AsMap(), "server"), urls[static_cast<std::size_t>(server)]);
    EXPECT_TRUE(failure.Get("retryable").AsBool()) << server;
    EXPECT_EQ(failure.Get("httpStatus").AsInteger(), 503) << server;
  }
}

TEST_F(Perform, AnEmptyStatusTimeoutIsNoLimit) {
  const Outcome outcome =
      Do("GetAuditLog", R"({"keyserver":["http://127.0.0.1:1"],"group":"g","statustimeout":""})");
  EXPECT_EQ(outcome.status, CRYPTCLI_UNREACHABLE) << outcome.Message();
}

TEST_F(Perform, ValuesAreNotQuotedInMessages) {
  const Outcome outcome =
      Do("ImportKey", R"({"keyserver":["u"],"group":"g","id":"i","key":7,"password":"geheim"})");
  EXPECT_EQ(outcome.status, CRYPTCLI_INVALID_ARGUMENT);
  EXPECT_EQ(outcome.Message().find("geheim"), std::string::npos);
}

TEST_F(Perform, OperationsAreDescribedAsJson) {
  OruGuiBase::Val value;
  OruGuiBase::AnsiStr error;
  ASSERT_TRUE(OruGuiBase::JSON2Val(cryptcli_operations(), value, error)) << error.GetText();
  const auto operations = value.AsArray();
  ASSERT_EQ(operations.GetCount(), 9U);
  for (const OruGuiBase::Val& operation : operations) {
    EXPECT_FALSE(operation.AsMap().Get("description").AsString().IsEmpty());
    EXPECT_FALSE(operation.AsMap().Get("arguments").AsArray().IsEmpty());
  }
}

}  // namespace
}  // namespace CInterface
