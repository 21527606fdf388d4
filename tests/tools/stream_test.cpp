// Standard input and output as source and target, pipes, and what a target is given.
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tests/tools/command_fixture.h"
#include "tools/files.h"

namespace TestSupport {
namespace {

using CryptStand::IntegrityList;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class Stream : public CommandTest {
 protected:
  Finished RunWithInput(const std::vector<std::string>& arguments, const std::string& input) const {
    return RunProcess({CRYPTCLI_COMMAND, arguments, "", false, input});
  }
  /// A line for the shell that starts the command with the arguments.
  std::string Line(const std::string& operation, const std::vector<std::string>& further) const {
    std::string line = "'" CRYPTCLI_COMMAND "'";
    for (const std::string& argument : Arguments(operation, further)) line += " '" + argument + "'";
    return line;
  }
  static unsigned ModeOf(const std::filesystem::path& path) {
    return static_cast<unsigned>(std::filesystem::status(path).permissions());
  }
};

TEST_F(Stream, AHyphenIsStandardInputAndOutput) {
  const Finished enciphered = RunWithInput(Arguments("encrypt", {"-", "-"}), Path("plain.txt"));
  EXPECT_EQ(enciphered.code, 0) << enciphered.errors;
  EXPECT_EQ(enciphered.errors, "Encrypted standard input to standard output\n");
  scratch_.Make("file.p7m", enciphered.output);
  const Finished opened = RunWithInput(Arguments("decrypt", {"-", "-"}), Path("file.p7m"));
  EXPECT_EQ(opened.code, 0) << opened.errors;
  EXPECT_EQ(opened.output, "The plain content.\n");
  EXPECT_THAT(opened.errors, HasSubstr("Decrypted standard input to standard output (origin proven)\n"));
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
}

TEST_F(Stream, WorksInAPipeline) {
  const std::string line = "cat '" + Path("plain.txt") + "' | " + Line("encrypt", {"-q", "-", "-"}) + " | " +
                           Line("decrypt", {"-q", "-", "-"});
  const Finished finished = RunProcess({"/bin/sh", {"-c", line}});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_EQ(finished.output, "The plain content.\n");
  EXPECT_THAT(finished.errors, IsEmpty());
}

// Descriptors that the library opens would get the numbers of the missing streams, and traces would go there.
TEST_F(Stream, WorksWithClosedStandardStreams) {
  const std::string closed = " 0<&- 1>&- 2>&-";
  const std::string line =
      Line("encrypt", {"-q", "--trace", "2", Path("plain.txt"), Path("closed.p7m")}) + closed;
  EXPECT_EQ(RunProcess({"/bin/sh", {"-c", line}}).code, 0);
  const Finished opened = Run("decrypt", {"-q", Path("closed.p7m"), "-"});
  EXPECT_EQ(opened.code, 0) << opened.errors;
  EXPECT_EQ(opened.output, "The plain content.\n");
}

TEST_F(Stream, FailsWhenAClosedStandardStreamIsNamed) {
  const auto run = [&](const std::vector<std::string>& files, const char* closed) {
    return RunProcess({"/bin/sh", {"-c", Line("encrypt", files) + closed}}).code;
  };
  EXPECT_EQ(run({"-", Path("t")}, " 0<&-"), 1);
  EXPECT_EQ(run({Path("plain.txt"), "-"}, " 1>&-"), 1);
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt"));
}

TEST_F(Stream, NothingReachesStandardOutputBeforeTheVerdict) {
  Protect();
  stand_.GetSettings().SetIntegrityList(IntegrityList::WithoutOurs);
  const Finished finished = Run("decrypt", {Path("file.p7m"), "-"});
  EXPECT_EQ(finished.code, 3);
  EXPECT_THAT(finished.output, IsEmpty());
}

TEST_F(Stream, TheReportGoesToStandardErrorWhenTheContentHasStandardOutput) {
  Protect();
  const Finished finished = Run("decrypt", {"--json", Path("file.p7m"), "-"});
  EXPECT_EQ(finished.output, "The plain content.\n");
  EXPECT_EQ(Str(Map(finished.errors).Get("origin").AsString()), "proven");
}

TEST_F(Stream, AFailureBeforeAnyServerIsAskedLeavesStandardOutputEmpty) {
  const Finished finished = Run("decrypt", {"--json", "--header", "none", Path("plain.txt"), "-"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.output, IsEmpty());
  EXPECT_EQ(Map(finished.errors).Get("exitCode").AsInteger(), 2);
}

TEST_F(Stream, AFileNamedHyphenIsNamedWithItsFolder) {
  const std::string line = "cd '" + Path("") + "' && " + Line("encrypt", {Path("plain.txt"), "./-"});
  const Finished finished = RunProcess({"/bin/sh", {"-c", line}});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "-"));
}

TEST_F(Stream, NamesAfterTwoHyphensMayBeginWithOne) {
  const std::string folder = "cd '" + Path("") + "' && ";
  const auto run = [&](const char* operation, const std::vector<std::string>& words) {
    return RunProcess({"/bin/sh", {"-c", folder + Line(operation, words)}});
  };
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"plain.txt", "--", "-a.p7m"}, {"--", "plain.txt", "-b.p7m"}}) {
    EXPECT_EQ(run("encrypt", words).errors, "");
  }
  EXPECT_EQ(run("verify", {"-a.p7m", "--", "-b.p7m"}).code, 2) << "the first one is before them";
  EXPECT_EQ(run("verify", {"--", "-a.p7m", "-b.p7m"}).code, 0);
  EXPECT_EQ(run("verify", {"./-a.p7m", "--", "-b.p7m"}).code, 0);
  EXPECT_EQ(run("decrypt", {"./-a.p7m", "--", "encrypt"}).code, 0) << "the name of a command";
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "-a.p7m", "-b.p7m", "encrypt"));
}

TEST_F(Stream, WaitsForTheReaderOfANonBlockingPipe) {
  const std::string content(1'000'000, 'x');
  scratch_.Make("large", content);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  const int before = ::dup(STDOUT_FILENO);
  ASSERT_EQ(::dup2(ends[1], STDOUT_FILENO), STDOUT_FILENO);
  ::close(ends[1]);
  std::string got;
  std::thread reader([&] {
    char bytes[4096];
    for (ssize_t count = 0; (count = ::read(ends[0], bytes, sizeof bytes)) > 0;) {
      got.append(bytes, static_cast<std::size_t>(count));
    }
  });
  const bool isCopied = CryptCli::CopyToStandardOutput(scratch_.File("large"));
  ::dup2(before, STDOUT_FILENO);
  ::close(before);
  reader.join();
  ::close(ends[0]);
  EXPECT_TRUE(isCopied);
  EXPECT_TRUE(got == content) << got.size();
}

TEST_F(Stream, NamesStandardInputThatIsClosed) {
  const std::string line = Line("decrypt", {"-", Path("opened")}) + " <&-";
  const Finished finished = RunProcess({"/bin/sh", {"-c", line}});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "cryptcli: Could not read standard input: Bad file descriptor\n");
  const Finished verified = RunProcess({"/bin/sh", {"-c", Line("verify", {"-"}) + " <&-"}});
  EXPECT_EQ(verified.code, 1);
  EXPECT_EQ(verified.errors, finished.errors);
}

TEST_F(Stream, SaysWhyAReportCannotBeWritten) {
  ASSERT_NO_FATAL_FAILURE(Protect());
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("verify", {Path("file.p7m")}), "/dev/full"});
  EXPECT_EQ(finished.code, 9);
  EXPECT_EQ(finished.errors,
            "cryptcli: Could not write to standard output: No space left on device (the operation itself "
            "succeeded)\n");
}

TEST_F(Stream, ReportsByItsCodeAReportThatClosedStreamsLose) {
  ASSERT_NO_FATAL_FAILURE(Protect());
  const std::string line = Line("decrypt", {Path("file.p7m"), Path("opened")}) + " >&- 2>&-";
  EXPECT_EQ(RunProcess({"/bin/sh", {"-c", line}}).code, 9);
  EXPECT_EQ(scratch_.Read("opened"), "The plain content.\n");
}

TEST_F(Stream, AFullStandardOutputIsAFailure) {
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("encrypt", {Path("plain.txt"), "-"}), "/dev/full"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.errors, "cryptcli: Could not write to standard output: No space left on device\n");
}

TEST_F(Stream, AFullTargetIsReportedAsAFullDisk) {
  const Finished finished = Run("encrypt", {Path("plain.txt"), "/dev/full", "--json"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(Str(Map(finished.output).Get("code").AsString()), "no_space") << finished.output;
}

TEST_F(Stream, OutputNamesTheTarget) {
  EXPECT_EQ(Run("encrypt", {Path("plain.txt"), "-o", Path("file.p7m")}).code, 0);
  EXPECT_EQ(Run("decrypt", {"--output", Path("opened"), Path("file.p7m")}).code, 0);
  EXPECT_EQ(scratch_.Read("opened"), "The plain content.\n");
}

TEST_F(Stream, ATargetThatIsMissingOrNamedTwiceIsCode2) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {Path("plain.txt")}, {Path("plain.txt"), Path("a"), "-o", Path("b")}, {"a", "b", "c"}}) {
    const Finished finished = Run("encrypt", words);
    EXPECT_EQ(finished.code, 2);
    EXPECT_THAT(finished.errors, HasSubstr("--output"));
  }
  EXPECT_THAT(Names(), ElementsAre("plain.txt"));
  EXPECT_THAT(stand_.GetEvents(), IsEmpty());
}

TEST_F(Stream, ANewTargetGetsTheModeThatIsAskedFor) {
  const mode_t before = umask(022);
  EXPECT_EQ(Run("encrypt", {"--mode", "600", Path("plain.txt"), Path("file.p7m")}).code, 0);
  EXPECT_EQ(ModeOf(scratch_.Path("file.p7m")), 0600U);
  EXPECT_EQ(Run("decrypt", {"--mode", "0664", Path("file.p7m"), Path("opened")}).code, 0);
  EXPECT_EQ(ModeOf(scratch_.Path("opened")), 0664U);
  umask(before);
}

TEST_F(Stream, AReplacedTargetGetsTheModeThatIsAskedFor) {
  scratch_.Make("file.p7m", "old");
  std::filesystem::permissions(scratch_.Path("file.p7m"), std::filesystem::perms(0644));
  EXPECT_EQ(Run("encrypt", {"--force", "--mode", "600", Path("plain.txt"), Path("file.p7m")}).code, 0);
  EXPECT_EQ(ModeOf(scratch_.Path("file.p7m")), 0600U);
}

TEST_F(Stream, AModeThatIsNotOctalIsCode2) {
  for (const char* mode : {"8", "999", "64", "4755", "rw-------", "-600", ""}) {
    EXPECT_EQ(Run("encrypt", {"--mode", mode, Path("plain.txt"), Path("file.p7m")}).code, 2) << mode;
  }
}

TEST_F(Stream, TemporaryFilesAreWhereTheOptionSays) {
  std::filesystem::create_directory(scratch_.Path("other"));
  EXPECT_EQ(Run("encrypt", {"--tmp-dir", Path("other"), Path("plain.txt"), Path("file.p7m")}).code, 0);
  EXPECT_TRUE(std::filesystem::is_empty(scratch_.Path("other")));
  const Finished finished = Run("decrypt", {"--tmp-dir", Path("none"), Path("file.p7m"), Path("opened")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Could not create temporary directory: No such file or directory"));
}

}  // namespace
}  // namespace TestSupport
