#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace OruKalvix {

/// The commands of the key-server protocol. The numbers stay inside the client; over the wire go the type
/// names.
enum class KeyServerCommand : std::uint32_t {
  ConfigGroup = 0,
  Reencrypt = 1,
  GetAuditLog = 2,
  GenerateWrappedKey = 3,
  ModifyWrappedKey = 4,
  ExportWrappedKey = 5,
  Decrypt = 6,
  Sign = 7,
  GetKey = 8,
  ImportKey = 9,
  DeleteKey = 10,
};

/// What a command and its response are called on the wire.
struct CommandNames {
  const char* request;
  const char* response;
};

/// The names of a command; empty ones for a value that is no command.
const CommandNames& GetCommandNames(KeyServerCommand command) noexcept;

/// One command, as it is sent to each key server until one succeeds. A plain value of the operation that
/// builds it.
struct KeyServerRequest {
  /// Begins the payload with the "type" of the command; the caller adds the members after it. `id` is the
  /// room or group to ask the authorization token for, `key` the key that the command acts on, when it names
  /// one.
  KeyServerRequest(KeyServerCommand command, const OruGuiBase::AnsiStr& id,
                   const OruGuiBase::KVMap& key = {}) noexcept;

  KeyServerCommand command;
  OruGuiBase::KVMap payload;
  OruGuiBase::AnsiStr tokenId;
  OruGuiBase::KVMap tokenKey;
};

}  // namespace OruKalvix
