#include "tools/apply_settings.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "tests/support/files.h"

namespace CryptCli {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A command with some of the options, a configuration file and an environment.
class SettingsFillerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    command_.add_option("--profile", profile_);
    command_.add_option("--service", service_);
    command_.add_option("--client-cert", certificate_);
    command_.add_option("--client-key", key_);
    command_.add_option("--header-file", headers_);
    command_.add_option("--timeout", timeout_)->check(CLI::Range(1, 3600));
  }

  // The reason why it failed; empty when it did not.
  std::string Apply(std::vector<std::string> arguments, const std::string& file) {
    scratch_.Make("config", file);
    filler_.Adopt(command_);
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    command_.parse(arguments);
    ConfigurationSources sources;
    sources.userFile = scratch_.Path("config").string();
    sources.systemFile = scratch_.Path("none").string();
    sources.environment = [this](const char* name) -> const char* {
      const auto found = environment_.find(name);
      return found == environment_.end() ? nullptr : found->second.c_str();
    };
    std::string reason;
    const bool isFilled = filler_.Fill(command_, sources, reason);
    EXPECT_EQ(isFilled, reason.empty());
    return reason;
  }

  TestSupport::ScratchDirectory scratch_;
  std::map<std::string, std::string, std::less<>> environment_;
  CLI::App command_;
  SettingsFiller filler_;
  std::string profile_;
  std::string service_;
  std::string certificate_;
  std::string key_;
  std::string headers_;
  int timeout_ = 0;
};

TEST_F(SettingsFillerTest, FillsInWhatTheCommandLineLeavesOut) {
  EXPECT_EQ(Apply({}, "service = https://a\ntimeout = 7\nroom = r\n"), "");
  EXPECT_EQ(service_, "https://a");
  EXPECT_EQ(timeout_, 7);
}

TEST_F(SettingsFillerTest, PrefersTheOption) {
  environment_["CRYPTCLI_SERVICE"] = "https://e";
  EXPECT_EQ(Apply({"--service", "https://o", "--timeout", "9"}, "service = https://a\ntimeout = 7\n"), "");
  EXPECT_EQ(service_, "https://o");
  EXPECT_EQ(timeout_, 9);
}

TEST_F(SettingsFillerTest, PrefersAnOptionThatIsEmpty) {
  EXPECT_EQ(Apply({"--service", ""}, "service = https://a\n"), "");
  EXPECT_EQ(service_, "");
}

TEST_F(SettingsFillerTest, TakesTheProfileOfTheOption) {
  environment_["CRYPTCLI_PROFILE"] = "b";
  EXPECT_EQ(Apply({"--profile", "a"}, "[a]\nservice = https://a\n[b]\nservice = https://b\n"), "");
  EXPECT_EQ(service_, "https://a");
}

TEST_F(SettingsFillerTest, SaysWhereANeededOptionCanBeSet) {
  command_.get_option("--service")->required();
  EXPECT_EQ(Apply({}, ""),
            "--service is required, or CRYPTCLI_SERVICE, or 'service' in a configuration file");
}

TEST_F(SettingsFillerTest, FillsInANeededOption) {
  command_.get_option("--service")->required();
  EXPECT_EQ(Apply({}, "service = https://a\n"), "");
  EXPECT_EQ(service_, "https://a");
}

TEST_F(SettingsFillerTest, ChecksValuesAsThoseOfOptions) {
  EXPECT_THAT(Apply({}, "\ntimeout = 0\n"), HasSubstr("config:2: "));
  EXPECT_THAT(timeout_, 0);
}

TEST_F(SettingsFillerTest, RefusesAFileWithAProblem) {
  EXPECT_THAT(Apply({}, "servce = https://a\n"), HasSubstr("did you mean 'service'?"));
}

TEST_F(SettingsFillerTest, LeavesACommandWithoutServiceAlone) {
  CLI::App inspect;
  ConfigurationSources sources;
  scratch_.Make("config", "nonsense\n");
  sources.userFile = scratch_.Path("config").string();
  sources.environment = [](const char*) -> const char* { return nullptr; };
  std::string reason;
  EXPECT_TRUE(filler_.Fill(inspect, sources, reason));
}

TEST_F(SettingsFillerTest, UsesAKeyWithTheCertificateOfItsPlace) {
  EXPECT_EQ(Apply({}, "client-cert = /c\nclient-key = /k\n"), "");
  EXPECT_EQ(certificate_ + key_, "/c/k");
}

TEST_F(SettingsFillerTest, DoesNotUseAKeyWithTheCertificateOfAStrongerPlace) {
  EXPECT_EQ(Apply({"--client-cert", "/o"}, "client-cert = /c\nclient-key = /k\n"), "");
  EXPECT_EQ(certificate_ + key_, "/o");
}

TEST_F(SettingsFillerTest, UsesAKeyOfAStrongerPlaceWithTheCertificate) {
  EXPECT_EQ(Apply({"--client-key", "/o"}, "client-cert = /c\nclient-key = /k\n"), "");
  EXPECT_EQ(certificate_ + key_, "/c/o");
}

TEST_F(SettingsFillerTest, SendsTheHeadersOfAFileToItsServiceAlone) {
  EXPECT_EQ(Apply({"--service", "https://other"}, "service = https://a\nheader-file = /h\n"), "");
  EXPECT_THAT(headers_, IsEmpty());
}

TEST_F(SettingsFillerTest, SendsTheHeadersOfAFileToItsServiceWhoeverNamesIt) {
  EXPECT_EQ(Apply({"--service", "https://a/"}, "service = https://a\nheader-file = /h\n"), "");
  EXPECT_EQ(headers_, "/h");
}

TEST_F(SettingsFillerTest, SendsTheHeadersOfAFileWithoutServiceToAnyService) {
  EXPECT_EQ(Apply({"--service", "https://other"}, "header-file = /h\n"), "");
  EXPECT_EQ(headers_, "/h");
}

TEST_F(SettingsFillerTest, SendsTheHeadersOfTheEnvironmentToAnyService) {
  environment_["CRYPTCLI_HEADER_FILE"] = "/e";
  EXPECT_EQ(Apply({"--service", "https://other"}, "service = https://a\n"), "");
  EXPECT_EQ(headers_, "/e");
}

}  // namespace
}  // namespace CryptCli
