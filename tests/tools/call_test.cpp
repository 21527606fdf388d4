#include "tests/tools/operation_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::FaultType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class Call : public OperationTest {
 protected:
  // Deletes the one log in the temporary directory and returns its bytes.
  std::string TakeLog() const {
    const std::vector<std::string> names = scratch_.GetTemporaryNames();
    EXPECT_EQ(names.size(), 1U);
    if (names.empty()) return {};
    const std::string path = "temporary/" + names.front();
    std::string bytes = scratch_.Read(path);
    std::filesystem::remove(scratch_.Path(path));
    return bytes;
  }
};

TEST_F(Call, PerformsTheOperationWithTheArgumentsOfAFile) {
  const Finished finished =
      OperationTest::Call("ConfigGroup", Texts({{"group", "called"}, {"groupname", "Called"}}));
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.output, "{}\n");
  EXPECT_THAT(finished.errors, IsEmpty());
  ASSERT_TRUE(stand_.GetGroup("called").has_value());
  EXPECT_EQ(stand_.GetGroup("called")->name, "Called");
}

TEST_F(Call, TakesTheNameWithItsPrefixAsWell) {
  EXPECT_EQ(OperationTest::Call("CryptConfigGroup", Texts({{"group", "prefixed"}})).code, 0);
  EXPECT_TRUE(stand_.GetGroup("prefixed").has_value());
}

TEST_F(Call, TakesArgumentsFromStandardInput) {
  scratch_.Make("input", JsonText(CallArguments(Texts({{"group", "from input"}}))));
  const Finished finished = RunProcess(
      {CRYPTCLI_COMMAND, WithService("call", {"ConfigGroup", "--args", "-"}), "", false, Path("input")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_TRUE(stand_.GetGroup("from input").has_value());
}

TEST_F(Call, WritesTheResultAsOneJSONObject) {
  OruGuiBase::KVMap arguments = Texts({{"room", "demo"}, {"seqnr", "7\x7F"}});
  arguments.Set("certificates", OruGuiBase::Val(Strings({})));
  const Finished finished = OperationTest::Call("Encrypt", arguments);
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, StartsWith("{\"room\":\"demo\",\"seqnr\":\"7"));
  EXPECT_TRUE(finished.output.ends_with("}\n"));
  EXPECT_EQ(Str(Map(finished.output).Get("seqnr").AsString()), "7\x7F");
  EXPECT_FALSE(Map(finished.output).Get("newkey").AsString().IsEmpty());
}

TEST_F(Call, ReportsAsJSON) {
  OruGuiBase::KVMap arguments = Texts({{"room", "demo"}, {"seqnr", "8"}});
  arguments.Set("certificates", OruGuiBase::Val(Strings({})));
  const Finished finished = OperationTest::Call("Update", arguments, {"--json"});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(Str(report.Get("operation").AsString()), "call");
  EXPECT_EQ(Str(report.Get("name").AsString()), "Update");
  EXPECT_EQ(JsonText(report.Get("result").AsMap()), R"({"room":"demo","seqnr":"8"})");
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(Call, TracesRequestLinesOnRequest) {
  const Finished finished =
      OperationTest::Call("ConfigGroup", Texts({{"group", "traced"}}), {"--trace", "1"});
  EXPECT_THAT(finished.errors, HasSubstr("/rest/json"));
  EXPECT_EQ(finished.output, "{}\n");
}

TEST_F(Call, LeavesTheAuditLogWhereTheResultSays) {
  const Finished finished =
      OperationTest::Call("GetAuditLog", Texts({{"group", kGroup}, {"groupname", "Demo"}}));
  EXPECT_EQ(finished.code, 0) << finished.errors;
  const std::string path = Str(Map(finished.output).Get("filename").AsString());
  EXPECT_THAT(path, StartsWith(Path("temporary") + "/Audit Log Demo "));
  EXPECT_TRUE(std::filesystem::exists(path));
  EXPECT_THAT(TakeLog(), StartsWith("time,server,group,operation,room,key,outcome\n"));
}

TEST_F(Call, APartialAuditLogHasACodeOfItsOwn) {
  ASSERT_TRUE(stand_.SetFault(1, {FaultType::SecStatus, "getAuditLogRequest", 0, 612}));
  const Finished finished = OperationTest::Call("GetAuditLog", Texts({{"group", kGroup}}));
  EXPECT_EQ(finished.code, 5);
  EXPECT_EQ(finished.errors,
            "cryptcli: Warning: Could not get audit log from all key servers: 612 Auditlog Error\n");
  EXPECT_THAT(finished.output, HasSubstr("filename"));
  EXPECT_THAT(TakeLog(), StartsWith("time,"));
}

TEST_F(Call, APartialAuditLogIsInTheJSON) {
  ASSERT_TRUE(stand_.SetFault(2, {FaultType::SecStatus, "getAuditLogRequest", 0, 607}));
  const Finished finished = OperationTest::Call("GetAuditLog", Texts({{"group", kGroup}}), {"--json"});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 5);
  EXPECT_FALSE(report.Get("success").AsBool());
  EXPECT_EQ(Str(report.Get("warning").AsString()),
            "Could not get audit log from all key servers: 607 Key Not Found");
  EXPECT_EQ(Str(report.Get("code").AsString()), "server_error");
  EXPECT_EQ(report.Get("result").AsMap().GetCount(), 1U) << "the file name alone";
  EXPECT_THAT(finished.errors, IsEmpty());
  TakeLog();
}

TEST_F(Call, GoesOnWithTheNextKeyServer) {
  ASSERT_TRUE(stand_.SetFault(0, {FaultType::Down}));
  ASSERT_TRUE(stand_.SetFault(2, {FaultType::Down}));
  EXPECT_EQ(OperationTest::Call("ConfigGroup", Texts({{"group", "failover"}})).code, 0);
  EXPECT_TRUE(stand_.GetGroup("failover").has_value());
}

}  // namespace
}  // namespace TestSupport
