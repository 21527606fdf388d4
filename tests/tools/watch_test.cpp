// A running operation: its progress on a terminal, and that nothing remains when a signal ends it.
#include "tools/watch.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "foundation/filehandle.h"
#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::Fault;
using CryptStand::FaultType;
using namespace std::chrono_literals;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

// Servers of their own: a request that a slow one still delays would show in the log of a later test.
struct OwnServers {
  OwnServers() {
    std::string error;
    EXPECT_TRUE(own.Start(error)) << error;
  }
  CryptStand::Stand own;
};

class WatchedCommand : private OwnServers, public CommandTest {
 protected:
  WatchedCommand() : CommandTest(own) {}

  void SetUp() override {
    CommandTest::SetUp();
    Protect();
  }
  void SlowDown(int milliseconds, const char* operation) {
    Fault fault{FaultType::Slow, operation};
    fault.number = milliseconds;
    ASSERT_TRUE(stand_.SetFault(CryptStand::kCryptService, fault));
  }
  static bool WaitFor(const std::function<bool()>& condition, std::chrono::microseconds pause = 10ms) {
    for (int i = 0; i < 1000 && !condition(); ++i) std::this_thread::sleep_for(pause);
    return condition();
  }
};

TEST_F(WatchedCommand, ATerminalShowsProgress) {
  SlowDown(600, "key");
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("decrypt", {Path("file.p7m"), Path("t")}), "", true});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.errors, HasSubstr("Decrypting 0:00"));
  EXPECT_TRUE(finished.errors.ends_with("\r\033[K")) << "the line is taken away at the end";
}

TEST_F(WatchedCommand, ATerminalShowsPercentRateAndRemainingTime) {
  // Asked once the whole content has been read for the first time, so that something is known by then.
  SlowDown(900, "integrity");
  const Finished finished =
      RunProcess({CRYPTCLI_COMMAND, Arguments("decrypt", {Path("file.p7m"), Path("t")}), "", true});
  EXPECT_EQ(finished.code, 0);
  EXPECT_THAT(finished.errors,
              ::testing::ContainsRegex("Decrypting 0:00, [0-9]+ %, [0-9.]+ [KMG]?i?B/s, 0:0[0-9] left"));
}

TEST_F(WatchedCommand, QuietJSONAndNoProgressShowNoProgress) {
  SlowDown(600, "key");
  for (const char* option : {"--quiet", "--json", "--no-progress"}) {
    const Finished finished = RunProcess(
        {CRYPTCLI_COMMAND, Arguments("decrypt", {option, "--force", Path("file.p7m"), Path("t")}), "", true});
    EXPECT_EQ(finished.code, 0) << option;
    EXPECT_THAT(finished.errors, IsEmpty()) << option;
  }
}

/// A protected file whose content does not end its line, opened on a terminal that shows progress as well.
class DeliveryToATerminal : public WatchedCommand {
 protected:
  void SetUp() override {
    WatchedCommand::SetUp();
    scratch_.Make("open", content_);
    ASSERT_EQ(Run("encrypt", {"--force", Path("open"), Path("file.p7m")}).code, 0);
  }
  // Everything that the terminal gets from a shell's line, in which $0 is the command with its arguments.
  std::string Show(const std::vector<std::string>& arguments, const std::string& line) const {
    std::vector<std::string> words{"-c", line, CRYPTCLI_COMMAND};
    const std::vector<std::string> all = Arguments("decrypt", arguments);
    words.insert(words.end(), all.begin(), all.end());
    Start start{"/bin/sh", words, "", true};
    start.outputToTerminal = true;
    const Finished finished = RunProcess(start);
    EXPECT_EQ(finished.code, 0) << finished.errors;
    return finished.errors;
  }

  // No letter of it appears in the progress, and it does not fit into a pipe.
  const std::string content_ = std::string(200'000, 'X');
};

TEST_F(DeliveryToATerminal, LeavesTheContentOnTheScreen) {
  const std::string shown = Show({Path("file.p7m"), "-"}, R"("$0" "$@")");
  EXPECT_THAT(shown.substr(shown.find('X')), StartsWith(content_ + "Decrypted "));
  EXPECT_THAT(shown.substr(shown.find('X')), Not(HasSubstr("\033")));
}

TEST_F(DeliveryToATerminal, ClearsTheProgressBeforeTheContent) {
  SlowDown(600, "key");
  const std::string shown = Show({Path("file.p7m"), "-"}, R"("$0" "$@")");
  const std::size_t begin = shown.find('X');
  EXPECT_THAT(shown.substr(0, begin), HasSubstr("Decrypting 0:00"));
  EXPECT_TRUE(shown.substr(0, begin).ends_with("\r\033[K"));
  EXPECT_THAT(shown.substr(begin), Not(HasSubstr("\033")));
  EXPECT_THAT(shown.substr(begin), StartsWith(content_ + "Decrypted "));
}

TEST_F(DeliveryToATerminal, ShowsNoProgressWhileAPipeTakesTheContent) {
  const std::string shown = Show({Path("file.p7m"), "-"}, R"("$0" "$@" | { head -c 1000; sleep 1; cat; })");
  EXPECT_THAT(shown.substr(shown.find('X')), Not(HasSubstr("\033")));
}

TEST_F(DeliveryToATerminal, SendsNoCodesToADumbTerminal) {
  SlowDown(600, "key");
  const std::string shown = Show({Path("file.p7m"), Path("t")}, R"(TERM=dumb "$0" "$@")");
  EXPECT_THAT(shown, StartsWith("Decrypted "));
  EXPECT_THAT(shown, Not(HasSubstr("\033")));
}

TEST_F(WatchedCommand, ManyFilesClearNoLineThatTheyHaveNotDrawn) {
  const Finished finished = RunProcess(
      {CRYPTCLI_COMMAND, Arguments("verify", {"--no-progress", Path("file.p7m"), Path("none")}), "", true});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("1 of 2 files failed"));
  EXPECT_THAT(finished.errors, Not(HasSubstr("\033")));
}

TEST_F(WatchedCommand, ASignalIsReportedAsJSON) {
  SlowDown(30000, "integrity");
  Process process({CRYPTCLI_COMMAND, Arguments("decrypt", {"--json", Path("file.p7m"), Path("t")})});
  // Content that is there has been opened, and its signer is being examined.
  const auto isOpened = [&] {
    const auto names = scratch_.GetTemporaryNames();
    return std::any_of(names.begin(), names.end(), [](const auto& name) { return name.ends_with(".tmp"); });
  };
  EXPECT_TRUE(WaitFor(isOpened));
  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait(), 128 + SIGTERM);
  const OruGuiBase::KVMap report = Map(process.GetOutput());
  EXPECT_FALSE(report.Get("success").AsBool());
  EXPECT_EQ(report.Get("exitCode").AsInteger(), 128 + SIGTERM);
  EXPECT_EQ(Str(report.Get("code").AsString()), "cancelled");
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

TEST_F(WatchedCommand, AFileOrPipeShowsNothing) {
  SlowDown(600, "key");
  EXPECT_THAT(Run("decrypt", {Path("file.p7m"), Path("t")}).errors, IsEmpty());
}

TEST_F(WatchedCommand, ASignalEndsItAndLeavesNothing) {
  for (const int signal :
       {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGXCPU, SIGUSR1, SIGVTALRM, SIGRTMAX}) {
    // The client asks for the integrity certificates when it has already decrypted the content.
    SlowDown(30000, "integrity");
    Process process({CRYPTCLI_COMMAND, Arguments("decrypt", {"--trace", "1", Path("file.p7m"), Path("t")})});
    const bool hasPlainContent = WaitFor([&] {
      const auto names = scratch_.GetTemporaryNames();
      return std::any_of(names.begin(), names.end(), [](const auto& name) { return name.ends_with(".tmp"); });
    });
    process.Signal(signal);
    EXPECT_EQ(process.Wait(), 128 + signal);
    ASSERT_TRUE(hasPlainContent) << process.GetErrors();
    EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
    EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
    ASSERT_TRUE(stand_.ClearFaults(CryptStand::kCryptService));
  }
}

TEST_F(WatchedCommand, ASignalWhileFilesAreBeingMadeLeavesNothing) {
  int interrupted = 0;
  for (int round = 0; round < 40; ++round) {
    Process process({CRYPTCLI_COMMAND, Arguments("decrypt", {"--force", Path("file.p7m"), Path("t")})});
    // The program creates its own directory first, so the library is about to write to it.
    WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); }, 500us);
    std::this_thread::sleep_for(round * 500us);
    process.Signal(SIGTERM);
    const int code = process.Wait();
    EXPECT_THAT(code, AnyOf(0, 128 + SIGTERM));
    if (code != 0) ++interrupted;
    ASSERT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
    ASSERT_THAT(Names(), Not(Contains(StartsWith("."))));
  }
  EXPECT_GT(interrupted, 0) << "every operation was over before its signal";
}

// The library's staging file is beside its target and not in the temporary directory.
TEST_F(WatchedCommand, ASignalLeavesNoStagingFile) {
  const auto stage = [&] {
    CryptCli::Watch watch;
    watch.Start("", /*show=*/false);
    OruGuiBase::FileWriter writer;
    const bool isBegun = writer.OpenStaged(scratch_.File("t")) && writer.Write("plain", 5);
    for (const auto& name : Names()) {
      if (isBegun && name.starts_with(".orugui-")) ::kill(::getpid(), SIGTERM);
    }
    std::this_thread::sleep_for(10s);
    ::_exit(1);
  };
  const pid_t child = ::fork();
  if (child == 0) stage();
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGTERM) << status;
  EXPECT_THAT(Names(), UnorderedElementsAre("plain.txt", "file.p7m"));
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

// The report blocks because nobody reads from its full pipe.
TEST_F(WatchedCommand, ASignalEndsItWhileItReports) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  const int pipe = ::open(Path("pipe").c_str(), O_RDWR | O_NONBLOCK);
  const std::string filling(4096, 'x');
  while (::write(pipe, filling.data(), filling.size()) > 0) continue;
  Process process({CRYPTCLI_COMMAND, Arguments("decrypt", {Path("file.p7m"), Path("t")}), Path("pipe")});
  EXPECT_TRUE(WaitFor([&] { return scratch_.Exists("t"); }));
  std::this_thread::sleep_for(200ms);
  process.Signal(SIGQUIT);
  std::thread reader([&] {
    std::this_thread::sleep_for(1s);
    char bytes[4096];
    while (::read(pipe, bytes, sizeof bytes) > 0) continue;
  });
  EXPECT_EQ(process.Wait(), 128 + SIGQUIT);
  reader.join();
  ::close(pipe);
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

TEST_F(WatchedCommand, ASignalEndsItWhileItReadsAListOfFiles) {
  ASSERT_EQ(::mkfifo(Path("list").c_str(), 0600), 0);
  const int list = ::open(Path("list").c_str(), O_RDWR | O_CLOEXEC);
  for (const int signal : {SIGINT, SIGTERM}) {
    Process process(
        {CRYPTCLI_COMMAND, Arguments("verify", {"--json", "--files-from", "-"}), "", false, Path("list")});
    EXPECT_TRUE(WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); }));
    std::this_thread::sleep_for(200ms);
    process.Signal(signal);
    std::jthread guard([&](const std::stop_token& done) {
      for (int i = 0; i < 100 && !done.stop_requested(); ++i) std::this_thread::sleep_for(100ms);
      if (!done.stop_requested()) process.Signal(SIGKILL);
    });
    EXPECT_EQ(process.Wait(), 128 + signal);
    EXPECT_EQ(Map(process.GetOutput()).Get("exitCode").AsInteger(), 128 + signal);
  }
  ::close(list);
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

TEST_F(WatchedCommand, ASignalIsReportedWhileInputIsAwaited) {
  ASSERT_EQ(::mkfifo(Path("input").c_str(), 0600), 0);
  const int input = ::open(Path("input").c_str(), O_RDWR | O_CLOEXEC);
  const std::vector<std::vector<std::string>> rows = {
      Arguments("encrypt", {"-", Path("t"), "--json"}),
      Arguments("verify", {"-", "--json"}),
      {"inspect", "-", "--json"},
      {"call", "--service", stand_.GetServiceUrl(), "Update", "--args", "-", "--json"}};
  for (const auto& arguments : rows) {
    Process process({CRYPTCLI_COMMAND, arguments, "", false, Path("input")});
    EXPECT_TRUE(WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); })) << arguments.front();
    std::this_thread::sleep_for(300ms);
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait(), 128 + SIGINT) << arguments.front();
    const OruGuiBase::KVMap report = Map(process.GetOutput());
    EXPECT_EQ(report.Get("exitCode").AsInteger(), 128 + SIGINT) << arguments.front();
    EXPECT_EQ(Str(report.Get("code").AsString()), "cancelled") << arguments.front();
    EXPECT_EQ(Str(report.Get("error").AsString()), "Ended by signal 2") << arguments.front();
    EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
  }
  ::close(input);
}

// Nobody opens the other end, so that already opening it would wait.
TEST_F(WatchedCommand, ASignalEndsItWhileANamedPipeIsAwaited) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  const std::vector<std::vector<std::string>> rows = {
      Arguments("verify", {"--files-from", Path("pipe")}),
      {"call", "--service", stand_.GetServiceUrl(), "Update", "--args", Path("pipe")},
      Arguments("verify", {"--header-file", Path("pipe"), Path("file.p7m")}),
      Arguments("verify", {Path("pipe")}),
      Arguments("encrypt", {Path("pipe"), Path("t")})};
  for (const auto& arguments : rows) {
    Process process({CRYPTCLI_COMMAND, arguments});
    EXPECT_TRUE(WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); })) << arguments.front();
    std::this_thread::sleep_for(300ms);
    const auto begin = std::chrono::steady_clock::now();
    process.Signal(SIGINT);
    std::jthread guard([&](const std::stop_token& done) {
      for (int i = 0; i < 100 && !done.stop_requested(); ++i) std::this_thread::sleep_for(100ms);
      if (!done.stop_requested()) process.Signal(SIGKILL);
    });
    EXPECT_EQ(process.Wait(), 128 + SIGINT) << arguments.front();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s) << arguments.front();
    EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
  }
}

// The second signal ends what does not take notice of the first.
TEST_F(WatchedCommand, ASignalIsReportedWhereverTheRunIsBlocked) {
  scratch_.Make("large", std::string(300'000, 'x'));
  ASSERT_EQ(Run("encrypt", {Path("large"), Path("large.p7m")}).code, 0);
  for (const char* name : {"pipe", "full"}) ASSERT_EQ(::mkfifo(Path(name).c_str(), 0600), 0);
  const int full = ::open(Path("full").c_str(), O_RDWR | O_CLOEXEC);  // nobody reads from it
  const std::vector<std::string> services = {"--json", "--service", stand_.GetServiceUrl()};
  const auto with = [&](std::vector<std::string> words, const std::vector<std::string>& further) {
    words.insert(words.end(), services.begin(), services.end());
    words.insert(words.end(), further.begin(), further.end());
    return words;
  };
  const std::string server = stand_.GetKeyServerUrls().front();
  const std::string pipe = Path("pipe");
  struct Row {
    std::vector<std::string> words;
    bool takesOutput = false;
  };
  const std::vector<Row> rows = {
      {with({"decrypt"}, {"--room", "demo", "--force", Path("large.p7m"), pipe})},
      {with({"decrypt"}, {"--room", "demo", Path("large.p7m"), "-"}), true},
      {with({"sign"}, {"--object", "demo", "--key-id", "k", "--key-server", server, pipe})},
      {with({"audit-log"}, {"--group", "QOB.1.100.1", "--key-server", server, "--force", "-o", pipe})},
      {{"inspect", "--json", pipe}},
      {with({"verify"}, {"--room", "demo", "--header-file", pipe, Path("file.p7m")})},
      {with({"doctor"}, {"--header-file", pipe})},
      {with({"room", "demo"}, {"--header-file", pipe})},
      {with({"encrypt"},
            {"--room", "demo", "--header-file", pipe, "--output-dir", Path("o"), Path("plain.txt")})},
      {with({"verify"}, {"--room", "demo", "--client-cert", Path("plain.txt"), "--client-key-password-file",
                         pipe, Path("file.p7m")})},
      {with({"config"}, {"--header-file", pipe})},
  };
  for (const auto& [words, takesOutput] : rows) {
    const std::string row = ::testing::PrintToString(words);
    Process process({CRYPTCLI_COMMAND, words, takesOutput ? Path("full") : ""});
    EXPECT_TRUE(WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); })) << row;
    for (int i = 0; i < 2; ++i) {
      std::this_thread::sleep_for(300ms);
      process.Signal(SIGTERM);
    }
    EXPECT_EQ(process.Wait(), 128 + SIGTERM) << row;
    const std::string& text = takesOutput ? process.GetErrors() : process.GetOutput();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << row << text;
    const OruGuiBase::KVMap report = Map(text);
    EXPECT_EQ(Str(report.Get("operation").AsString()), words.front()) << row;
    EXPECT_EQ(Str(report.Get("code").AsString()), "cancelled") << row;
    EXPECT_EQ(Str(report.Get("error").AsString()), "Ended by signal 15") << row;
    EXPECT_EQ(report.Get("exitCode").AsInteger(), 128 + SIGTERM) << row;
    EXPECT_THAT(takesOutput ? "" : process.GetErrors(), IsEmpty()) << row;
    EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty()) << row;
  }
  ::close(full);
}

TEST_F(WatchedCommand, ASignalIsReportedToPeopleWhereverTheRunIsBlocked) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  Process process({CRYPTCLI_COMMAND, Arguments("decrypt", {"--force", Path("file.p7m"), Path("pipe")})});
  EXPECT_TRUE(WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); }));
  for (int i = 0; i < 2; ++i) {
    std::this_thread::sleep_for(300ms);
    process.Signal(SIGINT);
  }
  EXPECT_EQ(process.Wait(), 128 + SIGINT);
  EXPECT_EQ(process.GetErrors(), "cryptcli: Ended by signal 2\n");
  EXPECT_THAT(process.GetOutput(), IsEmpty());
}

TEST_F(WatchedCommand, ASignalEndsItWhileASourceStalls) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  const int pipe = ::open(Path("pipe").c_str(), O_RDWR | O_CLOEXEC);
  const std::vector<std::vector<std::string>> rows = {Arguments("encrypt", {"-", Path("t")}),
                                                      Arguments("verify", {Path("pipe")})};
  for (const auto& arguments : rows) {
    ASSERT_EQ(::write(pipe, "first", 5), 5);
    Process process({CRYPTCLI_COMMAND, arguments, "", false, Path("pipe")});
    const auto isRead = [&] {
      pollfd ready{pipe, POLLIN, 0};
      return ::poll(&ready, 1, 0) == 0;
    };
    EXPECT_TRUE(WaitFor(isRead)) << arguments.front();
    const auto begin = std::chrono::steady_clock::now();
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait(), 128 + SIGINT) << arguments.front();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s) << arguments.front();
    EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
  }
  ::close(pipe);
}

TEST_F(WatchedCommand, ACancelledFileOfManyHasTheCodeOfTheSignal) {
  SlowDown(30000, "key");
  Process process({CRYPTCLI_COMMAND, Arguments("verify", {"--json", "--jobs", "1", Path("file.p7m")})});
  EXPECT_TRUE(WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); }));
  std::this_thread::sleep_for(500ms);
  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait(), 128 + SIGTERM);
  const auto files = Map(process.GetOutput()).Get("files").AsArray();
  ASSERT_EQ(files.GetCount(), 1U);
  for (const OruGuiBase::Val& file : files) {
    EXPECT_EQ(file.AsMap().Get("exitCode").AsInteger(), 128 + SIGTERM);
    EXPECT_EQ(Str(file.AsMap().Get("code").AsString()), "cancelled");
    EXPECT_EQ(Str(file.AsMap().Get("error").AsString()), "The operation was cancelled");
  }
}

TEST_F(WatchedCommand, AnIgnoredSignalStaysIgnored) {
  SlowDown(600, "key");
  const auto before = std::signal(SIGQUIT, SIG_IGN);
  Process process({CRYPTCLI_COMMAND, Arguments("decrypt", {Path("file.p7m"), Path("t")})});
  std::signal(SIGQUIT, before);
  WaitFor([&] { return !scratch_.GetTemporaryNames().empty(); });
  process.Signal(SIGQUIT);
  EXPECT_EQ(process.Wait(), 0) << process.GetErrors();
}

TEST_F(WatchedCommand, AFailureLeavesNoTemporaryFile) {
  scratch_.Make("broken.p7m", scratch_.Read("file.p7m").substr(0, 500));
  EXPECT_EQ(Run("decrypt", {Path("broken.p7m"), Path("t")}).code, 7);
  EXPECT_THAT(scratch_.GetTemporaryNames(), IsEmpty());
}

TEST_F(WatchedCommand, WithoutATemporaryDirectoryFailsCleanly) {
  scratch_.BreakTemporary();
  const Finished finished = Run("decrypt", {Path("file.p7m"), Path("t")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.errors, HasSubstr("Could not create temporary directory: "));
  EXPECT_FALSE(scratch_.Exists("t"));
}

}  // namespace
}  // namespace TestSupport
