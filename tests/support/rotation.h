#pragma once

#include <cstdint>

#include "client/cryptcli.h"

namespace TestSupport {

/// Moves the rotation of the process: a client that is made or gets key servers after this begins at the
/// server with this index. Uses a client without a transport, whose failing command goes through a list and
/// leaves the index of the last server behind.
inline void BeginRotationAt(std::uint32_t index) {
  OruKalvix::CryptClient client(nullptr, "https://crypt.example", "", "");
  OruGuiBase::AnsiStr signature;
  OruGuiBase::Array<OruGuiBase::Val> servers;
  // The first list has one server, so that the second one begins at its first.
  servers.Append(OruGuiBase::Val("https://none.example"));
  client.SetKeyServer(servers);
  client.Sign({}, "", "", signature);
  while (servers.GetCount() <= index) servers.Append(OruGuiBase::Val("https://none.example"));
  client.SetKeyServer(servers);
  client.Sign({}, "", "", signature);
}

}  // namespace TestSupport
