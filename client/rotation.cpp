#include <atomic>

#include "client/cryptcli.h"
#include "foundation/clock.h"

namespace OruKalvix {

std::uint32_t* CryptClient::GetKeyServerBase() noexcept {
  static std::uint32_t base = static_cast<std::uint32_t>(OruGuiBase::GetPseudoRandomNumberEx(0, 0xFFFFFFFFU));
  return &base;
}

KeyServerCursor CryptClient::MakeCursor(const ValArray& servers) noexcept {
  KeyServerCursor cursor;
  cursor.servers = servers;
  // The base is a plain number; clients of other threads write it at any time, and the last writer wins.
  cursor.startIndex = std::atomic_ref<std::uint32_t>(*GetKeyServerBase()).load(std::memory_order_relaxed);
  return cursor;
}

bool CryptClient::NextKeyServer(KeyServerCursor& cursor) noexcept {
  const std::uint32_t count = cursor.servers.GetCount();
  if (cursor.attempts >= count) {
    cursor.keyServerUrl.Clear();
    return false;
  }
  const std::uint32_t index = (cursor.startIndex + cursor.attempts) % count;
  // A client that is made later starts at the server that was taken last.
  std::atomic_ref<std::uint32_t>(*GetKeyServerBase()).store(index, std::memory_order_relaxed);
  const ValArray& servers = cursor.servers;
  cursor.keyServerUrl = servers[index].AsString();
  ++cursor.attempts;
  return true;
}

}  // namespace OruKalvix
