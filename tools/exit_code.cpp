// The exit codes in words, for the help of each command. In one table, so that no two commands describe a
// code differently.
#include "tools/exit_code.h"

#include <algorithm>
#include <array>

namespace CryptCli {

namespace {

struct Row {
  ExitCode code;
  const char* text;
  bool isCommon;  ///< any command can end with it
};

constexpr std::array kRows = {
    Row{ExitCode::Success, "0  success", true},
    Row{ExitCode::Failed, "1  the operation failed; the target is as it was", true},
    Row{ExitCode::Usage, "2  the command line or the arguments are wrong; nothing was tried", true},
    Row{ExitCode::OriginNotProven,
        "3  the origin of the content is not proven, or the room is not the expected one; nothing was "
        "delivered",
        false},
    Row{ExitCode::KeyRefused, "4  the crypt service refused to hand out the room's key", false},
    Row{ExitCode::Partial,
        "5  an audit log lacks the part of some key servers; what the others gave was written", false},
    Row{ExitCode::TryLater, "6  a server was not reached, not in time or not ready; try again later", false},
    Row{ExitCode::BadSource, "7  the source is damaged or is no protected file", false},
    Row{ExitCode::Unauthorised, "8  a server did not accept the credentials", false},
    Row{ExitCode::NotReported, "9  the operation succeeded, but its report or result could not be printed",
        true},
    Row{ExitCode::Interrupted, "128 and a signal's number: the signal ended the command", true},
};

}  // namespace

std::string DescribeExitCodes(std::initializer_list<ExitCode> others) {
  std::string text = "Exit codes:";
  for (const Row& row : kRows) {
    if (row.isCommon || std::find(others.begin(), others.end(), row.code) != others.end()) {
      text += std::string("\n  ") + row.text;
    }
  }
  return text;
}

}  // namespace CryptCli
