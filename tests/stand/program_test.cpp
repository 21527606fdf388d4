#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "tests/stand/folder.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// Runs the program as a shell would, with its output in files of the test's folder.
class Program {
 public:
  Program(const Folder& folder, std::vector<std::string> arguments)
      : out_(folder.Path("out")), error_(folder.Path("error")) {
    arguments.insert(arguments.begin(), CRYPTSTAND_PROGRAM);
    std::vector<char*> raw;
    for (std::string& argument : arguments) raw.push_back(argument.data());
    raw.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), kFlags, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, error_.c_str(), kFlags, 0600);
    if (posix_spawn(&process_, raw[0], &actions, nullptr, raw.data(), environ) != 0) process_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~Program() {
    if (process_ > 0) Stop(SIGKILL);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  int Stop(int signal) {
    kill(process_, signal);
    return Wait();
  }
  /// The exit code, or minus the signal that ended it.
  int Wait() {
    int status = 0;
    if (process_ <= 0 || waitpid(std::exchange(process_, -1), &status, 0) < 0) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  std::string Out() const { return ReadFile(out_); }
  std::string Error() const { return ReadFile(error_); }

 private:
  std::string out_;
  std::string error_;
  pid_t process_ = -1;
};

// The addresses, once the program has written them.
KVMap WaitForUrls(const std::string& path) {
  for (int i = 0; i < 3000; ++i) {
    const auto urls = ReadObject(ReadFile(path));
    if (urls.has_value()) return *urls;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return {};
}

TEST(ProgramTest, ServesUntilItIsSignalled) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const Folder folder;
    const std::string file = folder.Path("urls.json");
    Program program(folder, {"--dir", folder.Path("state"), "--key-servers", "2", "--room", "a b", "--room",
                             "c", "--url-file", file});
    const KVMap urls = WaitForUrls(file);
    const std::string service = ReadText(urls, "service").value_or("(none)");
    EXPECT_EQ(ReadTexts(urls, "keyservers").value_or(std::vector<std::string>()).size(), 2U);
    EXPECT_EQ(ReadTexts(urls, "rooms"), (std::vector<std::string>{"a b", "c"}));
    EXPECT_EQ(Get(service + "crypt/key/a%20b").Text("room"), "a b");
    EXPECT_THAT(program.Out(), testing::HasSubstr("local test environment"));
    EXPECT_THAT(program.Out(),
                testing::HasSubstr("cryptcli encrypt --service " + service + " --room 'a b' "));
    EXPECT_EQ(program.Stop(signal), 0) << program.Error();
    EXPECT_EQ(program.Error(), "");
  }
}

TEST(ProgramTest, ServesHttpsToItsClient) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  const std::string state = folder.Path("state");
  Program program(folder, {"--dir", state, "--tls", "--client-ca", "make", "--url-file", file});
  const KVMap urls = WaitForUrls(file);
  EXPECT_EQ(ReadText(urls, "caFile"), state + "/server-ca.pem");
  EXPECT_EQ(ReadText(urls, "clientCertificate"), state + "/client.pem");
  EXPECT_EQ(ReadText(urls, "clientKey"), state + "/client.key");
  const std::string service = ReadText(urls, "service").value_or("(none)");
  EXPECT_THAT(service, testing::StartsWith("https://127.0.0.1:"));
  Peer peer(
      {ReadFile(state + "/server-ca.pem"), ReadFile(state + "/client.pem"), ReadFile(state + "/client.key")});
  EXPECT_EQ(peer.Send("GET", service + "crypt/key/demo").Text("room"), "demo");
  EXPECT_THAT(program.Out(), testing::HasSubstr("\nca-file " + state + "/server-ca.pem\n"));
  EXPECT_THAT(program.Out(),
              testing::HasSubstr("--ca-file '" + state + "/server-ca.pem' --client-cert '" + state +
                                 "/client.pem' --client-key '" + state + "/client.key' FILE FILE.p7m\n"));
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, WarnsWhenOtherMachinesMayReachIt) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", folder.Path("state"), "--listen", "0.0.0.0", "--url-file", file});
  EXPECT_THAT(ReadText(WaitForUrls(file), "service").value_or(""), testing::StartsWith("http://localhost:"));
  EXPECT_EQ(program.Stop(SIGTERM), 0);
  EXPECT_THAT(program.Error(), testing::StartsWith("cryptstand: warning: 0.0.0.0 may be reached"));
}

TEST(ProgramTest, StopsWhileAConnectionIsOpen) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
  const std::string service = ReadText(WaitForUrls(file), "service").value_or("http://127.0.0.1:1/");
  Peer peer;
  ASSERT_NE(peer.Send("GET", service + "crypt/key/demo").status, 0);
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, GoesOnWhenNobodyReadsItsOutput) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  ASSERT_EQ(mkfifo(folder.Path("out").c_str(), 0600), 0);
  const int reader = open(folder.Path("out").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
  close(reader);
  EXPECT_NE(ReadText(WaitForUrls(file), "service"), std::nullopt);
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

unsigned ModeOfFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
}

TEST(ProgramTest, WritesItsTokenWhereOnlyItsOwnerCanRead) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  std::ofstream(file) << "{";
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
  const KVMap urls = WaitForUrls(file);
  const std::string token = ReadText(urls, "token").value_or("(none)");
  EXPECT_EQ(ReadFile(folder.Path("state/control-token")), token + "\n");
  EXPECT_EQ(ModeOfFile(folder.Path("state/control-token")), 0600U);
  EXPECT_EQ(ModeOfFile(file), 0600U);
  const std::string page = *ReadText(urls, "service") + "#token=" + token;
  EXPECT_EQ(ReadText(urls, "page"), page);
  EXPECT_THAT(program.Out(), testing::HasSubstr("page " + page + "\n"));
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, TakesATokenAndHosts) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file, "--control-token", "t0ken",
                           "--allow-host", "stand.example"});
  const KVMap urls = WaitForUrls(file);
  EXPECT_EQ(ReadText(urls, "token"), "t0ken");
  const Reply reply = Peer().Send("DELETE", *ReadText(urls, "service") + "stand/v1/events", {},
                                  {{"Authorization", "Bearer t0ken"}, {"Host", "stand.example"}});
  EXPECT_EQ(reply.status, 200) << reply.body;
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, SaysWhyItCannotStart) {
  const Folder folder;
  Program program(folder, {"--dir", folder.Path("a/b")});
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_THAT(program.Error(), testing::StartsWith("cryptstand: " + folder.Path("a/b") + ": No such file"));
}

TEST(ProgramTest, SaysWhenItsPortIsTaken) {
  Stand stand;
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const std::string port = stand.GetServiceUrl().substr(17, stand.GetServiceUrl().size() - 18);
  const Folder folder;
  Program program(folder, {"--dir", folder.Path("state"), "--port", port});
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_EQ(program.Error(), "cryptstand: port " + port + ": Address already in use\n");
}

TEST(ProgramTest, SaysWhenItCannotWriteItsAddresses) {
  const Folder folder;
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", folder.Path("a/b")});
  EXPECT_EQ(program.Wait(), 1);
  EXPECT_THAT(program.Error(), testing::HasSubstr("cannot be written"));
}

TEST(ProgramTest, RefusesWrongArguments) {
  const Folder folder;
  for (const auto& arguments : std::vector<std::vector<std::string>>{{},
                                                                     {"--dir", "x", "--key-servers", "0"},
                                                                     {"--dir", "x", "--port", "70000"},
                                                                     {"--dir", "x", "--control-token", "a b"},
                                                                     {"--dir", "x", "--client-ca", "make"},
                                                                     {"--dir", "x", "--other"}}) {
    Program program(folder, arguments);
    EXPECT_NE(program.Wait(), 0);
    EXPECT_NE(program.Error(), "");
  }
}

}  // namespace
}  // namespace CryptStand
