#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Every system call of the program's own objects that touches files goes through here, so that a test can
/// count them and make one fail, transfer less, or be the last.
namespace FaultTest {

enum class SystemCall : std::uint8_t {
  Open,
  Read,
  PRead,
  Write,
  Close,
  FStat,
  Fallocate,
  FTruncate,
  Rename,
  Unlink,
  RmDir,
  MkDTemp,
  MkOSTemp,
  FChMod,
  Stat,
  LStat,
  Count
};
std::string NameOf(SystemCall call);

/// What happens at one call.
struct Fault {
  enum class Type : std::uint8_t {
    None,
    Fails,   ///< with `error`; a close closes all the same
    Short,   ///< a read or write moves one byte
    Ended,   ///< a read finds the end of the file there, as if somebody had cut it
    Killed,  ///< the process ends before the call
  };
  Type type = Type::None;
  int error = 0;
  /// Which call of the type `call`, from 1; with Type::Killed which one of all calls.
  std::uint64_t number = 0;
  SystemCall call = SystemCall::Open;
};

/// From here on calls are counted from 1 and meet the fault.
void WatchSystemCalls(const Fault& fault);
/// Ends the watch and returns the number of calls by type.
std::vector<std::uint64_t> EndSystemWatch();

/// Pauses the watch while it lives: calls are not counted and meet no fault.
class Sheltered {
 public:
  Sheltered();
  ~Sheltered();
  Sheltered(const Sheltered&) = delete;
  Sheltered& operator=(const Sheltered&) = delete;
};

}  // namespace FaultTest
