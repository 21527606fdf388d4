// "verify" and "rekey": what opens protected files without delivering their content.
#include <filesystem>

#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::IntegrityList;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class Verify : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    Protect();
  }
  void BreakOrigin() { stand_.GetSettings().SetIntegrityList(IntegrityList::WithoutOurs); }
  OruGuiBase::KVMap Report(const std::string& command, std::vector<std::string> words) const {
    words.insert(words.begin(), "--json");
    return Map(Run(command, words).output);
  }
};

TEST_F(Verify, ReportsAProvenOriginAndWritesNothing) {
  const Finished finished = Run("verify", {Path("file.p7m")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, StartsWith("Verified " + Path("file.p7m") +
                                          " (origin proven)\n"
                                          "  signed for room \"demo\" of group "
                                          "\"QOB.1.100.1\"\n  signer: CN="));
  EXPECT_THAT(finished.errors, IsEmpty());
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

TEST_F(Verify, ReportsAsJSON) {
  const OruGuiBase::KVMap report = Report("verify", {Path("file.p7m")});
  EXPECT_EQ(Str(report.Get("operation").AsString()), "verify");
  EXPECT_EQ(Str(report.Get("file").AsString()), Path("file.p7m"));
  EXPECT_EQ(Str(report.Get("origin").AsString()), "proven");
  EXPECT_EQ(report.Get("bytes").AsInteger(), 19);
  EXPECT_TRUE(report.Get("success").AsBool());
}

TEST_F(Verify, AnUnprovenOriginIsCode3) {
  BreakOrigin();
  const Finished finished = Run("verify", {Path("file.p7m")});
  EXPECT_EQ(finished.code, 3);
  EXPECT_THAT(finished.output, IsEmpty());
  EXPECT_THAT(finished.errors, HasSubstr("is not proven: Could not find a matching integrity certificate"));
}

TEST_F(Verify, TakesAWeakerOriginThatIsAccepted) {
  BreakOrigin();
  const Finished finished = Run("verify", {"--accept", "anything", Path("file.p7m")});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.output, HasSubstr("(signed, origin NOT proven)"));
  EXPECT_THAT(finished.errors, HasSubstr("Warning: "));
}

TEST_F(Verify, RefusesAFileOfAnotherRoomThanTheExpectedOne) {
  const std::string before = scratch_.Read("file.p7m");
  for (const char* command : {"verify", "rekey", "decrypt"}) {
    std::vector<std::string> words = {"--expected-room", "other", Path("file.p7m")};
    if (std::string(command) == "decrypt") words.push_back(Path("opened.txt"));
    const Finished finished = Run(command, words);
    EXPECT_EQ(finished.code, 3) << command;
    EXPECT_THAT(finished.errors, HasSubstr("room \"other\" was expected")) << command;
  }
  EXPECT_EQ(Run("verify", {"--expected-room", "demo", Path("file.p7m")}).code, 0);
  EXPECT_EQ(scratch_.Read("file.p7m"), before);
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

// As an unset variable in a script would give it.
TEST_F(Verify, AnEmptyExpectedRoomIsRefused) {
  const Finished finished = Run("verify", {"--expected-room", "", Path("file.p7m")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("--expected-room: the expected room is empty"));
  const Finished many = Run("verify", {"--json", "--expected-room", "", Path("file.p7m"), Path("file.p7m")});
  EXPECT_EQ(many.code, 2);
  EXPECT_FALSE(Map(many.output).Contains("files")) << many.output;
}

TEST_F(Verify, ADamagedFileIsCode7) {
  scratch_.Make("short.p7m", scratch_.Read("file.p7m").substr(0, 500));
  EXPECT_EQ(Run("verify", {Path("short.p7m")}).code, 7);
}

TEST_F(Verify, NamesTheFileThatIsMissing) {
  for (const char* command : {"verify", "rekey"}) {
    EXPECT_THAT(Run(command, {Path("nofile")}).errors, StartsWith("cryptcli: " + Path("nofile") + ": "))
        << command;
  }
}

TEST_F(Verify, NamesTheFolderForTemporaryFilesThatIsMissing) {
  const Finished finished = Run("verify", {"--tmp-dir", Path("nofolder"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr(Path("nofolder")));
}

TEST_F(Verify, ReadsStandardInput) {
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("verify", {"-"}), "", false, Path("file.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, StartsWith("Verified standard input (origin proven)\n"));
}

TEST_F(Verify, NamesStandardInputThatIsNotProtected) {
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("verify", {"-"}), "", false, Path("plain.txt")});
  EXPECT_THAT(finished.errors, StartsWith("cryptcli: standard input: Could not parse encrypted file: "));
}

TEST_F(Verify, OneFileHasTheFormOfManyWithAnOptionForMany) {
  const std::vector<std::vector<std::string>> rows = {{"--json-lines"}, {"--json", "--jobs", "2"}};
  for (std::vector<std::string> words : rows) {
    words.push_back(Path("file.p7m"));
    const Finished one = Run("verify", words);
    EXPECT_EQ(one.code, 0) << one.errors;
    EXPECT_THAT(one.output, HasSubstr("\"summary\":{\"files\":1,")) << words.front();
  }
}

TEST_F(Verify, StandardInputWithAnOptionForManyIsCode2) {
  for (const char* option : {"--json-lines", "--jobs=2", "--fail-fast"}) {
    const Finished finished =
        RunProcess({CRYPTCLI_COMMAND, Arguments("verify", {option, "-"}), "", false, Path("file.p7m")});
    EXPECT_EQ(finished.code, 2) << option;
    const std::string name = std::string(option).substr(0, std::string(option).find('='));
    EXPECT_THAT(finished.errors + finished.output,
                HasSubstr(name + " is for many files, of which standard input cannot be one"));
  }
}

TEST_F(Verify, OneFileThatFailsDoesNotKeepTheOthersFromBeingTried) {
  const Finished finished = Run("verify", {Path("plain.txt"), Path("file.p7m"), Path("missing")});
  EXPECT_EQ(finished.code, 7) << "the worst";
  EXPECT_THAT(finished.output, StartsWith("Verified " + Path("file.p7m")));
  EXPECT_THAT(finished.errors,
              HasSubstr("cryptcli: " + Path("plain.txt") + ": Could not parse encrypted file: "));
  EXPECT_THAT(finished.errors, HasSubstr("No such file or directory"));
  EXPECT_THAT(finished.errors, HasSubstr("cryptcli: 2 of 3 files failed\n"));
}

TEST_F(Verify, ATerminalShowsTheProgressOfAllFiles) {
  CryptStand::Fault slow{CryptStand::FaultType::Slow, "key"};
  slow.number = 400;
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, slow));
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("verify", {Path("file.p7m"), Path("file.p7m")}), "", true});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.errors, HasSubstr("Verifying 2 files 0:00"));
}

TEST_F(Verify, SeveralFilesAreEntriesOfTheJSON) {
  const OruGuiBase::KVMap report = Report("verify", {Path("file.p7m"), Path("plain.txt")});
  const OruGuiBase::Array<OruGuiBase::Val> files = report.Get("files").AsArray();
  ASSERT_EQ(files.GetCount(), 2U);
  EXPECT_EQ(Str(files[0].AsMap().Get("origin").AsString()), "proven");
  EXPECT_EQ(Str(files[1].AsMap().Get("code").AsString()), "not_protected");
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 7);
  EXPECT_EQ(Str(report.Get("code").AsString()), "not_protected") << "that of the worst file";
}

TEST_F(Verify, SaysThatWaitingMayHelpAllFiles) {
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, {CryptStand::FaultType::Status, "key"}));
  const OruGuiBase::KVMap report = Report("verify", {Path("file.p7m"), Path("file.p7m")});
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 6);
  EXPECT_EQ(Str(report.Get("code").AsString()), "server_error");
  EXPECT_TRUE(report.Get("retryable").AsBool());
}

TEST_F(Verify, WithoutAFileIsCode2) {
  EXPECT_EQ(Run("verify", {}).code, 2);
  EXPECT_EQ(Run("rekey", {}).code, 2);
}

class Rekey : public Verify {};

TEST_F(Rekey, ProtectsTheContentAgainInPlace) {
  const std::string before = scratch_.Read("file.p7m");
  std::filesystem::permissions(scratch_.Path("file.p7m"), std::filesystem::perms(0640));
  const Finished finished = Run("rekey", {Path("file.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, StartsWith("Protected " + Path("file.p7m") + " (origin proven)\n"));
  EXPECT_NE(scratch_.Read("file.p7m"), before);
  EXPECT_EQ(std::filesystem::status(scratch_.Path("file.p7m")).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(Run("decrypt", {Path("file.p7m"), Path("opened")}).code, 0);
  EXPECT_EQ(scratch_.Read("opened"), "The plain content.\n");
}

TEST_F(Rekey, WarnsThatWhatItAcceptsCountsAsProven) {
  std::filesystem::copy_file(Path("file.p7m"), Path("second.p7m"));
  BreakOrigin();
  const char* const warning = "The origin of the content was not proven: ";
  const char* const consequence = "; the new file is signed by this program and counts as proven from now on";
  const Finished one = Run("rekey", {"--accept", "anything", Path("file.p7m")});
  EXPECT_EQ(one.code, 0) << one.errors;
  EXPECT_THAT(one.errors, ::testing::AllOf(HasSubstr(warning), HasSubstr(consequence)));
  const Finished two = Run("rekey", {"--accept", "anything", Path("file.p7m"), Path("second.p7m")});
  EXPECT_THAT(two.errors, HasSubstr(consequence));
  EXPECT_THAT(Run("verify", {"--accept", "anything", Path("file.p7m")}).errors,
              ::testing::Not(HasSubstr(consequence)));
}

TEST_F(Rekey, LeavesAFileOfUnprovenOriginAsItIs) {
  BreakOrigin();
  const std::string before = scratch_.Read("file.p7m");
  EXPECT_EQ(Run("rekey", {Path("file.p7m")}).code, 3);
  EXPECT_EQ(scratch_.Read("file.p7m"), before);
}

TEST_F(Rekey, LeavesAFileThatIsNotProtectedAsItIs) {
  EXPECT_EQ(Run("rekey", {Path("plain.txt")}).code, 7);
  EXPECT_EQ(scratch_.Read("plain.txt"), "The plain content.\n");
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

TEST_F(Rekey, AFolderAloneIsCode2) {
  for (const char* command : {"verify", "rekey"}) {
    const Finished finished = Run(command, {Path("")});
    EXPECT_EQ(finished.code, 2) << command;
    EXPECT_EQ(finished.errors,
              "cryptcli: " + Path("") + " is a folder: --recursive takes the files below it\n");
  }
}

TEST_F(Rekey, RefusesStandardInput) {
  const Finished finished = Run("rekey", {"-"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(finished.errors, "cryptcli: Standard input cannot be replaced in place\n");
}

TEST_F(Rekey, WorksOnceOnAFileThatIsNamedTwice) {
  std::filesystem::create_symlink(Path("file.p7m"), Path("link.p7m"));
  const Finished finished =
      Run("rekey", {"-v", Path("file.p7m"), Path("./file.p7m"), Path("link.p7m"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, HasSubstr("Protected 1 of 1 file, 3 ignored\n"));
  EXPECT_THAT(finished.output, HasSubstr("link.p7m (named before)"));
}

TEST_F(Rekey, TakesSeveralFiles) {
  std::filesystem::copy(scratch_.Path("file.p7m"), scratch_.Path("second.p7m"));
  const Finished finished = Run("rekey", {Path("file.p7m"), Path("second.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_NE(scratch_.Read("file.p7m"), scratch_.Read("second.p7m"));
}

}  // namespace
}  // namespace TestSupport
