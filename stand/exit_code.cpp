// Exit codes of the program: from the reason of a failed start, and for --help. docs/stand.md has the same
// list.
#include "stand/exit_code.h"

namespace CryptStand {

ExitCode ExitCodeOf(StartFailure failure) {
  switch (failure) {
    case StartFailure::None:
      return ExitCode::Success;
    case StartFailure::FolderInUse:
      return ExitCode::FolderInUse;
    case StartFailure::Folder:
      return ExitCode::Folder;
    case StartFailure::Port:
      return ExitCode::PortTaken;
    case StartFailure::Other:
      break;
  }
  return ExitCode::Failed;
}

std::string DescribeExitCodes() {
  return "Exit codes:\n"
         "  0   stopped by SIGINT or SIGTERM\n"
         "  1   failed; the reason is on standard error\n"
         "  2   the command line is wrong; nothing was tried\n"
         "  10  another process uses the folder\n"
         "  11  a port is taken or not allowed\n"
         "  12  the folder or the file of --url-file cannot be made, read or written\n"
         "  128 and a signal's number: a second signal ended it at once\n";
}

}  // namespace CryptStand
