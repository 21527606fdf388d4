#pragma once

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "stand/stand.h"
#include "tests/support/files.h"
#include "tests/support/text.h"
#include "tests/tools/process.h"

namespace TestSupport {

/// Keeps the configuration and the terminal of whoever runs the tests out of the commands that they start.
inline const bool kIsIsolated = [] {
  for (const char* name :
       {"SERVICE", "ROOM", "CA_FILE", "CLIENT_CERT", "CLIENT_KEY", "HEADER_FILE", "PROXY", "PROFILE"}) {
    ::unsetenv((std::string("CRYPTCLI_") + name).c_str());
  }
  return ::setenv("XDG_CONFIG_HOME", "/dev/null", 1) == 0 && ::setenv("TERM", "xterm", 1) == 0;
}();

/// Runs the command as a process.
inline Finished RunCommand(const std::vector<std::string>& arguments) {
  return RunProcess({CRYPTCLI_COMMAND, arguments});
}

/// The servers that the tests of one suite share, so that room keys are generated once.
inline CryptStand::Stand& SharedStand() {
  static CryptStand::Stand stand;
  static const bool started = [] {
    std::string error;
    const bool good = stand.Start(error);
    EXPECT_TRUE(good) << error;
    return good;
  }();
  EXPECT_TRUE(started);
  return stand;
}

/// The command against servers in this process, in a directory of the test's own. Temporary files are in it
/// too, and each test checks that none is left.
class CommandTest : public ::testing::Test {
 protected:
  explicit CommandTest(CryptStand::Stand& stand = SharedStand()) : stand_(stand) {}

  void SetUp() override {
    stand_.ClearEvents();
    scratch_.Make("plain.txt", "The plain content.\n");
  }
  void TearDown() override {
    for (int server = CryptStand::kCryptService; server < 3; ++server)
      EXPECT_TRUE(stand_.ClearFaults(server));
    stand_.GetSettings().SetIntegrityList(CryptStand::IntegrityList::Normal);
  }

  std::string Path(std::string_view name) const { return scratch_.Path(name).string(); }
  std::vector<std::string> Arguments(const std::string& operation,
                                     const std::vector<std::string>& further) const {
    std::vector<std::string> all{operation, "--service", stand_.GetServiceUrl(), "--room", "demo"};
    all.insert(all.end(), further.begin(), further.end());
    return all;
  }
  Finished Run(const std::string& operation, const std::vector<std::string>& further) const {
    return RunCommand(Arguments(operation, further));
  }
  /// Encrypts "plain.txt" to "file.p7m".
  void Protect() const {
    const Finished finished = Run("encrypt", {Path("plain.txt"), Path("file.p7m")});
    ASSERT_EQ(finished.code, 0) << finished.errors;
  }
  /// The names of the files in the directory, without the folder for temporary files.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(scratch_.Path(""))) {
      if (!entry.is_directory()) names.push_back(entry.path().filename().string());
    }
    return names;
  }

  ScratchDirectory scratch_;
  CryptStand::Stand& stand_;
};

}  // namespace TestSupport
