// The environment that tests of other projects start, and how it fails. That it works from an installed
// package is tested in tests/install.
#include <arpa/inet.h>
#include <cryptstand/environment.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace StandFixture {
namespace {

using cryptstand::Environment;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

// Sets a variable of the environment for one test.
class Variable {
 public:
  Variable(const char* name, const std::string& value) : name_(name) { setenv(name, value.c_str(), 1); }
  ~Variable() { unsetenv(name_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
};

bool Accepts(const std::string& url) {
  const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool accepts = connect(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(handle);
  return accepts;
}

std::size_t CountFiles(const std::filesystem::path& folder) {
  const std::filesystem::directory_iterator files(folder);
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

TEST(EnvironmentTest, RunsTheServersUntilItIsStopped) {
  Environment environment;
  EXPECT_FALSE(environment.IsRunning());
  ASSERT_TRUE(environment.Start({.keyServers = 2, .rooms = {"a b", "c"}})) << environment.GetError();
  EXPECT_TRUE(environment.IsRunning());
  EXPECT_THAT(environment.GetKeyServers(), SizeIs(2));
  EXPECT_THAT(environment.GetRooms(), ElementsAre("a b", "c"));
  const std::string service = environment.GetService();
  EXPECT_TRUE(Accepts(service)) << service;
  environment.Stop();
  EXPECT_FALSE(Accepts(service)) << service;
  EXPECT_FALSE(environment.IsRunning());
  EXPECT_EQ(environment.GetService(), "");
}

TEST(EnvironmentTest, KeepsItsFolderPrivateAndRemovesIt) {
  std::string own = testing::TempDir() + "environment-test-XXXXXX";
  ASSERT_NE(mkdtemp(own.data()), nullptr);
  const Variable variable("TMPDIR", own);
  {
    Environment environment;
    ASSERT_TRUE(environment.Start({.keyServers = 1})) << environment.GetError();
    EXPECT_THAT(environment.GetFolder(), StartsWith(own));
    const auto mode = std::filesystem::status(environment.GetFolder()).permissions();
    EXPECT_EQ(mode, std::filesystem::perms::owner_all);
    EXPECT_EQ(CountFiles(own), 1U);
  }
  EXPECT_EQ(CountFiles(own), 0U);
  std::filesystem::remove(own);
}

TEST(EnvironmentTest, StartsAgainAfterTheProgramWasStopped) {
  Environment environment;
  ASSERT_TRUE(environment.Start({.keyServers = 1})) << environment.GetError();
  const std::string folder = environment.GetFolder();
  ASSERT_TRUE(environment.Start({.keyServers = 1})) << environment.GetError();
  EXPECT_NE(environment.GetFolder(), folder);
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(EnvironmentTest, ReportsWhatTheProgramWrites) {
  Environment environment;
  EXPECT_FALSE(environment.Start({.arguments = {"--no-such-option"}}));
  EXPECT_THAT(environment.GetError(), HasSubstr(" ended before it was ready: "));
  EXPECT_THAT(environment.GetError(), HasSubstr("--no-such-option"));
  EXPECT_EQ(environment.GetFolder(), "");
}

TEST(EnvironmentTest, ReportsAProgramThatCannotBeStarted) {
  Environment environment;
  EXPECT_FALSE(environment.Start({.program = "/nowhere/cryptstand"}));
  EXPECT_EQ(environment.GetError(), "/nowhere/cryptstand cannot be started: No such file or directory");
}

TEST(EnvironmentTest, ReportsAProgramThatIsNeverReady) {
  Environment environment;
  // Takes options of any name, and does nothing for a long time.
  const std::string program = testing::TempDir() + "never_ready_" + std::to_string(getpid());
  std::ofstream(program) << "#!/bin/sh\necho waiting >&2\nexec sleep 1000\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  EXPECT_FALSE(environment.Start({.program = program, .startLimit = std::chrono::milliseconds(300)}));
  EXPECT_EQ(environment.GetError(), program + " is not ready in time: waiting\n");
  std::filesystem::remove(program);
}

TEST(EnvironmentTest, ReportsAMissingTemporaryFolder) {
  const Variable variable("TMPDIR", "/nowhere");
  Environment environment;
  EXPECT_FALSE(environment.Start());
  EXPECT_EQ(environment.GetError(), "No temporary folder: No such file or directory");
}

TEST(EnvironmentTest, TakesTheProgramOfTheVariable) {
  const Variable variable("CRYPTSTAND", "/nowhere/else");
  Environment environment;
  EXPECT_FALSE(environment.Start());
  EXPECT_THAT(environment.GetError(), StartsWith("/nowhere/else cannot be started"));
}

// In a process of its own, which ends without any destructor.
TEST(EnvironmentTest, StopsTheProgramWhenTheTestCrashes) {
  std::string own = testing::TempDir() + "environment-test-XXXXXX";
  ASSERT_NE(mkdtemp(own.data()), nullptr);
  const Variable variable("TMPDIR", own);
  const std::string address = own + "/address";
  const pid_t child = fork();
  if (child == 0) {
    Environment environment;
    if (environment.Start({.keyServers = 1})) std::ofstream(address) << environment.GetService();
    raise(SIGKILL);
  }
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  std::string service;
  std::ifstream(address) >> service;
  ASSERT_NE(service, "");
  bool accepts = true;
  for (int i = 0; i < 1000 && accepts; ++i) {
    accepts = Accepts(service);
    if (accepts) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_FALSE(accepts);
  std::filesystem::remove_all(own);
}

TEST(EnvironmentTest, StopsAProgramAlthoughTheSignalIsBlockedHere) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  const std::string program = testing::TempDir() + "never_ready_" + std::to_string(getpid());
  std::ofstream(program) << "#!/bin/sh\nexec sleep 1000\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  Environment environment;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(environment.Start({.program = program, .startLimit = std::chrono::milliseconds(100)}));
  // A kill would come after ten seconds.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  std::filesystem::remove(program);
}

}  // namespace
}  // namespace StandFixture
