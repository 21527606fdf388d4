// Verifies SignedData (RFC 5652, 5) for CMSMsg. Signatures and chains are checked first, since they need only
// the skeleton; the content, which can be large, is then read once for all digests. A message is valid only
// if every one of its signers is.
#include "security/cms/verifying.h"

#include <cstring>
#include <ctime>
#include <iterator>
#include <openssl/crypto.h>
#include <string_view>

#include "foundation/dates.h"
#include "foundation/errorstate.h"
#include "security/ber/walker.h"
#include "security/cms/digest.h"
#include "security/cms/parties.h"
#include "security/failure.h"
#include "security/x509/chain.h"
#include "security/x509/strength.h"

namespace OruOssSec {

namespace {

// The digests that VerifySigners accepts.
constexpr int kDigestNids[] = {NID_sha1,     NID_sha224,   NID_sha256,   NID_sha384,  NID_sha512,
                               NID_sha3_224, NID_sha3_256, NID_sha3_384, NID_sha3_512};

constexpr const char* kNotComputed = "The digest of the content cannot be computed";

// The index of the algorithm in the list; the number of entries when it is not there.
std::size_t FindDigest(const X509_ALGOR* algorithm) noexcept {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  const int nid = OBJ_obj2nid(object);
  std::size_t place = 0;
  while (place < std::size(kDigestNids) && kDigestNids[place] != nid) ++place;
  return place;
}

const char* DescribeUnknown(const X509_ALGOR* algorithm) noexcept {
  const ASN1_OBJECT* object = nullptr;
  X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
  return OBJ_obj2nid(object) == NID_md5 ? "A signer's digest is MD5, which proves nothing"
                                        : "A signer's digest algorithm is not known";
}

/// The digests that the signers of a message use: each is computed once, all in one pass over the content.
/// Lives for one call of VerifySigners.
class ContentDigests {
 public:
  /// Asks for a digest by its algorithm identifier; one that is not known is a failure.
  bool Ask(const X509_ALGOR* algorithm) noexcept;
  /// Reads the content and computes what was asked for.
  bool Compute(const LoadedMessage& message) noexcept;
  /// Whether the digest of the algorithm, which was asked for, has this value.
  bool IsEqual(const X509_ALGOR* algorithm, const ASN1_OCTET_STRING* value) const noexcept;

 private:
  bool Add(const BerSpan& span) noexcept;
  bool Finish() noexcept;

  Digest digests_[std::size(kDigestNids)];
};

bool ContentDigests::Ask(const X509_ALGOR* algorithm) noexcept {
  const std::size_t place = FindDigest(algorithm);
  if (place == std::size(kDigestNids)) return FailWith(DescribeUnknown(algorithm));
  Digest& digest = digests_[place];
  return digest.IsBegun() || digest.Begin(OBJ_nid2sn(kDigestNids[place])) ||
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
  const std::size_t place = FindDigest(algorithm);
  if (place == std::size(kDigestNids)) return false;
  const OruGuiBase::BlobConst digest = digests_[place].GetValue();
  return digest.size > 0 && ASN1_STRING_length(value) == static_cast<int>(digest.size) &&
         CRYPTO_memcmp(ASN1_STRING_get0_data(value), digest.data, digest.size) == 0;
}

const X509_ALGOR* GetDigestAlgorithm(CMS_SignerInfo* signer) noexcept {
  X509_ALGOR* digest = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  return digest;
}

// The value of an attribute that must occur once and have one value: the -3 makes OpenSSL demand both.
void* GetOnlyValue(const CMS_SignerInfo* signer, int nid, int type) noexcept {
  return CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(nid), -3, type);
}

// Content signed as one type must not be read as another one (RFC 5652, 11.1).
bool CheckContentType(const LoadedMessage& message, const CMS_SignerInfo* signer) noexcept {
  const auto* claimed =
      static_cast<const ASN1_OBJECT*>(GetOnlyValue(signer, NID_pkcs9_contentType, V_ASN1_OBJECT));
  const ASN1_OBJECT* actual = CMS_get0_eContentType(message.cms.get());
  return (claimed != nullptr && actual != nullptr && OBJ_cmp(claimed, actual) == 0) ||
         FailWith("A signature is for content of another type");
}

// Sets the signer's certificate and checks its signature. Signed attributes are required: otherwise a
// signature over attributes could be presented as one over content that looks like them, and the other way
// round.
bool CheckSignature(const LoadedMessage& message, CMS_SignerInfo* signer,
                    STACK_OF(X509) * certificates) noexcept {
  if (CMS_signed_get_attr_count(signer) <= 0) return FailWith("A signer has no signed attributes");
  X509* certificate = FindSignerCertificate(signer, certificates);
  if (certificate == nullptr) return FailWith("The message does not hold a signer's certificate");
  if (HasShortKey(certificate)) return FailWith("A signer's RSA key has fewer than 2048 bits");
  if (!CheckContentType(message, signer)) return false;
  CMS_SignerInfo_set1_signer_cert(signer, certificate);
  return CMS_SignerInfo_verify(signer) == 1 || FailWith("A signature is not valid");
}

// The signature covers the claimed digest; here the claim is compared with the content.
bool CheckDigest(CMS_SignerInfo* signer, const ContentDigests& digests) noexcept {
  const auto* claimed = static_cast<const ASN1_OCTET_STRING*>(
      GetOnlyValue(signer, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING));
  if (claimed == nullptr) return FailWith("A signer claims no digest of the content");
  return digests.IsEqual(GetDigestAlgorithm(signer), claimed) ||
         FailWith("The content is not what was signed");
}

// A certificate that has expired since does not undo a signature, so the claimed time counts, if there is
// one.
bool CheckChain(CMS_SignerInfo* signer, const CertStore& trusted, STACK_OF(X509) * certificates) noexcept {
  OruGuiBase::DateTime time;
  if (!ReadSigningTime(signer, time)) return false;
  ChainRules rules;
  rules.time = time == OruGuiBase::DateTime() ? std::time(nullptr) : OruGuiBase::ToUnixTime(time);
  const ChainVerdict verdict =
      FindChain(FindSignerCertificate(signer, certificates), {trusted.Get0(), certificates, nullptr}, rules);
  return verdict.code == X509_V_OK || FailWith(verdict.text);
}

constexpr std::uint8_t kUTCTime = 0x17;
constexpr std::uint8_t kGeneralizedTime = 0x18;
// Contents octets of 1.2.840.113549.1.9.5.
constexpr std::uint8_t kSigningTime[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x05};

int TwoDigits(std::string_view text, std::size_t place) noexcept {
  return (text[place] - '0') * 10 + (text[place + 1] - '0');
}

// Whether a time with a year of two or four digits is a valid date with digits up to the seconds. What
// follows them is left to OpenSSL, whose versions agree about it. Two digits mean 1950 to 2049 (RFC
// 5280, 4.1.2.5.1).
bool IsTime(std::string_view text, std::size_t yearDigits) noexcept {
  constexpr std::string_view kDigits = "0123456789";
  const std::size_t end = yearDigits + 10;
  if (text.size() <= end || text.find_first_not_of(kDigits) < end) return false;
  const int begin = TwoDigits(text, 0);
  const int year = yearDigits == 4 ? begin * 100 + TwoDigits(text, 2) : begin + (begin < 50 ? 2000 : 1900);
  const std::string_view rest = text.substr(yearDigits);
  return OruGuiBase::IsValidDateTime({year, TwoDigits(rest, 0), TwoDigits(rest, 2), TwoDigits(rest, 4),
                                      TwoDigits(rest, 6), TwoDigits(rest, 8)});
}

/// Walks over the signers of a skeleton; refers to the walker. An invalid structure ends the walk, which is
/// no finding. An unreadable time ends it and is one.
class SigningTimeCheck {
 public:
  explicit SigningTimeCheck(BerWalker& walker) noexcept : walker_(walker) {}

  bool IsUnreadable() const noexcept { return isUnreadable_; }

  // The walker fails for good at the first deviation, so results are asked for only where a loop needs them.
  void CheckSigners() noexcept {
    while (!walker_.IsFailed() && !walker_.Is(kSet)) walker_.SkipAny();
    walker_.Enter(kSet);
    while (GoesOn()) CheckSigner();
  }

 private:
  bool GoesOn() noexcept { return !isUnreadable_ && !walker_.IsFailed() && !walker_.IsAtEnd(); }

  void CheckSigner() noexcept {
    walker_.Enter(kSequence);
    for (int i = 0; i < 3; ++i) walker_.SkipAny();  // version, sid, digestAlgorithm
    if (walker_.Is(kContext0)) {
      count_ = 0;
      walker_.Enter(kContext0);
      while (GoesOn()) CheckAttribute();
      walker_.Leave();
    }
    while (GoesOn()) walker_.SkipAny();
    walker_.Leave();
  }

  void CheckAttribute() noexcept {
    BerBuffer oid;
    walker_.Enter(kSequence);
    if (!walker_.TakeContents(kObjectIdentifier, oid)) return;
    if (oid.GetSize() == sizeof(kSigningTime) &&
        std::memcmp(oid.GetData(), kSigningTime, sizeof(kSigningTime)) == 0) {
      CheckValues();
    } else {
      walker_.SkipAny();
    }
    walker_.Leave();
  }

  void CheckValues() noexcept {
    walker_.Enter(kSet);
    const bool isShort = walker_.Is(kUTCTime);
    BerBuffer time;
    if (!isShort && !walker_.Is(kGeneralizedTime)) {
      isUnreadable_ = !walker_.IsFailed();
    } else if (walker_.TakeContents(isShort ? kUTCTime : kGeneralizedTime, time)) {
      const std::string_view text(reinterpret_cast<const char*>(time.GetData()), time.GetSize());
      isUnreadable_ = ++count_ > 1 || !walker_.IsAtEnd() || !IsTime(text, isShort ? 2 : 4);
    }
    if (!isUnreadable_) walker_.Leave();
  }

  BerWalker& walker_;
  int count_ = 0;
  bool isUnreadable_ = false;
};

}  // namespace

bool VerifySigners(const LoadedMessage& message, const CertStore* store) noexcept {
  if (message.skeleton.type != CMSMsg::Type::SignedData) return FailWith("The message is not a signed one");
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(message.cms.get());
  const int count = sk_CMS_SignerInfo_num(signers);
  if (count <= 0) return FailWith("The message has no signers");
  if (!message.skeleton.hasContent) return FailWith("The message does not hold its content");
  const CertStackPtr certificates(CMS_get1_certs(message.cms.get()));
  ContentDigests digests;
  for (int i = 0; i < count; ++i) {
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, i);
    if (!digests.Ask(GetDigestAlgorithm(signer))) return false;
    if (!CheckSignature(message, signer, certificates.get())) return false;
    if (store != nullptr && !CheckChain(signer, *store, certificates.get())) return false;
  }
  if (!digests.Compute(message)) return false;
  for (int i = 0; i < count; ++i) {
    if (!CheckDigest(sk_CMS_SignerInfo_value(signers, i), digests)) return false;
  }
  return true;
}

bool AreSigningTimesReadable(const CmsSkeleton& skeleton) noexcept {
  ViewSource source(skeleton.after.GetData(), skeleton.after.GetSize());
  BerReader reader(source);
  BerWalker walker(reader);
  SigningTimeCheck check(walker);
  check.CheckSigners();
  const bool isShortOfMemory = !check.IsUnreadable() && walker.IsFailed() && !reader.IsRefused();
  if (isShortOfMemory) return false;
  // The walk may have recorded why it ended at an invalid structure; that is for OpenSSL's parser to judge.
  OruGuiBase::ClearLastError();
  return !check.IsUnreadable() || FailWith("The signing time of a signer cannot be read");
}

}  // namespace OruOssSec
