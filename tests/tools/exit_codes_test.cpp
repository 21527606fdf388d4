// The exit codes that the commands really give, against those that their help lists: nobody keeps a list by
// hand that could be wrong in the same way as the help.
#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "tests/tools/operation_fixture.h"

namespace TestSupport {
namespace {

using CryptStand::Fault;
using CryptStand::FaultType;
using CryptStand::kCryptService;

using CodeSet = std::set<int>;

constexpr int kSignal = 128;
// A failure of the system and a signal can end any command; not each is made to happen here.
const CodeSet kOfAnyCommand = {0, 1, 2, kSignal};

// The numbers that begin the lines behind "Exit codes:", in their order.
std::vector<int> ListCodes(const std::string& help) {
  std::vector<int> codes;
  std::istringstream lines(help.substr(std::min(help.find("Exit codes:\n"), help.size())));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  ")) codes.push_back(std::stoi(line));
  }
  return codes;
}

class ExitCodes : public OperationTest {
 protected:
  void SetUp() override {
    OperationTest::SetUp();
    ASSERT_NO_FATAL_FAILURE(Protect());
    const std::string key = CryptStand::KeyPair::MakeRSA().ToBase64();
    ASSERT_EQ(Call("ImportKey", Texts({{"group", kGroup}, {"id", "codes"}, {"key", key}})).code, 0);
    scratch_.Make("args.json", JsonText(CallArguments(Texts({{"group", kGroup}}))));
  }

  void TearDown() override {
    // What "call" has left for its caller.
    for (const std::string& name : scratch_.GetTemporaryNames()) {
      if (name.starts_with("Audit Log ")) std::filesystem::remove(scratch_.Path("temporary/" + name));
    }
    OperationTest::TearDown();
  }

  /// A command line for each command that does its work.
  std::vector<std::vector<std::string>> GetCommandLines() const {
    return {
        Arguments("encrypt", {"--force", Path("plain.txt"), Path("new.p7m")}),
        Arguments("decrypt", {"--force", Path("file.p7m"), Path("opened.txt")}),
        Arguments("verify", {Path("file.p7m")}),
        Arguments("rekey", {Path("file.p7m")}),
        Arguments("sign", {"--object", "demo", "--key-id", "codes", Path("plain.txt")}),
        Arguments("audit-log", {"--group", kGroup, "--force", "-o", Path("log.csv")}),
        WithService("call", {"GetAuditLog", "--args", Path("args.json")}),
        {"operations"},
        {"inspect", Path("file.p7m")},
        Arguments("room", {}),
        Arguments("doctor", {}),
        {"config"},
    };
  }

  using Words = std::vector<std::string>;

  /// The code of the command with a mistake in its words or its surroundings.
  void Add(const Words& words, CodeSet& codes, const std::string& output = {}) const {
    codes.insert(RunProcess({CRYPTCLI_COMMAND, words, output}).code);
  }
  void AddWithWord(Words words, const Words& further, CodeSet& codes) const {
    words.insert(words.end(), further.begin(), further.end());
    Add(words, codes);
  }
  void AddWithFault(const Words& words, int first, int last, const Fault& fault, CodeSet& codes) {
    for (int server = first; server <= last; ++server) ASSERT_TRUE(stand_.SetFault(server, fault));
    Add(words, codes);
    for (int server = first; server <= last; ++server) ASSERT_TRUE(stand_.ClearFaults(server));
  }
  void AddWithDamage(const Words& words, CodeSet& codes) const {
    const std::string whole = scratch_.Read("file.p7m");
    scratch_.Make("file.p7m", whole.substr(0, whole.size() / 2));
    Add(words, codes);
    scratch_.Make("file.p7m", whole);
  }

  CodeSet Provoke(const Words& words) {
    CodeSet codes;
    Add(words, codes);
    Add(words, codes, "/dev/full");
    AddWithWord(words, {"--no-such-option"}, codes);
    AddWithWord(words, {"--expected-room", "other"}, codes);
    AddWithDamage(words, codes);
    Fault refusal{FaultType::ErrorCode};
    refusal.text = "QOB.1.1001.1.422645";
    AddWithFault(words, kCryptService, kCryptService, refusal, codes);
    AddWithFault(words, kCryptService, 2, Fault{FaultType::Status, "", 0, 401}, codes);
    AddWithFault(words, kCryptService, 2, Fault{FaultType::Down}, codes);
    AddWithFault(words, 0, 0, Fault{FaultType::Down}, codes);
    return codes;
  }
};

TEST_F(ExitCodes, OfEachCommandAreThoseThatItsHelpLists) {
  CodeSet all;
  for (const auto& words : GetCommandLines()) {
    const std::string& command = words.front();
    const std::vector<int> listed = ListCodes(RunCommand({command, "--help"}).output);
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end())) << command;
    CodeSet given = Provoke(words);
    EXPECT_TRUE(given.contains(0)) << command;
    given.insert(kOfAnyCommand.begin(), kOfAnyCommand.end());
    EXPECT_EQ(given, CodeSet(listed.begin(), listed.end())) << command;
    all.insert(given.begin(), given.end());
  }
  const std::vector<int> listed = ListCodes(RunCommand({"--help"}).output);
  EXPECT_EQ(all, CodeSet(listed.begin(), listed.end()));
}

// So that a new command is not forgotten here.
TEST_F(ExitCodes, AreProvokedForEachCommand) {
  const std::string help = RunCommand({"--help"}).output;
  std::istringstream lines(help.substr(std::min(help.find("Subcommands:\n"), help.size())));
  std::set<std::string> listed;
  std::string line;
  for (std::getline(lines, line); std::getline(lines, line) && line.starts_with("  ");) {
    listed.insert(line.substr(2, line.find(' ', 2) - 2));
  }
  std::set<std::string> tried;
  for (const auto& words : GetCommandLines()) tried.insert(words.front());
  EXPECT_EQ(tried, listed);
}

}  // namespace
}  // namespace TestSupport
