// "config", and that commands use what it shows.
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>

#include "stand/cert_maker.h"
#include "tests/tools/command_fixture.h"

namespace TestSupport {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// Sets variables of this process, which the command inherits, and restores them at its end.
class Variables {
 public:
  Variables() = default;
  Variables(const Variables&) = delete;
  Variables& operator=(const Variables&) = delete;
  ~Variables() {
    for (const auto& [name, before] : before_) {
      before ? ::setenv(name.c_str(), before->c_str(), 1) : ::unsetenv(name.c_str());
    }
  }
  void Set(const std::string& name, const std::string& value) {
    const char* const before = std::getenv(name.c_str());
    before_.emplace(name, before == nullptr ? std::nullopt : std::optional<std::string>(before));
    ::setenv(name.c_str(), value.c_str(), 1);
  }

 private:
  std::map<std::string, std::optional<std::string>> before_;
};

class Config : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    std::filesystem::create_directories(scratch_.Path("cryptcli"));
    variables_.Set("XDG_CONFIG_HOME", scratch_.Path(".").lexically_normal().string());
  }
  void Configure(const std::string& text) const { scratch_.Make("cryptcli/config", text); }
  // The line of a setting, its words separated by single blanks.
  static std::string Line(const Finished& finished, const std::string& setting) {
    std::istringstream lines(finished.output);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind(setting + " ", 0) != 0) continue;
      std::istringstream words(line);
      std::string all;
      for (std::string word; words >> word;) all += (all.empty() ? "" : " ") + word;
      return all;
    }
    return "none";
  }

  Variables variables_;
};

TEST_F(Config, ShowsEachSettingWithItsPlace) {
  Configure("room = r\n[work]\nproxy = http://p\n");
  const CryptStand::Identity root = CryptStand::Identity::MakeRoot(CryptStand::CertSpec::Authority("CA"));
  const std::string authorities(scratch_.Make("ca", root.certificate.ToPEM()).GetPath().View());
  variables_.Set("CRYPTCLI_CA_FILE", authorities);
  const Finished finished = RunCommand({"config", "--service", "https://s", "--profile", "work"});
  EXPECT_EQ(finished.code, 0) << finished.errors;
  const std::string file = Path("cryptcli/config");
  EXPECT_EQ(Line(finished, "profile"), "profile work --profile");
  EXPECT_EQ(Line(finished, "service"), "service https://s --service");
  EXPECT_EQ(Line(finished, "room"), "room r " + file + ":1");
  EXPECT_EQ(Line(finished, "ca-file"), "ca-file " + authorities + " CRYPTCLI_CA_FILE");
  EXPECT_EQ(Line(finished, "proxy"), "proxy http://p " + file + ":3 [work]");
  EXPECT_EQ(Line(finished, "timeout"), "timeout 300 default");
  EXPECT_THAT(finished.output, HasSubstr("exists"));
}

TEST_F(Config, ReportsAsJSON) {
  Configure("room = r\n");
  const OruGuiBase::KVMap report = Map(RunCommand({"config", "--json"}).output);
  EXPECT_THAT(JsonText(report), HasSubstr(R"({"name":"room","value":"r","origin":"user_file","place":")" +
                                          Path("cryptcli/config") + R"(:1"})"));
}

TEST_F(Config, ShowsNoPassword) {
  variables_.Set("CRYPTCLI_PROXY", "http://user:p@ss@proxy:1");
  variables_.Set("CRYPTCLI_HEADER_FILE",
                 scratch_.Make("headers", "Authorization: secret").GetPath().GetText());
  for (const bool asJSON : {false, true}) {
    std::vector<std::string> arguments{"config"};
    if (asJSON) arguments.emplace_back("--json");
    const Finished finished = RunCommand(arguments);
    EXPECT_THAT(finished.output, HasSubstr("http://***@proxy:1"));
    EXPECT_THAT(finished.output + finished.errors, Not(HasSubstr("p@ss")));
    EXPECT_THAT(finished.output + finished.errors, Not(HasSubstr("secret")));
  }
}

TEST_F(Config, ListsAllProblems) {
  Configure("rom = r\nnonsense\n");
  const Finished finished = RunCommand({"config"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("config:1: unknown setting 'rom'; did you mean 'room'?"));
  EXPECT_THAT(finished.errors, HasSubstr("config:2: "));
}

TEST_F(Config, ListsWhatEveryCommandWouldRefuse) {
  Configure("timeout = 0\nheader-file = missing\n");
  const Finished finished = RunCommand({"config", "--json"});
  EXPECT_EQ(finished.code, 2);
  const OruGuiBase::Array<OruGuiBase::Val> problems = Map(finished.output).Get("problems").AsArray();
  ASSERT_EQ(problems.GetCount(), 2U) << finished.output;
  EXPECT_THAT(Str(problems[0].AsString()), HasSubstr("config:2: "));
  EXPECT_THAT(Str(problems[1].AsString()), HasSubstr("config:1: "));
}

TEST_F(Config, ListsWhatAClientCannotBeMadeWith) {
  scratch_.Make("junk.pem", "no certificate");
  const std::string junk = scratch_.Path("junk.pem").string();
  const std::vector<std::vector<std::string>> rows = {{"--service", "foo://x"},
                                                      {"--service", "http://host/", "--proxy", "socks5://x"},
                                                      {"--service", "http://host/", "--ca-file", junk}};
  for (const auto& options : rows) {
    std::vector<std::string> arguments = {"config"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(RunCommand(arguments).code, 2) << options.back();
  }
}

TEST_F(Config, ListsAKeyWithoutItsCertificate) {
  scratch_.Make("cryptcli/key", "");
  Configure("client-key = key\n");
  const Finished finished = RunCommand({"config"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("need --client-cert"));
}

TEST_F(Config, SaysWhatIsNotUsed) {
  Configure("service = https://a\nheader-file = h\n");
  const Finished finished = RunCommand({"config", "--service", "https://b"});
  EXPECT_THAT(Line(finished, "header-file"), HasSubstr("(not used: it is for the service https://a)"));
}

TEST_F(Config, ACommandUsesTheFile) {
  Configure("service = " + stand_.GetServiceUrl() + "\n[work]\nroom = demo\n");
  const Finished finished = RunCommand({"encrypt", "--profile", "work", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
}

TEST_F(Config, ACommandUsesTheEnvironment) {
  variables_.Set("CRYPTCLI_SERVICE", stand_.GetServiceUrl());
  variables_.Set("CRYPTCLI_ROOM", "demo");
  const Finished finished = RunCommand({"encrypt", Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 0) << finished.errors;
}

TEST_F(Config, ACommandRefusesAFileThatOthersCanWrite) {
  Configure("room = demo\n");
  std::filesystem::permissions(scratch_.Path("cryptcli/config"), std::filesystem::perms(0666));
  const Finished finished = Run("encrypt", {Path("plain.txt"), Path("file.p7m")});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(finished.errors, HasSubstr("others can write to it"));
}

TEST_F(Config, AMissingSettingIsNamedWithEveryPlace) {
  const Finished finished =
      RunCommand({"encrypt", "--service", stand_.GetServiceUrl(), "--json", Path("plain.txt"), "t"});
  EXPECT_EQ(finished.code, 2);
  EXPECT_THAT(Str(Map(finished.output).Get("error").AsString()),
              HasSubstr("--room is required, or CRYPTCLI_ROOM, or 'room' in a configuration file"));
}

TEST_F(Config, ACommandWithoutServerIgnoresTheFile) {
  Configure("nonsense\n");
  EXPECT_EQ(RunCommand({"operations"}).code, 0);
}

}  // namespace
}  // namespace TestSupport
