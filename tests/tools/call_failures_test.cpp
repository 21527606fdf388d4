// What can be wrong with a call, and how the command reports it.
#include <filesystem>
#include <unistd.h>

#include "tests/tools/operation_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::FaultType;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class CallFailures : public OperationTest {
 protected:
  Finished CallWith(const std::string& source, const std::string& operation = "ConfigGroup") const {
    return RunCommand(WithService("call", {operation, "--args", source}));
  }
};

TEST_F(CallFailures, AnOperationThatFailsReportsItsReason) {
  OruGuiBase::KVMap arguments = Texts({{"group", kGroup}});
  arguments.Set("key", OruGuiBase::Val(Texts({{"type", "handle"}, {"id", "none"}, {"subId", "1"}})));
  const Finished finished = Call("DeleteKey", arguments);
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "cryptcli: 607 Key Not Found\n");
  EXPECT_THAT(finished.output, IsEmpty());
}

TEST_F(CallFailures, AFailureIsInTheJSON) {
  const Finished finished = Call("Reencrypt", Texts({{"group", kGroup}, {"enccert", "none"}}), {"--json"});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(Str(report.Get("error").AsString()), "603 Invalid Certificate");
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 1);
  EXPECT_FALSE(report.Get("success").AsBool());
  EXPECT_TRUE(report.Get("result").IsNil());
  EXPECT_THAT(finished.errors, IsEmpty());
}

TEST_F(CallFailures, AnUnknownOperationIsCode2) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"encrypt", "Encrypt"}, {"UpdateKey", "Update"},         {"CryptUpdat", "Update"},
      {"Crypt", ""},          {"ConfigGroup ", "ConfigGroup"}, {"getauditlog", "GetAuditLog"},
      {"Rekey", ""},          {"CryptCryptUpdate", ""}};
  for (const auto& [name, meant] : rows) {
    const Finished finished = Call(name, Texts({}));
    EXPECT_EQ(finished.code, 2) << name;
    const std::string suggestion = meant.empty() ? "" : "; did you mean \"" + meant + "\"?";
    EXPECT_EQ(finished.errors, "cryptcli: Unknown operation \"" + name + "\"" + suggestion + "\n");
    EXPECT_THAT(finished.output, IsEmpty());
  }
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

struct Row {
  const char* reason;
  std::string text;
  const char* error;
};

TEST_F(CallFailures, ArgumentsThatAreNoJSONObjectAreCode2) {
  const std::vector<Row> rows = {
      {"nothing", "", "The arguments are no JSON: "},
      {"blanks", " \n", "The arguments are no JSON: "},
      {"no JSON", "secret", "The arguments are no JSON: "},
      {"cut", R"({"group":"secret)", "The arguments are no JSON: "},
      {"a value after it", R"({"group":"secret"} {})", "The arguments are no JSON: "},
      {"no UTF-8", "{\"group\":\"secret\xFF\"}", "The arguments are no JSON: "},
      {"a comma too many", R"({"group":"secret",})", "The arguments are no JSON: "},
      {"too deep", std::string(1000, '[') + std::string(1000, ']'), "The arguments are no JSON: "},
      {"an array", R"(["secret"])", "The arguments are no JSON object\n"},
      {"a text", R"("secret")", "The arguments are no JSON object\n"},
      {"a number", "1", "The arguments are no JSON object\n"},
      {"true", "true", "The arguments are no JSON object\n"},
      {"null", "null", "The arguments are no JSON object\n"},
  };
  for (const Row& row : rows) {
    scratch_.Make("bad.json", row.text);
    const Finished finished = CallWith(Path("bad.json"));
    EXPECT_EQ(finished.code, 2) << row.reason;
    EXPECT_THAT(finished.errors, HasSubstr(row.error)) << row.reason;
    EXPECT_THAT(finished.errors, Not(HasSubstr("secret"))) << "they may hold one: " << row.reason;
    EXPECT_THAT(finished.output, IsEmpty()) << row.reason;
  }
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(CallFailures, EmptyStandardInputIsNoJSON) {
  EXPECT_EQ(CallWith("-").code, 2);
}

TEST_F(CallFailures, ReportsUnreadableStandardInput) {
  const Finished finished = RunProcess(
      {CRYPTCLI_COMMAND, WithService("call", {"ConfigGroup", "--args", "-"}), "", false, Path("temporary")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors, "cryptcli: Could not read standard input: Is a directory\n");
}

TEST_F(CallFailures, ArgumentsThatCannotBeReadAreCode2) {
  const std::vector<Row> rows = {
      {"a file that is not there", Path("none"), "No such file or directory"},
      {"a directory", Path("temporary"), "Is a directory"},
      {"a path through a file", Path("plain.txt") + "/x", "Not a directory"},
  };
  for (const Row& row : rows) {
    const Finished finished = CallWith(row.text);
    EXPECT_EQ(finished.code, 2) << row.reason;
    EXPECT_EQ(finished.errors, "cryptcli: Could not read \"" + row.text + "\": " + row.error + "\n");
  }
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(CallFailures, ArgumentsThatMayNotBeReadAreCode2) {
  if (geteuid() == 0) GTEST_SKIP() << "root may read everything";
  scratch_.Make("args.json", "{}");
  std::filesystem::permissions(scratch_.Path("args.json"), std::filesystem::perms::none);
  const Finished finished = CallWith(Path("args.json"));
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("Permission denied"));
}

TEST_F(CallFailures, AMissingArgumentIsCode2) {
  scratch_.Make("args.json", "{}");
  for (const char* name : {"ConfigGroup", "Reencrypt", "GetAuditLog", "ImportKey", "DeleteKey", "SignByKey",
                           "Encrypt", "Decrypt", "Update"}) {
    const Finished finished = CallWith(Path("args.json"), name);
    EXPECT_EQ(finished.code, 2) << name;
    EXPECT_EQ(finished.errors, std::string("cryptcli: Missing argument \"keyserver\" of ") + name + "\n");
  }
}

TEST_F(CallFailures, AMisspeltArgumentIsCode2AndNothingIsSent) {
  const Finished finished = Call("ConfigGroup", Texts({{"group", kGroup}, {"gruopname", "secret"}}));
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors,
            "cryptcli: Unknown argument \"gruopname\" of ConfigGroup; did you mean \"groupname\"?\n");
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(CallFailures, AnArgumentOfAnotherTypeIsCode2AndNothingIsSent) {
  scratch_.Make("args.json", R"({"keyserver":["http://127.0.0.1:1"],"statustimeout":5,"group":"g"})");
  const Finished finished = CallWith(Path("args.json"));
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors,
            "cryptcli: Argument \"statustimeout\" of ConfigGroup has to be of type string\n");
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(CallFailures, ReportsThatAllKeyServersAreDown) {
  SetFaults({FaultType::Down});
  const Finished finished = Call("ConfigGroup", Texts({{"group", "unreached"}}));
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.errors, HasSubstr("Could not connect to key server: "));
  EXPECT_FALSE(stand_.GetGroup("unreached").has_value());
}

TEST_F(CallFailures, AnAuditLogThatNoServerReturnsLeavesNothing) {
  SetFaults({FaultType::Cut, "getAuditLogRequest"});
  const Finished finished = Call("GetAuditLog", Texts({{"group", kGroup}}));
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.output, IsEmpty());
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

TEST_F(CallFailures, AServiceThatIsNoUrlIsCode2) {
  scratch_.Make("args.json", "{}");
  EXPECT_EQ(RunCommand({"call", "--service", "nowhere", "Update", "--args", Path("args.json")}).code, 2);
}

TEST_F(CallFailures, SaysThatItSucceededWhenOnlyTheResultIsLost) {
  scratch_.Make("args.json", JsonText(CallArguments(Texts({{"group", "unwritten"}}))));
  const Finished finished = RunProcess(
      {CRYPTCLI_COMMAND, WithService("call", {"ConfigGroup", "--args", Path("args.json")}), "/dev/full"});
  EXPECT_EQ(finished.code, 9);
  EXPECT_THAT(finished.errors, HasSubstr("(the operation itself succeeded)"));
  EXPECT_TRUE(stand_.GetGroup("unwritten").has_value());
}

}  // namespace
}  // namespace TestSupport
