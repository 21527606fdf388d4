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
  // The same path for an invalid string: it decrypts to nothing, like a bad block.
  if (!DecodeBase64(encrypted, bytes)) bytes.clear();
  const std::string plain = World::Get().room.key.Decrypt(bytes);
  // OpenSSL's errors belong to the thread, so the client could take this one for its own.
  ERR_clear_error();
  return CryptStand::ToBase64(plain);
}

}  // namespace Fuzz
