#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "stand/database.h"
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

// Whether `isDone` becomes true within half a minute.
template <class Condition>
bool WaitFor(const Condition& isDone) {
  for (int i = 0; i < 3000; ++i) {
    if (isDone()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// The addresses, once the program has written them.
KVMap WaitForUrls(const std::string& path) {
  std::optional<KVMap> urls;
  WaitFor([&] { return (urls = ReadObject(ReadFile(path))).has_value(); });
  return urls.value_or(KVMap());
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

// Another program's lock on the database keeps the start waiting before any key is generated.
TEST(ProgramTest, SaysAtOnceThatItStarts) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  std::filesystem::create_directory(folder.Path("state"));
  std::string error;
  Database other;
  ASSERT_TRUE(other.Open(folder.Path("state/stand.sqlite"), error)) << error;
  ASSERT_TRUE(other.Execute("PRAGMA journal_mode = WAL; BEGIN IMMEDIATE", error)) << error;
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
  EXPECT_TRUE(WaitFor([&] { return program.Out().ends_with("\n"); }));
  EXPECT_EQ(program.Out(), "cryptstand: starting in " + folder.Path("state") + "\n");
  EXPECT_FALSE(std::filesystem::exists(file));
  ASSERT_TRUE(other.Execute("COMMIT", error)) << error;
  EXPECT_NE(ReadText(WaitForUrls(file), "service"), std::nullopt) << program.Error();
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
                                                                     {"--dir", "x", "--other"}}) {
    Program program(folder, arguments);
    EXPECT_NE(program.Wait(), 0);
    EXPECT_NE(program.Error(), "");
  }
}

}  // namespace
}  // namespace CryptStand
