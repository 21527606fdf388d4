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

/// One command as it is sent to each server of a sweep until one succeeds.
struct KeyServerRequest {
  KeyServerCommand command;
  OruGuiBase::KVMap payload;    ///< "type" first, then the command's members
  OruGuiBase::AnsiStr tokenId;  ///< the room or group that the authorization token is asked for
  OruGuiBase::KVMap tokenKey;   ///< the key that the command acts on, when it names one
};

}  // namespace OruKalvix
