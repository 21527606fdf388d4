#include "tools/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "tests/support/files.h"

namespace CryptCli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// A configuration of the test's own: two files and an environment.
class ConfigurationTest : public ::testing::Test {
 protected:
  Configuration Load(const std::string& profile = {}) {
    ConfigurationSources sources;
    sources.userFile = scratch_.Path("user").string();
    sources.systemFile = scratch_.Path("system").string();
    sources.environment = [this](const char* name) -> const char* {
      const auto found = environment_.find(name);
      return found == environment_.end() ? nullptr : found->second.c_str();
    };
    return Configuration::Load(sources, profile);
  }

  // "VALUE from PLACE", with the path of the scratch directory as "@".
  std::string Show(const Configuration& configuration, std::string_view key) const {
    for (const Setting& setting : GetSettings()) {
      if (key != setting.key) continue;
      const auto found = configuration.Find(setting);
      return found ? Shorten(found->value + " from " + found->place) : "nothing";
    }
    return "no such setting";
  }

  std::string Shorten(std::string text) const {
    const std::string folder = scratch_.Path("").string();
    for (std::size_t at = 0; (at = text.find(folder, at)) != std::string::npos;) {
      text.replace(at, folder.size(), "@");
    }
    return text;
  }

  std::vector<std::string> Problems(const std::string& profile = {}) {
    std::vector<std::string> all;
    const Configuration configuration = Load(profile);
    for (const std::string& problem : configuration.GetProblems()) all.push_back(Shorten(problem));
    return all;
  }

  TestSupport::ScratchDirectory scratch_;
  std::map<std::string, std::string, std::less<>> environment_;
};

TEST_F(ConfigurationTest, FindsNothingWhereNothingIsSet) {
  const Configuration configuration = Load();
  EXPECT_THAT(configuration.GetProblems(), IsEmpty());
  EXPECT_EQ(Show(configuration, "service"), "nothing");
  EXPECT_EQ(configuration.GetProfile().origin, SettingOrigin::Standard);
}

TEST_F(ConfigurationTest, PrefersTheEnvironmentThenTheUserThenTheSystem) {
  scratch_.Make("system", "room = s\n");
  EXPECT_EQ(Show(Load(), "room"), "s from @system:1");
  scratch_.Make("user", "\nroom = u\n");
  EXPECT_EQ(Show(Load(), "room"), "u from @user:2");
  environment_["CRYPTCLI_ROOM"] = "e";
  EXPECT_EQ(Show(Load(), "room"), "e from CRYPTCLI_ROOM");
  environment_["CRYPTCLI_ROOM"] = "";
  EXPECT_EQ(Show(Load(), "room"), "u from @user:2");
}

TEST_F(ConfigurationTest, PrefersTheProfileWithinAFile) {
  scratch_.Make("user", "room = top\nproxy = http://p\n[work]\nroom = w\n");
  EXPECT_EQ(Show(Load(), "room"), "top from @user:1");
  EXPECT_EQ(Show(Load("work"), "room"), "w from @user:4 [work]");
  EXPECT_EQ(Show(Load("work"), "proxy"), "http://p from @user:2");
}

TEST_F(ConfigurationTest, PrefersAnythingOfTheUserToAProfileOfTheSystem) {
  scratch_.Make("system", "[work]\nroom = s\nproxy = http://s\n");
  scratch_.Make("user", "room = u\n");
  EXPECT_EQ(Show(Load("work"), "room"), "u from @user:1");
  EXPECT_EQ(Show(Load("work"), "proxy"), "http://s from @system:3 [work]");
}

TEST_F(ConfigurationTest, TakesTheProfileFromTheEnvironmentWithoutAnOption) {
  scratch_.Make("user", "[a]\nroom = ra\n[b]\nroom = rb\n");
  environment_["CRYPTCLI_PROFILE"] = "a";
  EXPECT_EQ(Show(Load(), "room"), "ra from @user:2 [a]");
  EXPECT_EQ(Show(Load("b"), "room"), "rb from @user:4 [b]");
}

TEST_F(ConfigurationTest, RefusesAProfileThatNoFileHas) {
  scratch_.Make("user", "[work]\n");
  EXPECT_THAT(Problems("wrok"),
              ElementsAre("--profile: no configuration file has a profile 'wrok'; did you mean 'work'?"));
  environment_["CRYPTCLI_PROFILE"] = "other";
  EXPECT_THAT(Problems(), ElementsAre("CRYPTCLI_PROFILE: no configuration file has a profile 'other'"));
}

TEST_F(ConfigurationTest, NamesUnknownKeysOfAllProfilesWithASuggestion) {
  scratch_.Make("user", "servce = https://a\n[work]\nsomething-else = 1\n");
  EXPECT_THAT(Problems(), ElementsAre("@user:1: unknown setting 'servce'; did you mean 'service'?",
                                      "@user:3: unknown setting 'something-else'"));
}

TEST_F(ConfigurationTest, KnowsNoSettingThatWeakensACheck) {
  for (const char* key : {"accept", "force", "insecure", "header"}) {
    scratch_.Make("user", std::string(key) + " = anything\n");
    EXPECT_THAT(Problems(), ElementsAre(HasSubstr("unknown setting"))) << key;
  }
}

TEST_F(ConfigurationTest, ReportsTheProblemsOfBothFiles) {
  scratch_.Make("user", "[\n");
  scratch_.Make("system", "x\n");
  EXPECT_EQ(Problems("work").size(), 2U);
}

TEST_F(ConfigurationTest, StartsRelativePathsAtTheFolderOfTheFile) {
  scratch_.Make("user", "ca-file = certs/../ca.pem\nclient-cert = /c.pem\n");
  EXPECT_EQ(Show(Load(), "ca-file"), "@ca.pem from @user:1");
  EXPECT_EQ(Show(Load(), "client-cert"), "/c.pem from @user:2");
}

TEST_F(ConfigurationTest, LeavesPathsOfTheEnvironmentAsTheyAre) {
  environment_["CRYPTCLI_CA_FILE"] = "ca.pem";
  EXPECT_EQ(Show(Load(), "ca-file"), "ca.pem from CRYPTCLI_CA_FILE");
}

TEST_F(ConfigurationTest, ExpandsTheHomeFolderInPaths) {
  scratch_.Make("user", "ca-file = ~/ca.pem\nroom = ~/r\n");
  EXPECT_THAT(Show(Load(), "ca-file"), Not(HasSubstr("~")));
  EXPECT_THAT(Show(Load(), "ca-file"), HasSubstr("/ca.pem from"));
  EXPECT_EQ(Show(Load(), "room"), "~/r from @user:2");
}

}  // namespace
}  // namespace CryptCli
