// The rotation over the key servers. One number of the process says where the next client begins, so that the
// clients of a process keep to a server that works and leave one that does not. SetKeyServer takes the number
// over; SweepKeyServers and the audit log step through the list.
#include <atomic>

#include "client/cryptcli.h"
#include "foundation/clock.h"

namespace OruKalvix {

std::uint32_t* CryptClient::GetKeyServerBase() noexcept {
  // A random start spreads the processes of an installation over its key servers.
  static std::uint32_t base = static_cast<std::uint32_t>(OruGuiBase::GetPseudoRandomNumberEx(0, 0xFFFFFFFFU));
  return &base;
}

KeyServerCursor CryptClient::MakeCursor(const ValArray& servers) noexcept {
  KeyServerCursor cursor;
  cursor.servers = servers;
  // Clients on other threads write the base at any time. It is only a hint where to begin: the last writer
  // wins, and no order with other memory is needed.
  cursor.startIndex = std::atomic_ref<std::uint32_t>(*GetKeyServerBase()).load(std::memory_order_relaxed);
  return cursor;
}

bool CryptClient::NextKeyServer(KeyServerCursor& cursor) noexcept {
  const std::uint32_t count = cursor.servers.GetCount();
  if (cursor.attempts >= count) {
    cursor.keyServerUrl.Clear();
    return false;
  }
  // A sum of 32 bits. Only the random start of a process can make it wrap: all later ones are indexes.
  const std::uint32_t index = (cursor.startIndex + cursor.attempts) % count;
  // A client made later begins at the server that was taken last.
  std::atomic_ref<std::uint32_t>(*GetKeyServerBase()).store(index, std::memory_order_relaxed);
  const ValArray& servers = cursor.servers;
  cursor.keyServerUrl = servers[index].AsString();
  ++cursor.attempts;
  return true;
}

}  // namespace OruKalvix
