#include <sys/stat.h>
#include <thread>

#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::IntegrityList;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class Decrypt : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    Protect();
  }
  static std::string SignerOf(const std::string& output) {
    constexpr std::string_view kLabel = "  signer: ";
    const std::size_t at = output.find(kLabel);
    if (at == std::string::npos) return {};
    return output.substr(at + kLabel.size(), output.find('\n', at) - at - kLabel.size());
  }
  /// Makes every check of a signer fail: the group no longer lists its certificate.
  void BreakOrigin() { stand_.GetSettings().SetIntegrityList(IntegrityList::WithoutOurs); }
};

TEST_F(Decrypt, GivesTheContentBackAndReportsItsOrigin) {
  const Finished finished = Run("decrypt", {Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.output, "Decrypted " + Path("file.p7m") + " to " + Path("opened.txt") +
                                 " (origin proven)\n" +
                                 "  signed for room \"demo\" of group \"QOB.1.100.1\"\n  signer: " +
                                 SignerOf(finished.output) + "\n");
  EXPECT_THAT(SignerOf(finished.output), HasSubstr("CN="));
  EXPECT_THAT(finished.errors, IsEmpty());
  EXPECT_EQ(scratch_.Read("opened.txt"), "The plain content.\n");
}

TEST_F(Decrypt, ReportsAsJSON) {
  const Finished finished = Run("decrypt", {"--json", Path("file.p7m"), Path("opened.txt")});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(Str(report.Get("operation").AsString()), "decrypt");
  EXPECT_EQ(Str(report.Get("origin").AsString()), "proven");
  EXPECT_EQ(Str(report.Get("reason").AsString()), "");
  EXPECT_EQ(Str(report.Get("signedRoom").AsString()), "demo");
  EXPECT_EQ(Str(report.Get("signedGroup").AsString()), "QOB.1.100.1");
  EXPECT_EQ(Str(report.Get("serviceRoom").AsString()), "demo");
  EXPECT_GE(report.Get("chain").AsArray().GetCount(), 2U);
  EXPECT_EQ(report.Get("bytes").AsInteger(), 19);
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(Decrypt, ShowsTheChainAndTheServicesRoomWhenVerbose) {
  const Finished finished = Run("decrypt", {"-v", Path("file.p7m"), Path("opened.txt")});
  EXPECT_THAT(finished.output,
              HasSubstr("  the crypt service named room \"demo\" of group \"QOB.1.100.1\"\n"));
  EXPECT_THAT(finished.output, HasSubstr("  room URL: "));
  EXPECT_THAT(finished.output, HasSubstr("  issued by: CN="));
}

TEST_F(Decrypt, ShowsNothingWhenQuiet) {
  const Finished finished = Run("decrypt", {"--quiet", Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, IsEmpty());
  EXPECT_THAT(finished.errors, IsEmpty());
}

TEST_F(Decrypt, DeliversNothingOfUnprovenOrigin) {
  BreakOrigin();
  const Finished finished = Run("decrypt", {Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 3);
  EXPECT_THAT(finished.output, IsEmpty());
  EXPECT_THAT(finished.errors, HasSubstr("is not proven: Could not find a matching integrity certificate"));
  EXPECT_THAT(finished.errors, HasSubstr("  signed for room \"demo\" of group \"QOB.1.100.1\"\n"));
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

TEST_F(Decrypt, ReplacesNothingByContentOfUnprovenOrigin) {
  BreakOrigin();
  scratch_.Make("opened.txt", "kept");
  EXPECT_EQ(Run("decrypt", {"--force", Path("file.p7m"), Path("opened.txt")}).code, 3);
  EXPECT_EQ(scratch_.Read("opened.txt"), "kept");
}

TEST_F(Decrypt, ReportsAnUnprovenOriginAsJSON) {
  BreakOrigin();
  const OruGuiBase::KVMap report =
      Map(Run("decrypt", {"--json", Path("file.p7m"), Path("opened.txt")}).output);
  EXPECT_FALSE(report.Get("success").AsBool());
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 3);
  EXPECT_EQ(Str(report.Get("code").AsString()), "origin_not_proven");
  EXPECT_EQ(Str(report.Get("origin").AsString()), "unproven");
  EXPECT_EQ(Str(report.Get("signedRoom").AsString()), "demo");
  EXPECT_THAT(Str(report.Get("reason").AsString()), HasSubstr("Could not find a matching"));
  EXPECT_THAT(Str(report.Get("error").AsString()), HasSubstr("is not proven: Could not find a matching"));
}

TEST_F(Decrypt, DeliversUnprovenContentWhenAnythingIsAccepted) {
  BreakOrigin();
  const Finished finished = Run("decrypt", {"--accept", "anything", Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, HasSubstr("(signed, origin NOT proven)"));
  EXPECT_THAT(finished.errors, HasSubstr("Warning: The origin of the content is not proven: Could not find"));
  EXPECT_EQ(scratch_.Read("opened.txt"), "The plain content.\n");
}

TEST_F(Decrypt, WarnsOfUnprovenContentInTheJSON) {
  BreakOrigin();
  const OruGuiBase::KVMap report =
      Map(Run("decrypt", {"--json", "--accept", "anything", Path("file.p7m"), Path("opened.txt")}).output);
  EXPECT_TRUE(report.Get("success").AsBool());
  EXPECT_EQ(Str(report.Get("origin").AsString()), "unproven");
  EXPECT_THAT(Str(report.Get("warning").AsString()), HasSubstr("Could not find a matching"));
}

TEST_F(Decrypt, AcceptsNoOtherOriginThanTheNamedOnes) {
  const Finished finished = Run("decrypt", {"--accept", "all", Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("--accept"));
}

TEST_F(Decrypt, RequireVerifiedIsTheDefaultAndExcludesAnotherChoice) {
  BreakOrigin();
  EXPECT_EQ(Run("decrypt", {"--require-verified", Path("file.p7m"), Path("opened.txt")}).code, 3);
  EXPECT_EQ(
      Run("decrypt", {"--require-verified", "--accept", "anything", Path("file.p7m"), Path("opened.txt")})
          .code,
      2);
}

TEST_F(Decrypt, AFileThatIsNotProtectedIsAFailure) {
  const Finished finished = Run("decrypt", {Path("plain.txt"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 7);
  EXPECT_THAT(finished.errors, HasSubstr("Could not parse encrypted file: "));
  EXPECT_FALSE(scratch_.Exists("opened.txt"));
}

TEST_F(Decrypt, StandardOutputTakesTheContentAlone) {
  const Finished finished = Run("decrypt", {Path("file.p7m"), "/dev/stdout"});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.output, "The plain content.\n");
  EXPECT_THAT(finished.errors, HasSubstr("Decrypted "));
}

TEST_F(Decrypt, AFileAsStandardOutputIsNotWrittenOver) {
  std::string line = "(echo before; '" CRYPTCLI_COMMAND "'";
  for (const std::string& argument : Arguments("decrypt", {Path("file.p7m"), "/dev/stdout"}))
    line += " '" + argument + "'";
  const Finished finished = RunProcess({"/bin/sh", {"-c", line + ") > '" + Path("out") + "'"}});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  const std::string written = scratch_.Read("out");
  EXPECT_TRUE(written.starts_with("before\nThe plain content.\n")) << written;
}

TEST_F(Decrypt, ReadsFromAFIFO) {
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  std::thread writer([&] { WriteFile(Path("fifo"), scratch_.Read("file.p7m")); });
  const Finished finished = Run("decrypt", {Path("fifo"), Path("t")});
  writer.join();
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(scratch_.Read("t"), "The plain content.\n");
}

TEST_F(Decrypt, ReadsFromPipedStandardInput) {
  std::string line = "cat '" + Path("file.p7m") + "' | '" CRYPTCLI_COMMAND "'";
  for (const std::string& argument : Arguments("decrypt", {"/dev/stdin", Path("t")}))
    line += " '" + argument + "'";
  const Finished finished = RunProcess({"/bin/sh", {"-c", line}});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(scratch_.Read("t"), "The plain content.\n");
}

TEST_F(Decrypt, LeavesATargetThatIsThere) {
  scratch_.Make("opened.txt", "kept");
  EXPECT_EQ(Run("decrypt", {Path("file.p7m"), Path("opened.txt")}).code, 1);
  EXPECT_EQ(scratch_.Read("opened.txt"), "kept");
}

TEST_F(Decrypt, FindsItsKeyAlthoughAllKeyServersButOneAreDown) {
  for (int server = 0; server < 2; ++server)
    ASSERT_TRUE(stand_.SetFault(server, {CryptStand::FaultType::Down}));
  EXPECT_EQ(Run("decrypt", {Path("file.p7m"), Path("opened.txt")}).code, 0);
}

TEST_F(Decrypt, WithoutAnyKeyServerIsAFailure) {
  for (int server = 0; server < 3; ++server)
    ASSERT_TRUE(stand_.SetFault(server, {CryptStand::FaultType::Down}));
  const Finished finished = Run("decrypt", {Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 6);
  EXPECT_THAT(finished.errors, HasSubstr("Connection refused"));
}

}  // namespace
}  // namespace TestSupport
