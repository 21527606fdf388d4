#pragma once

#include <optional>
#include <string>

#include "stand/realm.h"
#include "stand/wire.h"

namespace CryptStand {

/// The error codes of the key-server protocol that these commands return.
enum class Code {
  Success = 0,
  InvalidPayload = 601,
  InvalidKeyType = 602,
  InvalidCertificate = 603,
  InvalidBase64 = 604,
  InvalidWrappedKey = 605,
  KeystoreUnavailable = 606,
  KeyNotFound = 607,
  UnsupportedAlgorithm = 608,
  AuthFailed = 609,
  KeySwapError = 613,
  KeyGenerationError = 615,
  CAError = 616,
};

/// The input of a command. References are valid during the call.
struct CommandContext {
  Realm& realm;
  const KVMap& payload;     ///< With its "type".
  const TokenClaim& claim;  ///< What the token allows.
  int server;               ///< Index of the key server that was asked.
};

/// The result of a command: the members of the response's payload besides "type", or a code other than
/// Success with a reason for the event log.
struct CommandResult {
  Code code = Code::Success;
  std::string reason;
  KVMap members;
  /// A complete response instead of the envelope, for the one command whose response is not JSON.
  std::optional<HttpReply> reply{};

  static CommandResult Refuse(Code code, std::string reason) { return {code, std::move(reason), {}}; }
};

/// One command of the protocol.
struct Command {
  const char* requestType;
  const char* responseType;
  CommandResult (*run)(const CommandContext& context);
};

/// The command of a request type; null when there is none.
const Command* FindCommand(const std::string& requestType);

// The commands of the table in key_server.cpp, which alone calls them. They are in command_*.cpp, one or two
// in each: a header for each source would have nothing else.

/// Creates or changes a group.
CommandResult ConfigureGroup(const CommandContext& context);
/// Gives a group another encryption certificate.
CommandResult Reencrypt(const CommandContext& context);
/// Gives the server's audit log for a group as CSV.
CommandResult GetAuditLog(const CommandContext& context);
/// Adds a private key to a group's key store.
CommandResult ImportKey(const CommandContext& context);
/// Removes a key from a group's key store.
CommandResult DeleteKey(const CommandContext& context);
/// Wraps a room key for other readers.
CommandResult ModifyWrappedKey(const CommandContext& context);
/// Gives the private key inside a wrapped key in the clear.
CommandResult ExportWrappedKey(const CommandContext& context);
/// Makes a room key: its certificate from the inner signing certificate, its private key wrapped.
CommandResult GenerateWrappedKey(const CommandContext& context);
/// Gives the certificate of a group's integrity key.
CommandResult GetKey(const CommandContext& context);
/// Signs hashes with an integrity key or an imported key.
CommandResult SignHashes(const CommandContext& context);
/// Decrypts content keys with a wrapped room key.
CommandResult DecryptData(const CommandContext& context);

}  // namespace CryptStand
