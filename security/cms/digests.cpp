#include "security/cms/digests.h"

#include <openssl/crypto.h>

#include "security/failure.h"

namespace OruOssSec {

namespace {

constexpr int kNids[ContentDigests::kDigests] = {NID_sha1,     NID_sha224,   NID_sha256,
                                                 NID_sha384,   NID_sha512,   NID_sha3_224,
                                                 NID_sha3_256, NID_sha3_384, NID_sha3_512};

constexpr const char* kNotComputed = "The digest of the content cannot be computed";

// Place of the algorithm in the list, or its end.
std::uint32_t FindDigest(const X509_ALGOR* algorithm) noexcept {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  const int nid = OBJ_obj2nid(object);
  std::uint32_t place = 0;
  while (place < ContentDigests::kDigests && kNids[place] != nid) ++place;
  return place;
}

const char* DescribeUnknown(const X509_ALGOR* algorithm) noexcept {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  return OBJ_obj2nid(object) == NID_md5 ? "A signer's digest is MD5, which proves nothing"
                                        : "A signer's digest algorithm is not known";
}

}  // namespace

bool ContentDigests::Ask(const X509_ALGOR* algorithm) noexcept {
  const std::uint32_t place = FindDigest(algorithm);
  if (place == kDigests) return FailWith(DescribeUnknown(algorithm));
  Digest& digest = digests_[place];
  return digest.IsBegun() || digest.Begin(OBJ_nid2sn(kNids[place])) ||
         FailWithOpenSSL("A signer's digest algorithm is not available");
}

bool ContentDigests::Add(const BerSpan& span) noexcept {
  for (Digest& digest : digests_) {
    if (digest.IsBegun() && !digest.Add(span.data, span.size)) return FailWithOpenSSL(kNotComputed);
  }
  return true;
}

bool ContentDigests::Finish() noexcept {
  for (Digest& digest : digests_) {
    if (digest.IsBegun() && !digest.Finish()) return FailWithOpenSSL(kNotComputed);
  }
  return true;
}

bool ContentDigests::Compute(const LoadedMessage& message) noexcept {
  BerContent content(*message.source, message.skeleton.content);
  BerSpan span;
  do {
    if (!content.Next(span) || !Add(span)) return false;
  } while (span.size > 0);
  return Finish();
}

bool ContentDigests::IsEqual(const X509_ALGOR* algorithm, const ASN1_OCTET_STRING* value) const noexcept {
  const std::uint32_t place = FindDigest(algorithm);
  if (place == kDigests) return false;
  const OruGuiBase::BlobConst digest = digests_[place].GetValue();
  return digest.size > 0 && ASN1_STRING_length(value) == static_cast<int>(digest.size) &&
         CRYPTO_memcmp(ASN1_STRING_get0_data(value), digest.data, digest.size) == 0;
}

}  // namespace OruOssSec
