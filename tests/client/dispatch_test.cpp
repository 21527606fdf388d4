#include "tests/client/dispatch_fixture.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;
using ::testing::ElementsAre;
using TestSupport::Ansi;
using TestSupport::ErrorCode;
using TestSupport::JsonText;
using TestSupport::Map;
using TestSupport::NoExchange;
using TestSupport::Payload;
using Method = CryptClient::Method;

struct NameRow {
  std::string_view name;
  Method method;
  const char* reason;
};

constexpr NameRow kNames[] = {
    {"ConfigGroup", Method::ConfigGroup, "plain"},
    {"Reencrypt", Method::Reencrypt, "plain"},
    {"GetAuditLog", Method::GetAuditLog, "plain"},
    {"Update", Method::Update, "plain"},
    {"ImportKey", Method::ImportKey, "plain"},
    {"DeleteKey", Method::DeleteKey, "plain"},
    {"SignByKey", Method::SignByKey, "plain"},
    {"Encrypt", Method::Encrypt, "plain"},
    {"Decrypt", Method::Decrypt, "plain"},
    {"CryptConfigGroup", Method::ConfigGroup, "prefix"},
    {"CryptReencrypt", Method::Reencrypt, "prefix"},
    {"CryptGetAuditLog", Method::GetAuditLog, "prefix"},
    {"CryptUpdate", Method::Update, "prefix"},
    {"CryptImportKey", Method::ImportKey, "prefix"},
    {"CryptDeleteKey", Method::DeleteKey, "prefix"},
    {"CryptSignByKey", Method::SignByKey, "prefix"},
    {"CryptEncrypt", Method::Encrypt, "prefix"},
    {"CryptDecrypt", Method::Decrypt, "prefix"},
    {"CryptCryptUpdate", Method::None, "prefix twice"},
    {"cryptUpdate", Method::None, "prefix in lower case"},
    {"CRYPTUpdate", Method::None, "prefix in upper case"},
    {"Crypt", Method::None, "prefix alone"},
    {"Cryp", Method::None, "half a prefix"},
    {"CrypUpdate", Method::None, "half a prefix and a name"},
    {"", Method::None, "empty"},
    {"update", Method::None, "lower case"},
    {"encrypt", Method::None, "lower case"},
    {"UPDATE", Method::None, "upper case"},
    {"UpdateKey", Method::None, "the operation of the class"},
    {"CreateKey", Method::None, "the operation of the class"},
    {"ExportKeys", Method::None, "the operation of the class"},
    {"Sign", Method::None, "the operation of the class"},
    {"Updat", Method::None, "cut"},
    {"Updates", Method::None, "longer"},
    {" Update", Method::None, "blank before"},
    {"Update ", Method::None, "blank at the end"},
    {"MyCryptUpdate", Method::None, "embedded"},
    {"UpdateCrypt", Method::None, "prefix at the end"},
};

// Each of nine names is known, with "Crypt" before it once or without, in this case alone.
TEST(MethodNames, AreRecognised) {
  for (const NameRow& row : kNames) {
    EXPECT_EQ(CryptClient::GetMethod(Ansi(row.name)), row.method) << row.name << ": " << row.reason;
  }
}

TEST(MethodNames, EndAtZeroByte) {
  EXPECT_EQ(CryptClient::GetMethod(Ansi(std::string_view("Update\0Key", 10))), Method::Update);
}

TEST(MethodNames, HaveTheNumbersOfTheirMethods) {
  EXPECT_EQ(static_cast<int>(Method::None), 0);
  EXPECT_EQ(static_cast<int>(Method::ConfigGroup), 1);
  EXPECT_EQ(static_cast<int>(Method::Reencrypt), 2);
  EXPECT_EQ(static_cast<int>(Method::GetAuditLog), 3);
  EXPECT_EQ(static_cast<int>(Method::Update), 4);
  EXPECT_EQ(static_cast<int>(Method::ImportKey), 5);
  EXPECT_EQ(static_cast<int>(Method::DeleteKey), 6);
  EXPECT_EQ(static_cast<int>(Method::SignByKey), 7);
  EXPECT_EQ(static_cast<int>(Method::Encrypt), 8);
  EXPECT_EQ(static_cast<int>(Method::Decrypt), 9);
}

// A key handle has the members "type", "id" and "subId" in this order.
TEST(KeyHandles, HaveTypeIdAndSubIdInThisOrder) {
  EXPECT_EQ(JsonText(CryptClient::GetKeyHandle("the id", "the sub-id")),
            R"({"type":"handle","id":"the id","subId":"the sub-id"})");
  EXPECT_EQ(JsonText(CryptClient::GetKeyHandle("", "")), R"({"type":"handle","id":"","subId":""})");
}

// Failures are 0x80004005 and, for an unknown name, 0x80020003, as signed numbers.
TEST(ResultCodes, AreTheSignedNumbersOfTheirBits) {
  EXPECT_EQ(kSuccess, 0);
  EXPECT_EQ(static_cast<std::uint32_t>(kFailed), 0x80004005U);
  EXPECT_EQ(static_cast<std::uint32_t>(kUnknownName), 0x80020003U);
  EXPECT_LT(kFailed, 0);
  EXPECT_LT(kUnknownName, 0);
}

using PerformedOperation = DispatchTest;

constexpr const char* kConfigured = R"({"type":"configGroupResponse"})";

TEST_F(PerformedOperation, ReturnsEmptyMapWhenThereIsNoResult) {
  Respond(Payload(kConfigured));
  EXPECT_EQ(Perform("ConfigGroup", With(R"(,"group":"g")")), 0);
  EXPECT_EQ(result.GetType(), ValType::Map);
  EXPECT_TRUE(result.AsMap().IsEmpty());
  EXPECT_EQ(Error(), "before");
}

TEST_F(PerformedOperation, ReplacesAnOldResult) {
  result = Val("old");
  Respond(Payload(kConfigured));
  EXPECT_EQ(Perform("CryptConfigGroup", With(R"(,"group":"g")")), 0);
  EXPECT_EQ(Result(), "{}");
}

// An unknown name gives 0x80020003, quotes the name and leaves the result alone.
TEST_F(PerformedOperation, IsRefusedForUnknownName) {
  result = Val("old");
  EXPECT_EQ(static_cast<std::uint32_t>(Perform("Explode", With(""))), 0x80020003U);
  EXPECT_EQ(Error(), R"(Unknown crypt client method identifier "Explode")");
  EXPECT_EQ(Result(), R"("old")");
}

TEST_F(PerformedOperation, IsRefusedForNameInLowerCase) {
  EXPECT_EQ(Perform("encrypt", With("")), kUnknownName);
  EXPECT_EQ(Error(), R"(Unknown crypt client method identifier "encrypt")");
  EXPECT_TRUE(result.IsNil());
}

TEST_F(PerformedOperation, IsRefusedForEmptyName) {
  EXPECT_EQ(Perform("", With("")), kUnknownName);
  EXPECT_EQ(Error(), R"(Unknown crypt client method identifier "")");
}

TEST_F(PerformedOperation, QuotesTheWholeUnknownNameWithItsPrefix) {
  EXPECT_EQ(Perform("CryptCrypt\"%s", With("")), kUnknownName);
  EXPECT_EQ(Error(), R"(Unknown crypt client method identifier "CryptCrypt\"%s")");
}

TEST_F(PerformedOperation, LeavesNilAndTheReasonWhenItFails) {
  result = Val(Map(R"({"old":["map"]})"));
  Respond(ErrorCode(609));
  EXPECT_EQ(static_cast<std::uint32_t>(Perform("DeleteKey", With(R"(,"group":"g")"))), 0x80004005U);
  EXPECT_TRUE(result.IsNil());
  EXPECT_EQ(Error(), "609 Auth Failed");
}

TEST_F(PerformedOperation, FreesAnObjectThatTheResultHeldWhenItFails) {
  const AnsiStr held("a text that the result shares");
  result = Val(held);
  ASSERT_EQ(held.GetImp()->refCount, 2U);
  EXPECT_EQ(Perform("Reencrypt", "{}"), kFailed);
  EXPECT_TRUE(result.IsNil());
  EXPECT_EQ(held.GetImp()->refCount, 1U);
}

// One map may hold the arguments and take the results.
TEST_F(PerformedOperation, AllowsArgumentsAndResultInOneVariable) {
  Respond(Payload(kConfigured));
  KVMap both = Map(With(R"(,"group":"g")"));
  EXPECT_TRUE(CryptClient::ExecuteMethod(&http, kService, "", Method::ConfigGroup, both, both, error));
  EXPECT_TRUE(both.IsEmpty());
}

// Key servers that are not in a list are none, and the command fails with "Invalid key server URL".
TEST_F(PerformedOperation, NeedsKeyServersInAList) {
  for (const char* arguments : {R"({"keyserver":"https://one.example"})", R"({"keyserver":null})",
                                R"({"keyserver":{"0":"x"}})", R"({"keyserver":[]})", "{}"}) {
    error.Clear();
    EXPECT_EQ(Perform("Reencrypt", arguments), kFailed) << arguments;
    EXPECT_EQ(Error(), "Invalid key server URL") << arguments;
  }
}

// Without a transport a command fails with "No HTTP service" as the reason of its probe.
TEST_F(PerformedOperation, FailsWithoutATransport) {
  EXPECT_EQ(CryptClient::PerformOperation(nullptr, kService, "", "Reencrypt", Map(With("")), result, error),
            kFailed);
  EXPECT_EQ(Error(), "Could not connect to key server: No HTTP service");
}

// Without a service URL a command fails with "Invalid URL".
TEST_F(PerformedOperation, FailsWithoutAServiceUrl) {
  http.Then(TestSupport::Alive());
  EXPECT_EQ(CryptClient::PerformOperation(&http, "", "", "Reencrypt", Map(With("")), result, error), kFailed);
  EXPECT_EQ(Error(), "Invalid URL");
}

TEST_F(PerformedOperation, ReleasesTransportWhenItReturns) {
  Respond(Payload(kConfigured));
  Perform("ConfigGroup", With(R"(,"group":"g")"));
  EXPECT_EQ(http.GetAddRefs(), 1U);
  EXPECT_EQ(http.GetReleases(), 1U);
  Perform("Unknown", "{}");
  EXPECT_EQ(http.GetAddRefs(), 1U);
}

// Each operation makes probes and tokens of its own.
TEST_F(PerformedOperation, KeepsNothingForNextOperation) {
  for (int i = 0; i < 2; ++i) {
    Respond(Payload(kConfigured));
    EXPECT_EQ(Perform("ConfigGroup", With(R"(,"group":"g")")), 0);
  }
  const std::string token = std::string(kToken) + "g";
  EXPECT_THAT(http.GetLines(), ElementsAre(kProbe, token, kPost, kProbe, token, kPost));
}

// "statustimeout" bounds the probe.
TEST_F(PerformedOperation, PassesStatusTimeoutToProbe) {
  Respond(Payload(kConfigured));
  Perform("ConfigGroup", With(""));
  EXPECT_TRUE(http.GetRequest(0).options.useTimeouts);
  EXPECT_EQ(http.GetRequest(0).options.timeouts[0], 5000U);
}

// An absent "statustimeout" sets no bound.
TEST_F(PerformedOperation, HasNoTimeoutWhenStatusTimeoutIsMissing) {
  Respond(Payload(kConfigured));
  EXPECT_EQ(Perform("ConfigGroup", R"({"keyserver":["https://one.example"],"group":"g"})"), 0);
  EXPECT_FALSE(http.GetRequest(0).options.useTimeouts);
}

// An invalid "statustimeout" sets no bound and leaves the error of a success alone.
TEST_F(PerformedOperation, IgnoresInvalidStatusTimeout) {
  Respond(Payload(kConfigured));
  EXPECT_EQ(Perform("ConfigGroup", R"({"keyserver":["https://one.example"],"statustimeout":"soon"})"), 0);
  EXPECT_FALSE(http.GetRequest(0).options.useTimeouts);
  EXPECT_EQ(Error(), "before");
}

// A failure after an invalid "statustimeout" reports its own reason.
TEST_F(PerformedOperation, ReportsTheLatestFailureAfterAnInvalidStatusTimeout) {
  http.Then(NoExchange("down"));
  EXPECT_EQ(Perform("ConfigGroup", R"({"keyserver":["https://one.example"],"statustimeout":"soon"})"),
            kFailed);
  EXPECT_EQ(Error(), "Could not connect to key server: down");
}

TEST_F(PerformedOperation, LeavesErrorAloneWhenSecondServerSucceeds) {
  http.Then(NoExchange("down"));
  Respond(Payload(kConfigured));
  EXPECT_EQ(Perform("ConfigGroup", R"({"keyserver":["https://one.example","https://two.example"]})"), 0);
  EXPECT_EQ(Error(), "before");
}

class ExecutedMethod : public DispatchTest {
 protected:
  bool Execute(Method method, std::string_view arguments) {
    return CryptClient::ExecuteMethod(&http, kService, "auxiliary", method, Map(arguments), map, error);
  }

  KVMap map = Map(R"({"old":1})");
};

// A method value without a case is refused; result and error are untouched.
TEST_F(ExecutedMethod, IsRefusedForUnknownMethodAndTouchesNothing) {
  for (const int number : {0, 10, -1, 0x7FFFFFFF}) {
    EXPECT_FALSE(Execute(static_cast<Method>(number), With(""))) << number;
    EXPECT_EQ(JsonText(map), R"({"old":1})");
    EXPECT_EQ(Error(), "before");
  }
}

TEST_F(ExecutedMethod, LeavesTheResultAloneWhenItFails) {
  http.Then(NoExchange("down"));
  EXPECT_FALSE(Execute(Method::ImportKey, With("")));
  EXPECT_EQ(JsonText(map), R"({"old":1})");
  EXPECT_EQ(Error(), "Could not connect to key server: down");
}

TEST_F(ExecutedMethod, ReplacesTheResultWhenItSucceeds) {
  Respond(Payload(R"({"type":"importKeyResponse"})"));
  EXPECT_TRUE(Execute(Method::ImportKey, With("")));
  EXPECT_TRUE(map.IsEmpty());
  EXPECT_EQ(Error(), "before");
}

}  // namespace
}  // namespace OruKalvix
