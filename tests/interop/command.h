#pragma once

#include <string>

#include "tests/end_to_end/end_to_end_fixture.h"

namespace TestSupport {

/// A command of other software: its exit code and its output.
struct CommandResult {
  int code = -1;
  std::string output;
};

/// Runs a shell command in a folder.
CommandResult RunCommand(const std::filesystem::path& folder, const std::string& command);

/// The service hands out the room's plain key, so that other software can open what was protected for the
/// room. The key and the certificates are in the folder of the test, as PEM: room.key, room.crt, lists.pem
/// (roots, intermediates and issuers).
class InteropTest : public EndToEndTest {
 protected:
  void SetUp() override;
  /// Runs a command in the folder of the test and demands that it succeeds.
  void Run(const std::string& command);

 private:
  std::string Get(const std::string& url);
};

}  // namespace TestSupport
