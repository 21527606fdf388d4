// Reads the private keys that users import into a group's key store, in every form that importKeyRequest
// allows. The RFC numbers are in the header. OpenSSL's own "read any key" would not say whether the password
// was wrong.
#include "stand/key_reader.h"

#include <memory>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <optional>

#include "stand/memory_bio.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

using SealedPtr = std::unique_ptr<X509_SIG, decltype(&X509_SIG_free)>;
using InfoPtr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, decltype(&PKCS8_PRIV_KEY_INFO_free)>;
using BagPtr = std::unique_ptr<PKCS12, decltype(&PKCS12_free)>;
struct Release {
  void operator()(void* memory) const { OPENSSL_free(memory); }
};

// One PEM block: its label, its header lines and its decoded bytes, which may still be encrypted.
struct Block {
  std::string label;
  std::string header;
  std::string bytes;
};

// Reads one DER value; null unless it takes up all of the bytes.
template <class T, class Free>
std::unique_ptr<T, Free> ReadDER(T* (*read)(T**, const unsigned char**, long), Free release,
                                 const std::string& bytes) {
  const unsigned char* position = Bytes(bytes);
  std::unique_ptr<T, Free> value(read(nullptr, &position, static_cast<long>(bytes.size())), release);
  if (position != Bytes(bytes) + bytes.size()) value.reset();
  return value;
}

// Only RSA keys: signRequest, which uses the imported keys, signs with RSA alone.
KeyReading Accept(EVP_PKEY* read, KeyPair& key) {
  KeyPair given(read);
  if (given.IsEmpty() || EVP_PKEY_get_base_id(read) != EVP_PKEY_RSA) return KeyReading::NotAKey;
  key = std::move(given);
  return KeyReading::Good;
}

// A password for a key that needs none is refused as wrong: the user believes that the key is protected.
KeyReading ReadPlain(const std::string& bytes, const std::string& password, KeyPair& key) {
  const unsigned char* position = Bytes(bytes);
  const KeyReading reading =
      Accept(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(bytes.size())), key);
  if (reading != KeyReading::Good || password.empty()) return reading;
  key = {};
  return KeyReading::WrongPassword;
}

KeyReading ReadSealed(const X509_SIG& sealed, const std::string& password, KeyPair& key) {
  const InfoPtr info(PKCS8_decrypt(&sealed, password.data(), static_cast<int>(password.size())),
                     PKCS8_PRIV_KEY_INFO_free);
  return info != nullptr ? Accept(EVP_PKCS82PKEY(info.get()), key) : KeyReading::WrongPassword;
}

// PKCS #12 software encodes an empty password in two ways: as an empty string or as none.
bool Unlocks(PKCS12* bag, const std::string& password) {
  return PKCS12_verify_mac(bag, password.data(), static_cast<int>(password.size())) == 1 ||
         (password.empty() && PKCS12_verify_mac(bag, nullptr, 0) == 1);
}

KeyReading ReadBag(PKCS12* bag, const std::string& password, KeyPair& key) {
  if (PKCS12_mac_present(bag) == 1 && !Unlocks(bag, password)) return KeyReading::WrongPassword;
  EVP_PKEY* read = nullptr;
  X509* certificate = nullptr;
  if (PKCS12_parse(bag, password.c_str(), &read, &certificate, nullptr) != 1)
    return KeyReading::WrongPassword;
  X509_free(certificate);
  return Accept(read, key);
}

// Binary forms have no label, so each is tried. OpenSSL's parser that guesses the form of a plain key comes
// last.
KeyReading ReadBytes(const std::string& bytes, const std::string& password, KeyPair& key) {
  const SealedPtr sealed = ReadDER(d2i_X509_SIG, X509_SIG_free, bytes);
  if (sealed != nullptr) return ReadSealed(*sealed, password, key);
  const BagPtr bag = ReadDER(d2i_PKCS12, PKCS12_free, bytes);
  return bag != nullptr ? ReadBag(bag.get(), password, key) : ReadPlain(bytes, password, key);
}

std::optional<Block> ReadBlock(const std::string& pem) {
  const BioPtr source = Source(pem);
  char* label = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long size = 0;
  if (PEM_read_bio(source.get(), &label, &header, &data, &size) != 1) return std::nullopt;
  const std::unique_ptr<char, Release> labelOwner(label);
  const std::unique_ptr<char, Release> headerOwner(header);
  const std::unique_ptr<unsigned char, Release> dataOwner(data);
  return Block{label, header, {reinterpret_cast<const char*>(data), static_cast<std::size_t>(size)}};
}

int CopyPassword(char* target, int capacity, int, void* given) {
  const auto& password = *static_cast<const std::string*>(given);
  if (password.size() > static_cast<std::size_t>(capacity)) return -1;
  return static_cast<int>(password.copy(target, password.size()));
}

// The traditional PEM form under a password. It has no checksum, so a wrong password may decrypt to anything:
// a result that is not a key counts as a wrong password too.
KeyReading ReadTraditional(Block block, std::string password, KeyPair& key) {
  EVP_CIPHER_INFO cipher = {};
  auto size = static_cast<long>(block.bytes.size());
  if (PEM_get_EVP_CIPHER_INFO(block.header.data(), &cipher) != 1) return KeyReading::NotAKey;
  if (PEM_do_header(&cipher, reinterpret_cast<unsigned char*>(block.bytes.data()), &size, CopyPassword,
                    &password) != 1) {
    return KeyReading::WrongPassword;
  }
  block.bytes.resize(static_cast<std::size_t>(size));
  const bool good = ReadPlain(block.bytes, "", key) == KeyReading::Good;
  return good ? KeyReading::Good : KeyReading::WrongPassword;
}

KeyReading ReadPEM(const std::string& text, const std::string& password, KeyPair& key) {
  auto block = ReadBlock(text);
  if (!block.has_value()) return KeyReading::NotBase64;
  if (!block->label.ends_with("PRIVATE KEY")) return KeyReading::NotAKey;
  if (!block->header.empty()) return ReadTraditional(*std::move(block), password, key);
  if (block->label != "ENCRYPTED PRIVATE KEY") return ReadPlain(block->bytes, password, key);
  const SealedPtr sealed = ReadDER(d2i_X509_SIG, X509_SIG_free, block->bytes);
  return sealed != nullptr ? ReadSealed(*sealed, password, key) : KeyReading::NotAKey;
}

}  // namespace

KeyReading ReadPrivateKey(const std::string& text, const std::string& password, KeyPair& key) {
  key = {};
  KeyReading reading = KeyReading::NotBase64;
  if (text.find("-----BEGIN") != std::string::npos) {
    reading = ReadPEM(text, password, key);
  } else if (const auto bytes = FromBase64(text); bytes.has_value() && !bytes->empty()) {
    reading = ReadBytes(*bytes, password, key);
  }
  // Trying the forms leaves errors in the queue of this thread, which serves further requests.
  ERR_clear_error();
  return reading;
}

}  // namespace CryptStand
