#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST(OperationsCommand, ShowsEachOperationWithItsArguments) {
  const Finished finished = RunCommand({"operations"});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, HasSubstr("ConfigGroup: "));
  EXPECT_THAT(finished.output, HasSubstr("  keyserver (array of strings): "));
  EXPECT_THAT(finished.output, HasSubstr("  statustimeout (string, optional): "));
}

TEST(OperationsCommand, ShowsOneOperation) {
  for (const char* name : {"SignByKey", "CryptSignByKey"}) {
    const Finished finished = RunCommand({"operations", name});
    EXPECT_THAT(finished.output, StartsWith("SignByKey: ")) << name;
    EXPECT_THAT(finished.output, Not(HasSubstr("ConfigGroup")));
  }
}

TEST(OperationsCommand, ReportsAsJSON) {
  const OruGuiBase::KVMap report = Map(RunCommand({"operations", "--json", "Update"}).output);
  const OruGuiBase::Array<OruGuiBase::Val> operations = report.Get("operations").AsArray();
  ASSERT_EQ(operations.GetCount(), 1U);
  EXPECT_EQ(Str(operations[0].AsMap().Get("name").AsString()), "Update");
  EXPECT_GT(operations[0].AsMap().Get("arguments").AsArray().GetCount(), 3U);
}

TEST(OperationsCommand, SuggestsTheNameThatWasMeant) {
  const Finished finished = RunCommand({"operations", "SignByKye"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors, "cryptcli: Unknown operation \"SignByKye\"; did you mean \"SignByKey\"?\n");
}

}  // namespace
}  // namespace TestSupport
