#include "tests/stand/readers.h"

#include <gtest/gtest.h>
#include <map>
#include <openssl/cms.h>

#include "stand/wire.h"
#include "stand/wrapped_key.h"

namespace CryptStand {
namespace {

// A wrapped key contains its signer's certificate.
Cert SignerOf(const std::string& wrapped) {
  const std::string bytes = FromBase64(wrapped).value_or("");
  const auto* position = reinterpret_cast<const unsigned char*>(bytes.data());
  CMS_ContentInfo* message = d2i_CMS_ContentInfo(nullptr, &position, static_cast<long>(bytes.size()));
  if (message == nullptr) return {};
  STACK_OF(X509)* certificates = CMS_get1_certs(message);
  const Cert signer(sk_X509_shift(certificates));
  sk_X509_pop_free(certificates, X509_free);
  CMS_ContentInfo_free(message);
  return signer;
}

}  // namespace

const Identity& Reader(const std::string& name) {
  static std::map<std::string, Identity> readers;
  Identity& reader = readers[name];
  if (reader.certificate.IsEmpty()) reader = Identity::MakeRoot(CertSpec::EndEntity(name));
  return reader;
}

bool OpensFor(const std::string& wrapped, const Identity& reader) {
  const Cert signer = SignerOf(wrapped);
  EXPECT_FALSE(signer.IsEmpty()) << "no wrapped key";
  return OpenRoomKey(wrapped, signer, reader).has_value();
}

std::string HashOf(const std::string& text, const EVP_MD* method) {
  std::string hash(static_cast<std::size_t>(EVP_MD_get_size(method)), '\0');
  EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(hash.data()), nullptr, method,
             nullptr);
  return hash;
}

}  // namespace CryptStand
