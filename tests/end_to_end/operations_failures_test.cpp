// Named operations against servers that fail, and with arguments that no server can take.
#include "tests/end_to_end/operations_fixture.h"

using CryptStand::FaultType;
using CryptStand::kCryptService;
using CryptStand::KeyPair;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace TestSupport {
namespace {

class OperationFailover : public OperationsTest {
 protected:
  void SetUp() override {
    OperationsTest::SetUp();
    key = KeyPair::MakeRSA(1024);
  }

  KeyPair key;
};

TEST_F(OperationFailover, AnyTwoServersMayFail) {
  for (int alive = 0; alive < 3; ++alive) {
    SCOPED_TRACE(alive);
    for (int server = 0; server < 3; ++server) ASSERT_TRUE(stand.ClearFaults(server));
    SetFault((alive + 1) % 3, {.type = FaultType::Down});
    SetFault((alive + 2) % 3, {.type = FaultType::ErrorCode, .operation = "importKeyRequest", .number = 606});
    const std::string id = "seal " + std::to_string(alive);
    ASSERT_TRUE(Import(id, key.ToBase64())) << error;
    EXPECT_EQ(error, "") << "what failed on the way does not come with a success";
    ASSERT_TRUE(Sign(id, "1")) << error;
    EXPECT_TRUE(IsSignedBy(key));
  }
}

TEST_F(OperationFailover, ASuccessReachesOneServerAlone) {
  SetFault(1, {.type = FaultType::Status, .operation = "importKeyRequest", .number = 500});
  SetFault(2, {.type = FaultType::WrongType, .operation = "importKeyRequest"});
  ASSERT_TRUE(Import("seal", key.ToBase64())) << error;
  std::size_t good = 0;
  for (const CryptStand::Event& event : stand.GetEvents()) {
    good += event.server == 0 && event.operation == "importKeyRequest" ? 1U : 0U;
  }
  EXPECT_EQ(good, 1U);
}

TEST_F(OperationFailover, LastServersReasonIsReported) {
  SetFaults({.type = FaultType::ErrorCode, .operation = "importKeyRequest", .number = 618});
  EXPECT_FALSE(Import("seal", key.ToBase64()));
  EXPECT_EQ(error, "618 Read-only State");
  EXPECT_EQ(static_cast<std::uint32_t>(status), 0x80004005U);
  EXPECT_TRUE(result.IsNil());
  EXPECT_EQ(CountRequests("importKeyRequest"), 3U);
}

TEST_F(OperationFailover, StopsWhenTokenFails) {
  SetFault(kCryptService, {.type = FaultType::Status, .operation = "authztoken", .number = 503});
  EXPECT_FALSE(Import("seal", key.ToBase64()));
  EXPECT_EQ(error, "Could not get authorization token: HTTP 503");
  EXPECT_EQ(CountRequests("authztoken"), 1U);
  EXPECT_EQ(CountRequests("importKeyRequest"), 0U);
}

/// What a server makes of arguments that are there and cannot be.
struct Row {
  const char* reason;
  const char* operation;
  std::string arguments;  ///< JSON
  std::string error;
};

class OperationArguments : public OperationsTest {
 protected:
  bool PerformRow(const Row& row) {
    OruGuiBase::KVMap arguments = Map(row.arguments);
    arguments.Set("keyserver", KeyServerList());
    arguments.Set("statustimeout", "5");
    return PerformWith(row.operation, arguments);
  }
};

TEST_F(OperationArguments, OfWrongTypeAreSentEmptyAndRefusedByServer) {
  const Row rows[] = {
      {"certificates of other types", "Encrypt", R"({"room":"demo","certificates":[1,{},null]})",
       "603 Invalid Certificate"},
      {"certificates that are no array", "Reencrypt", R"({"group":"QOB.1.100.1","enccert":["x"]})",
       "603 Invalid Certificate"},
      {"a key that is no map", "DeleteKey", R"({"group":"QOB.1.100.1","key":"handle"})",
       "601 Invalid Payload"},
      {"keys that are no maps", "Decrypt", R"({"room":"demo","keys":["x"]})", "605 Invalid Wrapped Key"},
      {"keys without data", "Update", R"({"room":"demo","certificates":[],"keys":[{"id":"a"}]})",
       "605 Invalid Wrapped Key"},
      {"a password that is no text", "ImportKey",
       R"({"group":"QOB.1.100.1","id":"a","key":"AAAA","password":1})", "602 Invalid Key Type"},
      {"URLs of other types", "ConfigGroup", R"({"group":"made","authncrlurls":[true]})",
       "601 Invalid Payload"},
      {"a hash that is missing", "SignByKey",
       R"({"object":"demo","id":"integrity","algorithm":"RSASSA-PKCS1-v1_5-SHA-512"})",
       "601 Invalid Payload"},
  };
  for (const Row& row : rows) {
    EXPECT_FALSE(PerformRow(row)) << row.reason;
    EXPECT_EQ(error, row.error) << row.reason;
    EXPECT_TRUE(result.IsNil()) << row.reason;
  }
  EXPECT_FALSE(stand.GetGroup("made").has_value());
}

TEST_F(OperationArguments, WithoutRoomOrGroupGetNoToken) {
  for (const char* operation :
       {"ConfigGroup", "Reencrypt", "GetAuditLog", "ImportKey", "DeleteKey", "SignByKey", "Encrypt"}) {
    EXPECT_FALSE(PerformRow({"", operation, "{}", ""})) << operation;
    EXPECT_THAT(error, HasSubstr("Could not get authorization token: ")) << operation;
  }
  EXPECT_THAT(scratch.GetTemporaryNames(), IsEmpty());
}

TEST_F(OperationArguments, AKeyThatCannotBeRewrappedFailsTheUpdate) {
  ASSERT_TRUE(Perform("Encrypt", {{"room", Text(kRoom)}})) << error;
  const std::string wrapped = Result("newkey");
  stand.ClearEvents();
  EXPECT_FALSE(Perform("Update", {{"room", Text(kRoom)},
                                  {"keys", Keys({{"a", wrapped}, {"b", "none"}, {"c", wrapped}})},
                                  {"newkey", OruGuiBase::Val(true)}}));
  EXPECT_EQ(error, "605 Invalid Wrapped Key");
  EXPECT_TRUE(result.IsNil());
  EXPECT_EQ(CountRequests("modifyWrappedKeyRequest"), 4U) << "one for the good key, three for the bad one";
  EXPECT_EQ(CountRequests("generateWrappedKeyRequest"), 0U);
}

TEST_F(OperationArguments, NullTransportIsReported) {
  http.reset();
  EXPECT_FALSE(Perform("ConfigGroup", {{"group", Text("g")}}));
  EXPECT_THAT(error, HasSubstr("No HTTP service"));
}

TEST_F(OperationArguments, UnknownOperationSendsNothing) {
  for (const char* name : {"encrypt", "UpdateKey", "CryptCryptUpdate", "Crypt", "", "GetAuditLog "}) {
    EXPECT_FALSE(Perform(name, {{"room", Text(kRoom)}}));
    EXPECT_EQ(static_cast<std::uint32_t>(status), 0x80020003U) << name;
  }
  EXPECT_THAT(stand.GetEvents(), IsEmpty());
}

}  // namespace
}  // namespace TestSupport
