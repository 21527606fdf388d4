// Many files in one run: "encrypt", "decrypt" and "verify" with folders, lists and several threads.
#include "tools/bulk.h"

#include <csignal>
#include <thread>

#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

/// A folder "in" with three files, one of them deeper.
class ManyFiles : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    for (const char* name : {"in/a", "in/b", "in/deep/c"}) MakeFile(name, name);
  }
  void MakeFile(const std::string& name, std::string_view content) const {
    fs::create_directories(scratch_.Path(name).parent_path());
    scratch_.Make(name, content);
  }
  // The files below a folder, by their paths in it.
  std::vector<std::string> Below(const char* folder) const {
    std::vector<std::string> names;
    if (!scratch_.Exists(folder)) return names;
    for (const auto& entry : fs::recursive_directory_iterator(scratch_.Path(folder))) {
      if (!entry.is_directory())
        names.push_back(entry.path().lexically_relative(scratch_.Path(folder)).string());
    }
    return names;
  }
  void ProtectAll() const {
    const Finished finished = Run("encrypt", {"-r", Path("in"), "--output-dir", Path("out")});
    ASSERT_EQ(finished.code, 0) << finished.errors;
    EXPECT_EQ(finished.output, "Encrypted 3 of 3 files\n");
  }
};

TEST_F(ManyFiles, GoThereAndBackWithTheirPaths) {
  ProtectAll();
  EXPECT_THAT(Below("out"), UnorderedElementsAre("a.p7m", "b.p7m", "deep/c.p7m"));
  const Finished opened = Run("decrypt", {"-r", Path("out"), "--output-dir", Path("back")});
  EXPECT_EQ(opened.code, 0) << opened.errors;
  for (const char* name : {"a", "b", "deep/c"}) {
    EXPECT_EQ(scratch_.Read(std::string("back/") + name), std::string("in/") + name);
  }
}

TEST_F(ManyFiles, AreTakenFromAListOnStandardInput) {
  scratch_.Make("list", Path("in/b") + '\0' + Path("in/deep/c") + '\0');
  const Finished finished = RunProcess(
      {CRYPTCLI_COMMAND,
       Arguments("encrypt", {"--files-from", "-", "-0", "--output-dir", Path("out"), Path("in/a")}), "",
       false, Path("list")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(Below("out"), UnorderedElementsAre("a.p7m", "b.p7m", "c.p7m"));
}

TEST_F(ManyFiles, AFileThatFailsDoesNotStopTheOthers) {
  const Finished finished =
      Run("encrypt", {Path("missing"), Path("in/a"), "--output-dir", Path("out"), "-j1"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(Below("out"), UnorderedElementsAre("a.p7m"));
  EXPECT_THAT(finished.errors, HasSubstr("missing: "));
  EXPECT_EQ(finished.output, "Encrypted 1 of 2 files, 1 failed\n");
}

TEST_F(ManyFiles, AnOptionForManyWithATargetIsNamed) {
  for (const char* option : {"--json-lines", "--jobs=2", "--fail-fast", "--resume", "--recursive"}) {
    const Finished finished = Run("encrypt", {option, Path("in/a"), Path("a.p7m")});
    EXPECT_EQ(finished.code, 2) << option;
    const std::string name = std::string(option).substr(0, std::string(option).find('='));
    EXPECT_THAT(finished.errors + finished.output,
                HasSubstr(name + " is for many files: name a folder for their results with --output-dir"));
  }
}

TEST_F(ManyFiles, StopAfterAFailureWhenFailFast) {
  const Finished finished =
      Run("encrypt", {Path("missing"), Path("in/a"), "--output-dir", Path("out"), "-j1", "--fail-fast"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(Below("out"), IsEmpty());
  EXPECT_EQ(finished.output, "Encrypted 0 of 2 files, 1 failed, 1 not started\n");
}

TEST_F(ManyFiles, ACollisionIsRefusedBeforeAnythingStarts) {
  MakeFile("other/a", "another");
  const Finished finished =
      Run("encrypt", {Path("in/b"), Path("in/a"), Path("other/a"), "--output-dir", Path("out")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("would both become"));
  EXPECT_FALSE(scratch_.Exists("out"));
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(ManyFiles, AnExistingTargetStaysWithoutForce) {
  MakeFile("out/a.p7m", "mine");
  const std::vector<std::string> arguments{Path("in/a"), Path("in/b"), "--output-dir", Path("out")};
  const Finished refused = Run("encrypt", arguments);
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(scratch_.Read("out/a.p7m"), "mine");
  EXPECT_THAT(Below("out"), UnorderedElementsAre("a.p7m", "b.p7m"));
  std::vector<std::string> forced = arguments;
  forced.emplace_back("--force");
  EXPECT_EQ(Run("encrypt", forced).code, 0);
  EXPECT_NE(scratch_.Read("out/a.p7m"), "mine");
}

TEST_F(ManyFiles, ResumeSkipsWhatIsDoneAndDoesTheRest) {
  ProtectAll();
  fs::remove(scratch_.Path("out/b.p7m"));
  scratch_.Make("out/a.p7m", "cut off");
  const std::string kept = scratch_.Read("out/deep/c.p7m");
  fs::last_write_time(scratch_.Path("in/deep/c"), fs::file_time_type::clock::now() - std::chrono::hours(1));
  const std::vector<std::string> arguments{"-r", Path("in"), "--output-dir", Path("out"), "--resume"};
  const Finished refused = Run("encrypt", arguments);
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("File exists (--force replaces it)"));
  EXPECT_EQ(scratch_.Read("out/a.p7m"), "cut off");
  std::vector<std::string> forced = arguments;
  forced.emplace_back("--force");
  const Finished finished = Run("encrypt", forced);
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, HasSubstr(" done before\n"));
  EXPECT_EQ(scratch_.Read("out/deep/c.p7m"), kept);
  EXPECT_EQ(Run("verify", {"-r", Path("out")}).code, 0);
}

TEST_F(ManyFiles, WithoutAProofAreNotDeliveredAndGiveTheWorstCode) {
  ProtectAll();
  stand_.GetSettings().SetIntegrityList(CryptStand::IntegrityList::Empty);
  const Finished opened =
      Run("decrypt", {"-r", Path("out"), Path("missing.p7m"), "--output-dir", Path("back")});
  EXPECT_EQ(opened.code, 3);
  EXPECT_THAT(Below("back"), IsEmpty());
  const Finished accepted =
      Run("decrypt", {"-r", Path("out"), "--output-dir", Path("back"), "--accept", "anything"});
  EXPECT_EQ(accepted.code, 0) << accepted.errors;
  EXPECT_THAT(Below("back"), UnorderedElementsAre("a", "b", "deep/c"));
  EXPECT_THAT(accepted.errors, HasSubstr("Warning: ")) << "each weaker origin is shown";
}

TEST_F(ManyFiles, VerifyTakesOnlyProtectedFilesFromAFolder) {
  ProtectAll();
  MakeFile("out/readme.txt", "not protected");
  const Finished finished = Run("verify", {"-r", Path("out")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(finished.output, HasSubstr("Verified 3 of 3 files, 1 ignored\n"));
  EXPECT_THAT(finished.output, Not(HasSubstr("readme.txt")));
  EXPECT_THAT(Run("verify", {"-r", "-v", Path("out")}).output,
              HasSubstr("Ignored " + Path("out/readme.txt")));
  const OruGuiBase::KVMap report = Map(Run("verify", {"-r", "--json", Path("out")}).output);
  EXPECT_THAT(JsonText(report), HasSubstr(R"("ignored":[")" + Path("out/readme.txt") + R"("])"));
}

TEST_F(ManyFiles, VerifyAndRekeyFailWithoutAnyFileToWorkOn) {
  for (const char* command : {"verify", "rekey"}) {
    const Finished finished = Run(command, {"-r", Path("in")});
    EXPECT_EQ(finished.code, 2) << command;
    EXPECT_THAT(finished.errors, HasSubstr("No file to work on")) << command;
  }
}

TEST_F(ManyFiles, AListThatNamesNoFileIsAMistake) {
  scratch_.Make("list", "\n");
  const Finished finished = Run("encrypt", {"--files-from", Path("list"), "--output-dir", Path("out")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("The list of files \"" + Path("list") + "\" names no file"));
}

TEST_F(ManyFiles, AListThatCannotBeReadIsNamed) {
  const Finished finished = Run("verify", {"--files-from", Path("nofile")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("\"" + Path("nofile") + "\": No such file or directory"));
}

TEST_F(ManyFiles, GiveOneObjectToALine) {
  const Finished finished =
      Run("encrypt", {Path("in/a"), Path("missing"), "--output-dir", Path("out"), "--json-lines"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, IsEmpty());
  std::vector<std::string> states;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = finished.output.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const OruGuiBase::KVMap line = Map(finished.output.substr(begin, end - begin));
    const std::string file = fs::path(Str(line.Get("file").AsString())).filename().string();
    states.push_back(file + ":" + std::to_string(line.Get("exitCode").AsInteger()));
  }
  EXPECT_THAT(states, UnorderedElementsAre("a:0", "missing:1", ":1"));
}

TEST_F(ManyFiles, AMistakeIsAnObjectWithJsonLines) {
  const Finished finished = Run("encrypt", {Path("in/a"), "--json-lines"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(Map(finished.output).Get("exitCode").AsInteger(), 2);
  EXPECT_EQ(Map(Run("encrypt", {"--json-lines", "--no-such-option"}).output).Get("exitCode").AsInteger(), 2);
}

TEST_F(ManyFiles, NeedTheirOptions) {
  const std::vector<std::vector<std::string>> rows = {
      {"--output-dir", Path("out")},                                   // no file
      {Path("in/a"), "-j2"},                                           // no folder for the results
      {Path("in"), "--output-dir", Path("out")},                       // a folder without --recursive
      {Path("in/a"), "-0", "--output-dir", Path("out")},               // --null without a list
      {Path("in/a"), "-o", Path("t"), "--output-dir", Path("out")},    // two targets
      {Path("in/a"), "--follow-links", "--output-dir", Path("out")},   // links without folders
      {Path("in/a"), "-j0", "--output-dir", Path("out")},              // no thread
      {"--files-from", Path("missing"), "--output-dir", Path("out")},  // no list
  };
  for (const auto& row : rows) EXPECT_EQ(Run("encrypt", row).code, 2) << row.back();
  EXPECT_FALSE(scratch_.Exists("out"));
}

// Of connections that cannot be opened it would look as if the servers were down.
TEST_F(ManyFiles, WorkWithFewOpenFiles) {
  for (int i = 0; i < 40; ++i) MakeFile("many/" + std::to_string(i), "content");
  CryptStand::Fault slow{CryptStand::FaultType::Slow, "key"};
  slow.number = 300;
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, slow));
  std::string line = "ulimit -n 96; '" CRYPTCLI_COMMAND "'";
  for (const std::string& word :
       Arguments("encrypt", {"-r", Path("many"), "--output-dir", Path("out"), "-j40"})) {
    line += " '" + word + "'";
  }
  const Finished finished = RunProcess({"/bin/sh", {"-c", line}});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(finished.output, "Encrypted 40 of 40 files\n");
}

TEST_F(ManyFiles, HaveThePermissionsOfTheMode) {
  EXPECT_EQ(Run("encrypt", {Path("in/a"), "--output-dir", Path("out"), "--mode", "600"}).code, 0);
  EXPECT_EQ(fs::status(scratch_.Path("out/a.p7m")).permissions(), fs::perms(0600));
}

TEST_F(ManyFiles, ASignalCleansUpWhatIsInProgress) {
  for (int i = 0; i < 50; ++i) MakeFile("many/" + std::to_string(i), "content");
  CryptStand::Fault slow{CryptStand::FaultType::Slow, "key"};
  slow.number = 200;
  ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, slow));
  Process process(
      {CRYPTCLI_COMMAND, Arguments("encrypt", {"-r", Path("many"), "--output-dir", Path("out"), "-j4"})});
  for (int i = 0; i < 500 && Below("out").empty(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait(), 128 + SIGINT) << process.GetErrors();
  EXPECT_THAT(process.GetOutput(), HasSubstr("not started"));
  ASSERT_TRUE(stand_.ClearFaults(CryptStand::kCryptService));
  const std::vector<std::string> names = Below("out");
  EXPECT_LT(names.size(), 50U);
  for (const std::string& name : names) EXPECT_THAT(name, ::testing::EndsWith(".p7m"));
  // The signal may come before the first result.
  EXPECT_EQ(Run("verify", {"-r", Path("out")}).code, names.empty() ? 2 : 0) << "what was delivered is whole";
}

}  // namespace
}  // namespace TestSupport
