#include "tests/stand/program.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "stand/database.h"
#include "tests/stand/notify_socket.h"

namespace CryptStand {
namespace {

// The state of an environment whose keys exist, so that it starts at once. One test at a time uses it.
std::string ReadyState() {
  static const Folder folder;
  static const bool made = [] {
    Options options;
    options.folder = folder.Path("state");
    std::string error;
    return Stand(options).Start(error);
  }();
  EXPECT_TRUE(made);
  return folder.Path("state");
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

TEST(ProgramTest, RunsAProxyAndRequiresHeaders) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", folder.Path("state"), "--proxy", "0", "--require-header", "X-A: b",
                           "--url-file", file});
  const KVMap urls = WaitForUrls(file);
  const std::string proxy = ReadText(urls, "proxy").value_or("(none)");
  const std::string url = ReadText(urls, "service").value_or("(none)") + "crypt/key/demo";
  EXPECT_THAT(program.Out(), testing::HasSubstr("\nproxy " + proxy + "\n"));
  Peer peer({"", "", "", proxy});
  EXPECT_EQ(peer.Send("GET", url).status, 401);
  EXPECT_EQ(peer.Send("GET", url, std::nullopt, {{"X-A", "b"}}).status, 200);
  EXPECT_THAT(program.Out(), testing::HasSubstr(" --header 'X-A: VALUE' FILE FILE.p7m\n"));
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
  EXPECT_EQ(program.Wait(), 12);
  EXPECT_THAT(program.Error(), testing::StartsWith("cryptstand: " + folder.Path("a/b") + ": No such file"));
}

TEST(ProgramTest, SaysWhenItsPortIsTaken) {
  Stand stand;
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const std::string port = stand.GetServiceUrl().substr(17, stand.GetServiceUrl().size() - 18);
  const Folder folder;
  Program program(folder, {"--dir", folder.Path("state"), "--port", port});
  EXPECT_EQ(program.Wait(), 11);
  EXPECT_EQ(program.Error(), "cryptstand: port " + port + ": Address already in use\n");
}

TEST(ProgramTest, SaysAtOnceWhenItCannotWriteItsAddresses) {
  const Folder folder;
  std::filesystem::create_directory(folder.Path("urls"));
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
  const std::pair<std::string, std::string> rows[] = {{folder.Path("a/b"), "No such file or directory"},
                                                      {folder.Path("urls"), "Is a directory"},
                                                      {folder.Path("fifo"), "not a regular file"}};
  for (const auto& [file, reason] : rows) {
    Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
    EXPECT_EQ(program.Wait(), 12) << file;
    EXPECT_EQ(program.Error(), "cryptstand: " + file + ": " + reason + "\n");
    EXPECT_EQ(program.Out(), "");
    EXPECT_FALSE(std::filesystem::exists(folder.Path("state"))) << "something was tried";
  }
}

TEST(ProgramTest, WritesItsAddressesIntoItsNewFolder) {
  const Folder folder;
  const std::string file = folder.Path("state/urls.json");
  Program program(folder, {"--dir", folder.Path("state/"), "--url-file", file});
  EXPECT_NE(ReadText(WaitForUrls(file), "service"), std::nullopt) << program.Error();
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, RemovesOldAddressesWhenItDoesNotStart) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  std::ofstream(file) << "{}";
  Program program(folder, {"--dir", folder.Path("a/b"), "--url-file", file});
  EXPECT_EQ(program.Wait(), 12);
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(ProgramTest, KeepsTheAddressesOfTheEnvironmentThatUsesTheFolder) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  std::string error;
  Stand running({.folder = folder.Path("state")});
  ASSERT_TRUE(running.Reserve(error)) << error;
  std::ofstream(file) << "{}";
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
  EXPECT_EQ(program.Wait(), 10);
  EXPECT_THAT(program.Error(), testing::HasSubstr("is in use by process"));
  EXPECT_EQ(program.Out(), "") << "it does not start";
  EXPECT_EQ(ReadFile(file), "{}");
}

TEST(ProgramTest, LeavesItsFolderBeforeItSaysThatItHasStopped) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", folder.Path("state"), "--url-file", file});
  ASSERT_NE(ReadText(WaitForUrls(file), "service"), std::nullopt) << program.Error();
  ASSERT_EQ(kill(program.GetProcess(), SIGTERM), 0);
  ASSERT_TRUE(WaitFor([&] { return program.Out().ends_with("cryptstand: stopped\n"); }));
  Stand next({.folder = folder.Path("state")});
  std::string error;
  EXPECT_TRUE(next.Reserve(error)) << error;
  EXPECT_EQ(program.Wait(), 0);
}

TEST(ProgramTest, RemovesItsAddressesAtItsEnd) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", ReadyState(), "--url-file", file});
  WaitForUrls(file);
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(ProgramTest, KeepsTheAddressesOfAnotherEnvironment) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", ReadyState(), "--url-file", file});
  WaitForUrls(file);
  std::ofstream(file) << "{}";
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
  EXPECT_EQ(ReadFile(file), "{}");
}

TEST(ProgramTest, RefusesWrongArguments) {
  const Folder folder;
  const std::string noCertificates = folder.Path("out");  // an output of the program
  for (const auto& arguments :
       std::vector<std::vector<std::string>>{{"--key-servers", "0"},
                                             {"--port", "70000"},
                                             {"--control-token", "a b"},
                                             {"--client-ca", "make"},
                                             {"--tls", "--client-ca", folder.Path("none.pem")},
                                             {"--tls", "--client-ca", noCertificates},
                                             {"--listen", "stand.example"},
                                             {"--listen", ""},
                                             {"--announce", "a,DNS:b"},
                                             {"--announce", "[::1]"},
                                             {"--require-header", "s3cret"},
                                             {"--require-header", "X-A: s3cret\r\nX-B: c"},
                                             {"--room", ""},
                                             {"--room", "\xff"},
                                             {"--allow-host", "stand.example other"},
                                             {"--allow-host", "stand.example:80"},
                                             {"--seed=-1"},
                                             {"--seed", "9223372036854775808"},
                                             {"--seed", "7x"},
                                             {"--other"}}) {
    std::vector<std::string> all = {"--dir", folder.Path("state")};
    all.insert(all.end(), arguments.begin(), arguments.end());
    Program program(folder, all);
    EXPECT_EQ(program.Wait(), 2) << testing::PrintToString(arguments);
    EXPECT_NE(program.Error(), "");
    EXPECT_EQ(program.Error().find("may be reached"), std::string::npos);
    EXPECT_EQ(program.Error().find("s3cret"), std::string::npos) << "a header may be a credential";
    EXPECT_FALSE(std::filesystem::exists(folder.Path("state"))) << testing::PrintToString(arguments);
  }
}

TEST(ProgramTest, NeedsAFolder) {
  const Folder folder;
  Program program(folder, {});
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_THAT(program.Error(), testing::HasSubstr("--dir"));
}

TEST(ProgramTest, RefusesAnEmptyFolder) {
  const Folder folder;
  Program program(folder, {"--dir", ""});
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_THAT(program.Error(), testing::HasSubstr("the folder must not be empty"));
}

TEST(ProgramTest, TakesTheLargestSeed) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", ReadyState(), "--url-file", file, "--seed", "9223372036854775807"});
  EXPECT_NE(ReadText(WaitForUrls(file), "service"), std::nullopt) << program.Error();
  EXPECT_EQ(program.Stop(SIGTERM), 0);
}

// No machine has an address of the block for documentation (RFC 5737).
TEST(ProgramTest, WarnsOfNothingWhenItsAddressIsRefused) {
  const Folder folder;
  Program program(folder, {"--dir", folder.Path("state"), "--listen", "192.0.2.1"});
  EXPECT_EQ(program.Wait(), 11);
  EXPECT_EQ(program.Error(), "cryptstand: port 0: Cannot assign requested address\n");
}

TEST(ProgramTest, SaysWhenThePortOfItsProxyIsTaken) {
  Stand stand;
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const std::string port = stand.GetServiceUrl().substr(17, stand.GetServiceUrl().size() - 18);
  const Folder folder;
  Program program(folder, {"--dir", folder.Path("state"), "--proxy", port});
  EXPECT_EQ(program.Wait(), 11);
  EXPECT_EQ(program.Error(), "cryptstand: port " + port + ": Address already in use\n");
}

TEST(ProgramTest, SaysWhenItsFolderCannotBeReached) {
  const Folder folder;
  std::filesystem::create_symlink(folder.Path("loop"), folder.Path("loop"));
  Program program(folder, {"--dir", folder.Path("loop/state")});
  EXPECT_EQ(program.Wait(), 12);
  EXPECT_EQ(program.Error(),
            "cryptstand: " + folder.Path("loop/state") + ": Too many levels of symbolic links\n");
}

TEST(ProgramTest, EncodesItsTokenInThePage) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  Program program(folder, {"--dir", ReadyState(), "--url-file", file, "--control-token", "aZ9-._~+/="});
  const KVMap urls = WaitForUrls(file);
  EXPECT_EQ(ReadText(urls, "token"), "aZ9-._~+/=");
  EXPECT_EQ(ReadText(urls, "page"), ReadText(urls, "service").value_or("") + "#token=aZ9-._~%2B%2F%3D");
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, QuotesItsCommandsForTheShell) {
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  const std::string state = folder.Path("st'ate");
  Program program(folder, {"--dir", state, "--room", "it's", "--tls", "--url-file", file});
  WaitForUrls(file);
  EXPECT_THAT(program.Out(), testing::HasSubstr(" --room 'it'\\''s' "));
  EXPECT_THAT(program.Out(), testing::HasSubstr("/st'\\''ate/server-ca.pem' "));
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
}

TEST(ProgramTest, NamesAnArgumentThatItDoesNotKnow) {
  const Folder folder;
  Program program(folder, {"--dri=x", "--port", "1"});
  EXPECT_EQ(program.Wait(), 2);
  EXPECT_EQ(program.Error(), "cryptstand: unknown argument \"--dri\"; --help lists all options\n");
}

TEST(ProgramTest, ListsItsOptionsAndExitCodes) {
  const Folder folder;
  Program program(folder, {"--help"});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Out(), testing::HasSubstr("--seed"));
  EXPECT_THAT(program.Out(), testing::HasSubstr("  10  another process uses the folder\n"));
}

TEST(ProgramTest, PrintsItsVersionAndThoseOfItsLibraries) {
  const Folder folder;
  Program program(folder, {"--version"});
  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(program.Out(),
              testing::MatchesRegex("cryptstand [0-9.]+\nOpenSSL 3[0-9.]+\nSQLite 3[0-9.]+\n"));
}

TEST(ProgramTest, RefusesAFolderThatAnotherProcessUses) {
  const Folder first;
  const Folder second;
  const std::string file = first.Path("urls.json");
  Program owner(first, {"--dir", ReadyState(), "--url-file", file});
  ASSERT_NE(ReadText(WaitForUrls(file), "service"), std::nullopt) << owner.Error();
  Program program(second, {"--dir", ReadyState()});
  EXPECT_EQ(program.Wait(), 10);
  EXPECT_EQ(program.Error(), "cryptstand: " + ReadyState() + " is in use by process " +
                                 std::to_string(owner.GetProcess()) + "\n");
  EXPECT_EQ(owner.Stop(SIGKILL), -SIGKILL);
  // What a killed process leaves is no lock.
  Program next(second, {"--dir", ReadyState(), "--url-file", second.Path("urls.json")});
  EXPECT_NE(ReadText(WaitForUrls(second.Path("urls.json")), "service"), std::nullopt) << next.Error();
}

TEST(ProgramTest, NotifiesItsServiceManager) {
  const Folder folder;
  NotifySocket manager(folder.Path("notify"));
  Program program(folder, {"--dir", ReadyState(), "--url-file", folder.Path("urls.json")});
  EXPECT_EQ(manager.Receive(), "READY=1");
  const KVMap urls = ReadObject(ReadFile(folder.Path("urls.json"))).value_or(KVMap());
  EXPECT_EQ(program.Stop(SIGTERM), 0) << program.Error();
  EXPECT_EQ(manager.Receive(), "STOPPING=1");
  // The output of a service goes into a journal, which others may read.
  const std::string token = ReadText(urls, "token").value_or("(none)");
  EXPECT_THAT(program.Out(), testing::Not(testing::HasSubstr(token)));
  EXPECT_THAT(program.Out(), testing::HasSubstr("\npage " + *ReadText(urls, "service") + "\n"));
  EXPECT_THAT(program.Out(), testing::HasSubstr("\ntoken in " + ReadyState() + "/control-token\n"));
  EXPECT_THAT(program.Out(), testing::EndsWith("cryptstand: stopped\n"));
}

TEST(ProgramTest, RunsWithoutItsServiceManager) {
  const Folder folder;
  const std::string name = folder.Path("notify");
  { const NotifySocket gone(name, /*keepsVariable=*/true); }
  Program program(folder, {"--dir", ReadyState(), "--url-file", folder.Path("urls.json")});
  unsetenv("NOTIFY_SOCKET");
  EXPECT_NE(ReadText(WaitForUrls(folder.Path("urls.json")), "service"), std::nullopt);
  EXPECT_EQ(program.Stop(SIGTERM), 0);
  EXPECT_THAT(program.Error(), testing::StartsWith("cryptstand: $NOTIFY_SOCKET (" + name + "): "));
}

// The output is a full pipe, so that the program cannot print its last line.
TEST(ProgramTest, EndsAtOnceOnASecondSignal) {
  const Folder folder;
  ASSERT_EQ(mkfifo(folder.Path("out").c_str(), 0600), 0);
  const int pipe = open(folder.Path("out").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  Program program(folder, {"--dir", ReadyState(), "--url-file", folder.Path("urls.json")});
  WaitForUrls(folder.Path("urls.json"));
  const std::string filler(4096, 'x');
  while (write(pipe, filler.data(), filler.size()) > 0) {
  }
  while (write(pipe, "x", 1) > 0) {
  }
  EXPECT_TRUE(WaitFor([&] { return program.HasEnded(SIGTERM); }));
  EXPECT_EQ(program.Wait(), -SIGTERM);
  close(pipe);
}

TEST(ProgramTest, RunsWithoutStandardDescriptors) {
  const Folder folder;
  Program program(folder, {"--dir", ReadyState(), "--url-file", folder.Path("urls.json")},
                  /*hasDescriptors=*/false);
  const std::string service = ReadText(WaitForUrls(folder.Path("urls.json")), "service").value_or("(none)");
  EXPECT_EQ(Get(service + "crypt/key/demo").Text("room"), "demo");
  std::ifstream lock(ReadyState() + "/lock");
  std::string line;
  std::getline(lock, line);
  EXPECT_EQ(line, std::to_string(program.GetProcess())) << "output went into a file";
  EXPECT_EQ(program.Stop(SIGTERM), 0);
}

}  // namespace
}  // namespace CryptStand
