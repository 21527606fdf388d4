#include "fuzz/support/authority.h"

#include <openssl/err.h>

#include "foundation/encoding.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

constexpr std::size_t kHashSize = 64;

// The bytes of a base64 text; nothing when it is none.
std::string Decode(std::string_view text) {
  std::string bytes(text.size(), '\0');
  auto size = static_cast<std::uint32_t>(bytes.size());
  if (!OruGuiBase::B64Str2Binary(Ansi(text), bytes.data(), size, "\r\n")) return {};
  bytes.resize(size);
  return bytes;
}

}  // namespace

std::string SignBase64(std::string_view hash) {
  const std::string bytes = Decode(hash);
  if (bytes.size() != kHashSize) return {};
  return CryptStand::ToBase64(World::Get().integrity.key.SignHash(bytes));
}

std::string DecryptBase64(std::string_view encrypted) {
  const std::string plain = World::Get().room.key.Decrypt(Decode(encrypted));
  ERR_clear_error();
  return CryptStand::ToBase64(plain);
}

}  // namespace Fuzz
