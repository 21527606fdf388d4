#include <algorithm>
#include <filesystem>

#include "tests/foundation/file_size_limit.h"
#include "tests/tools/operation_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::FaultType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kHeader = "time,server,group,operation,room,key,outcome\n";

class AuditLogCommand : public OperationTest {
 protected:
  void SetUp() override {
    OperationTest::SetUp();
    for (int server = 0; server < 3; ++server) stand_.GetSettings().SetGeneratedAudit(server, 200);
  }
  void TearDown() override {
    for (int server = 0; server < 3; ++server) stand_.GetSettings().SetGeneratedAudit(server, 0);
    OperationTest::TearDown();
  }

  std::vector<std::string> Arguments(const std::vector<std::string>& further) const {
    std::vector<std::string> all = WithServers("audit-log", {"--group", kGroup});
    all.insert(all.end(), further.begin(), further.end());
    return all;
  }
  Finished Run(const std::vector<std::string>& further) const { return RunCommand(Arguments(further)); }
  Finished RunToFile(std::vector<std::string> further = {}) const {
    further.insert(further.end(), {"--output", Path("log.csv")});
    return Run(further);
  }

  void RefuseLog(int server, const char* status) {
    ASSERT_TRUE(stand_.SetFault(server, {FaultType::SecStatus, "getAuditLogRequest", 0, 0, status}));
  }
  // A complete log has one header and then the records of the three servers, one after another.
  static void ExpectLog(const std::string& log, const std::vector<int>& servers) {
    EXPECT_THAT(log, StartsWith(kHeader));
    EXPECT_EQ(log.find(kHeader, 1), std::string::npos);
    std::vector<std::size_t> places;
    for (int server = 0; server < 3; ++server) {
      const std::string quoted =
          "," + std::to_string(server) +
          ",QOB.1.100.1,generateWrappedKeyRequest,\"Room \"\"100\"\", generated\",,ok\n";
      const bool isWanted = std::find(servers.begin(), servers.end(), server) != servers.end();
      EXPECT_EQ(log.find(quoted) != std::string::npos, isWanted) << server;
      if (isWanted) places.push_back(log.find(quoted));
    }
    EXPECT_TRUE(std::is_sorted(places.begin(), places.end()));
  }
  void ExpectNothing() const {
    EXPECT_THAT(Names(), ElementsAre("plain.txt"));
    EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
  }
};

TEST_F(AuditLogCommand, AnIncompleteLogHasTheMembersOfAnErrorInTheJSON) {
  ASSERT_TRUE(stand_.SetFault(0, {FaultType::Down}));
  const Finished finished = RunCommand(Arguments({"--json", "-o", Path("log.csv")}));
  EXPECT_EQ(finished.code, 5) << finished.errors;
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_FALSE(report.Get("complete").AsBool());
  EXPECT_EQ(Str(report.Get("code").AsString()), "unreachable");
  EXPECT_EQ(Str(report.Get("error").AsString()), Str(report.Get("warning").AsString()));
  EXPECT_TRUE(report.Get("retryable").AsBool());
  const OruGuiBase::Array<OruGuiBase::Val> attempts = report.Get("attempts").AsArray();
  ASSERT_EQ(attempts.GetCount(), 1U);
  EXPECT_EQ(Str(attempts[0].AsMap().Get("server").AsString()), stand_.GetKeyServerUrls().front());
}

TEST_F(AuditLogCommand, GoesToStandardOutput) {
  const Finished finished = Run({});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.errors, IsEmpty());
  ExpectLog(finished.output, {0, 1, 2});
  ExpectNothing();
}

TEST_F(AuditLogCommand, GoesToAFileAndSaysSo) {
  const Finished finished = RunToFile({"--group-name", "Demo / group"});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(finished.output, "Wrote the audit log of QOB.1.100.1 to " + Path("log.csv") + "\n");
  ExpectLog(scratch_.Read("log.csv"), {0, 1, 2});
}

TEST_F(AuditLogCommand, LearnsTheKeyServersFromTheRoom) {
  const Finished finished = RunCommand(WithService("audit-log", {"--room", "demo", "--group", kGroup}));
  EXPECT_EQ(finished.code, 0) << finished.errors;
  ExpectLog(finished.output, {0, 1, 2});
}

TEST_F(AuditLogCommand, ReportsAsJSON) {
  const OruGuiBase::KVMap report = Map(RunToFile({"--json"}).output);
  EXPECT_EQ(Str(report.Get("operation").AsString()), "audit-log");
  EXPECT_EQ(Str(report.Get("output").AsString()), Path("log.csv"));
  EXPECT_TRUE(report.Get("complete").AsBool());
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(AuditLogCommand, APartialLogIsWrittenAndHasACodeOfItsOwn) {
  RefuseLog(1, "607");
  const Finished finished = RunToFile();
  EXPECT_EQ(finished.code, 5);
  EXPECT_EQ(finished.errors,
            "cryptcli: Warning: Could not get audit log from all key servers: 607 Key Not Found\n");
  EXPECT_THAT(finished.output, HasSubstr("(NOT complete)"));
  ExpectLog(scratch_.Read("log.csv"), {0, 2});
}

TEST_F(AuditLogCommand, APartialLogGoesToStandardOutputWithTheSameCode) {
  RefuseLog(0, "612");
  const Finished finished = Run({});
  EXPECT_EQ(finished.code, 5);
  EXPECT_THAT(finished.errors, HasSubstr("612 Auditlog Error"));
  ExpectLog(finished.output, {1, 2});
}

TEST_F(AuditLogCommand, APartialLogIsInTheJSON) {
  RefuseLog(2, "612");
  const OruGuiBase::KVMap report = Map(RunToFile({"--json"}).output);
  EXPECT_FALSE(report.Get("complete").AsBool());
  EXPECT_FALSE(report.Get("success").AsBool());
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 5);
  EXPECT_THAT(Str(report.Get("warning").AsString()), HasSubstr("612 Auditlog Error"));
}

TEST_F(AuditLogCommand, AServerThatDiesInTheMiddleOfItsLogGivesNone) {
  ASSERT_TRUE(stand_.SetFault(1, {FaultType::Cut, "getAuditLogRequest"}));
  const Finished finished = RunToFile();
  EXPECT_EQ(finished.code, 5);
  ExpectLog(scratch_.Read("log.csv"), {0, 2});
}

TEST_F(AuditLogCommand, WithoutAnyLogLeavesNoFile) {
  for (int server = 0; server < 3; ++server) RefuseLog(server, "607");
  const Finished finished = RunToFile();
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "cryptcli: 607 Key Not Found\n");
  EXPECT_THAT(finished.output, IsEmpty());
  ExpectNothing();
}

TEST_F(AuditLogCommand, AnUnknownGroupIsAFailure) {
  const Finished finished = RunCommand(WithServers("audit-log", {"--group", "nobody's"}));
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Could not get authorization token: "));
  ExpectNothing();
}

TEST_F(AuditLogCommand, LeavesATargetThatIsThere) {
  scratch_.Make("log.csv", "kept");
  const Finished finished = RunToFile();
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("--force"));
  EXPECT_EQ(scratch_.Read("log.csv"), "kept");
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(AuditLogCommand, ReplacesItWhenForced) {
  scratch_.Make("log.csv", "old");
  EXPECT_EQ(RunToFile({"--force"}).code, 0);
  ExpectLog(scratch_.Read("log.csv"), {0, 1, 2});
}

TEST_F(AuditLogCommand, AFailureLeavesAForcedTargetAsItWas) {
  scratch_.Make("log.csv", "kept");
  SetFaults({FaultType::Down});
  EXPECT_EQ(RunToFile({"--force"}).code, 6);
  EXPECT_EQ(scratch_.Read("log.csv"), "kept");
}

TEST_F(AuditLogCommand, ReportsAnImpossibleTargetBeforeAskingAnyServer) {
  for (const char* target : {"none/log.csv", "temporary", "plain.txt/log.csv"}) {
    const Finished finished = Run({"--force", "--output", Path(target)});
    EXPECT_EQ(finished.code, 1) << target;
    EXPECT_THAT(finished.errors, HasSubstr("Could not write ")) << target;
  }
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(AuditLogCommand, JSONAndTheLogDoNotShareStandardOutput) {
  const Finished finished = Run({"--json"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(Str(Map(finished.output).Get("error").AsString()), HasSubstr("--output"));
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(AuditLogCommand, AFullDiskLeavesNoFile) {
  ASSERT_EQ(RunToFile().code, 0);
  const std::uint64_t whole = scratch_.Read("log.csv").size();
  std::filesystem::remove(scratch_.Path("log.csv"));
  Finished finished;
  {
    // One server's log fits, two together do not.
    const OruGuiBase::FileSizeLimit limit(whole / 2);
    finished = RunToFile();
  }
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Could not write to "));
  EXPECT_THAT(finished.errors, HasSubstr("File too large"));
  ExpectNothing();
}

TEST_F(AuditLogCommand, ReportsAFullStandardOutput) {
  const Finished finished = RunProcess({CRYPTCLI_COMMAND, Arguments({}), "/dev/full"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "cryptcli: Could not write to standard output: No space left on device\n");
  ExpectNothing();
}

TEST_F(AuditLogCommand, AReaderThatGoesAwayLeavesNothing) {
  // Larger than the buffer of a pipe.
  stand_.GetSettings().SetGeneratedAudit(0, 5000);
  std::vector<std::string> arguments{"-c", R"("$0" "$@" | head -c 4)", CRYPTCLI_COMMAND};
  const std::vector<std::string> further = Arguments({});
  arguments.insert(arguments.end(), further.begin(), further.end());
  const Finished finished = RunProcess({"/bin/sh", arguments});
  EXPECT_EQ(finished.output, "time");
  EXPECT_EQ(finished.errors, "cryptcli: Could not write to standard output: Broken pipe\n");
  ExpectNothing();
}

TEST_F(AuditLogCommand, ATimeoutThatIsNoNumberIsCode2) {
  for (const char* timeout : {"soon", "-1", "4294967296"}) {
    const Finished finished =
        RunCommand(WithService("audit-log", {"--group", kGroup, "--key-server", stand_.GetKeyServerUrls()[0],
                                             "--status-timeout", timeout}));
    EXPECT_EQ(finished.code, 2) << timeout;
  }
}

}  // namespace
}  // namespace TestSupport
