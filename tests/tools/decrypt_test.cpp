#include <sys/stat.h>
#include <thread>

#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::IntegrityList;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class Decrypt : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    Protect();
  }
  /// Makes every check of a signer fail: the group no longer lists its certificate.
  void BreakOrigin() { stand_.GetSettings().SetIntegrityList(IntegrityList::WithoutOurs); }
};

TEST_F(Decrypt, GivesTheContentBackAndReportsItsOrigin) {
  const Finished finished = Run("decrypt", {Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.output,
            "Decrypted " + Path("file.p7m") + " to " + Path("opened.txt") + " (origin verified)\n");
  EXPECT_THAT(finished.errors, IsEmpty());
  EXPECT_EQ(scratch_.Read("opened.txt"), "The plain content.\n");
}

TEST_F(Decrypt, ReportsAsJSON) {
  const Finished finished = Run("decrypt", {"--json", Path("file.p7m"), Path("opened.txt")});
  const OruGuiBase::KVMap report = Map(finished.output);
  EXPECT_EQ(Str(report.Get("operation").AsString()), "decrypt");
  EXPECT_TRUE(report.Get("isSigned").AsBool());
  EXPECT_TRUE(report.Get("isVerified").AsBool());
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(Decrypt, DeliversAProvenOriginWhenItIsDemanded) {
  EXPECT_EQ(Run("decrypt", {"--require-verified", Path("file.p7m"), Path("opened.txt")}).code, 0);
  EXPECT_EQ(scratch_.Read("opened.txt"), "The plain content.\n");
}

TEST_F(Decrypt, AnUnprovenOriginIsDeliveredWithAWarning) {
  BreakOrigin();
  const Finished finished = Run("decrypt", {Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, HasSubstr("(signed, origin NOT verified)"));
  EXPECT_THAT(finished.errors, HasSubstr("Could not find a matching integrity certificate"));
  EXPECT_EQ(scratch_.Read("opened.txt"), "The plain content.\n");
}

TEST_F(Decrypt, AnUnprovenOriginIsInTheJSON) {
  BreakOrigin();
  const OruGuiBase::KVMap report =
      Map(Run("decrypt", {"--json", Path("file.p7m"), Path("opened.txt")}).output);
  EXPECT_TRUE(report.Get("success").AsBool());
  EXPECT_TRUE(report.Get("isSigned").AsBool());
  EXPECT_FALSE(report.Get("isVerified").AsBool());
  EXPECT_THAT(Str(report.Get("warning").AsString()), HasSubstr("Could not find a matching"));
}

TEST_F(Decrypt, AnUnprovenOriginDeliversNothingWhenItIsDemanded) {
  BreakOrigin();
  const Finished finished = Run("decrypt", {"--require-verified", Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 3);
  EXPECT_THAT(finished.output, IsEmpty());
  EXPECT_THAT(finished.errors, HasSubstr("Could not find a matching integrity certificate"));
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

TEST_F(Decrypt, AnUnprovenOriginReplacesNothingWhenItIsDemanded) {
  BreakOrigin();
  scratch_.Make("opened.txt", "kept");
  const Finished finished =
      Run("decrypt", {"--require-verified", "--force", "--json", Path("file.p7m"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 3);
  EXPECT_EQ(scratch_.Read("opened.txt"), "kept");
  EXPECT_EQ(Map(finished.output).Get("exitCode").AsInteger(), 3);
}

// Changed ciphertext can decrypt to something that is not a signed message, which then counts as unsigned
// content.
TEST_F(Decrypt, ATamperedFileIsNeverDeliveredWhenAProvenOriginIsDemanded) {
  const std::string good = scratch_.Read("file.p7m");
  for (const std::size_t part : {2U, 3U, 4U}) {
    std::string bytes = good;
    bytes[bytes.size() / part] = static_cast<char>(bytes[bytes.size() / part] ^ 1);
    scratch_.Make("tampered.p7m", bytes);
    const Finished finished =
        Run("decrypt", {"--require-verified", Path("tampered.p7m"), Path("opened.txt")});
    EXPECT_THAT(finished.code, AnyOf(1, 3)) << part;
    EXPECT_FALSE(scratch_.Exists("opened.txt")) << part;
  }
}

TEST_F(Decrypt, AFileThatIsNotProtectedIsAFailure) {
  const Finished finished = Run("decrypt", {Path("plain.txt"), Path("opened.txt")});
  EXPECT_EQ(finished.code, 1);
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
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Connection refused"));
}

}  // namespace
}  // namespace TestSupport
