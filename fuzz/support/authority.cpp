#include "fuzz/support/authority.h"

#include <openssl/err.h>

#include "fuzz/support/text.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

constexpr std::size_t kHashSize = 64;  // SHA-512

}  // namespace

std::string SignBase64(std::string_view hash) {
  std::string bytes;
  if (!DecodeBase64(hash, bytes) || bytes.size() != kHashSize) return {};
  return CryptStand::ToBase64(World::Get().integrity.key.SignHash(bytes));
}

std::string DecryptBase64(std::string_view encrypted) {
  std::string bytes;
  if (!DecodeBase64(encrypted, bytes)) bytes.clear();
  const std::string plain = World::Get().room.key.Decrypt(bytes);
  ERR_clear_error();
  return CryptStand::ToBase64(plain);
}

}  // namespace Fuzz
