// What the key-server commands are called on the wire, and the request that carries one. Built by each
// command, sent by RunCommand.
#include "exchange/key_server_command.h"

#include <array>

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace OruKalvix {
namespace {

// Indexed by the command's value.
constexpr std::array<CommandNames, 11> kCommands = {{
    {"configGroupRequest", "configGroupResponse"},
    {"reencryptRequest", "reencryptResponse"},
    {"getAuditLogRequest", "getAuditLogResponse"},
    {"generateWrappedKeyRequest", "generateWrappedKeyResponse"},
    {"modifyWrappedKeyRequest", "modifyWrappedKeyResponse"},
    {"exportWrappedKeyRequest", "exportWrappedKeyResponse"},
    {"decryptRequest", "decryptResponse"},
    {"signRequest", "signResponse"},
    {"getKeyRequest", "getKeyResponse"},
    {"importKeyRequest", "importKeyResponse"},
    {"deleteKeyRequest", "deleteKeyResponse"},
}};

constexpr CommandNames kNoCommand = {"", ""};

}  // namespace

const CommandNames& GetCommandNames(KeyServerCommand command) noexcept {
  const auto index = static_cast<std::size_t>(command);
  return index < kCommands.size() ? kCommands[index] : kNoCommand;
}

KeyServerRequest::KeyServerRequest(KeyServerCommand theCommand, const AnsiStr& id, const KVMap& key) noexcept
    : command(theCommand), tokenId(id), tokenKey(key) {
  payload.Put("type", GetCommandNames(command).request);
}

}  // namespace OruKalvix
