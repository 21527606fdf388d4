#pragma once

#include <string>
#include <vector>

#include "stand/faults.h"

// The outcome that an operation must have when key servers have faults, computed from the rules of the sweep
// alone. Nothing here calls the library.
namespace TestSupport {

/// The operations that are tried under faults.
enum class Operation { Sign, Decrypt, ConfigGroup, AuditLog };

/// How the visit to a key server with a fault ends.
enum class Visit {
  Responds,          ///< The response is as good as without the fault.
  RespondsWithLess,  ///< An audit log without any line, which is a log all the same.
  Misleads,          ///< The response passes, and what the operation does with it fails.
  Refuses,           ///< The command is sent, and its response leads to the next server.
  Unreachable,       ///< The probe fails; no token is fetched and no command is sent.
};

/// What a fault does to one operation.
struct Effect {
  Visit visit = Visit::Responds;
  /// The message that is recorded.
  const char* message = "";
  /// Whether `message` is all of the recorded message and not only its beginning.
  bool isWhole = true;
};

/// One way in which a key server goes wrong.
struct FaultRow {
  const char* name;
  CryptStand::Fault fault;
  /// Whether the fault strikes the probe; otherwise it strikes the command.
  bool onProbe = false;
  /// By operation.
  Effect effects[4];

  const Effect& On(Operation operation) const { return effects[static_cast<int>(operation)]; }
  /// The fault as it is set for the command of this request type.
  CryptStand::Fault For(const char* command) const;
};

/// Each type of fault, and those of the probe.
const std::vector<FaultRow>& GetFaultRows();

/// The outcome of an operation.
struct Outcome {
  bool done = false;
  std::string message;
  bool isWhole = true;
  /// The key servers that get the command, in the order of their visits.
  std::vector<int> visits;
  /// The key servers that give lines of an audit log.
  std::vector<int> logs;
};

/// The outcome with these key servers, visited from the first on; null stands for a server without a fault.
Outcome Predict(Operation operation, const std::vector<const FaultRow*>& servers);

}  // namespace TestSupport
