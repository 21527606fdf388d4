#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/datetime.h"
#include "foundation/queue.h"
#include "security/export.h"
#include "security/key.h"

struct x509_st;

namespace OruOssSec {

class CertStore;

/// Digests that identify a certificate.
enum class SecDigest : std::uint32_t { SHA256 = 2 };

/// How bytes are written as a string.
enum class SecEncoding : std::uint32_t {
  HexLower = 1,  ///< lower-case hexadecimal without separators
};

/// Outcome of a chain verification.
class ORUSEC_EXPORT CertVerifyResult {
 public:
  CertVerifyResult() noexcept = default;
  CertVerifyResult(std::int32_t resultCode, const OruGuiBase::AnsiStr& text) noexcept
      : code(resultCode), text_(text) {}

  /// 0 means verified.
  std::int32_t code = 0;

  /// The outcome in words, for messages.
  const OruGuiBase::AnsiStr& GetResultString() const noexcept { return text_; }

 private:
  OruGuiBase::AnsiStr text_;
};

/// An X.509 certificate (RFC 5280): a handle to one counted object, which copies share.
class ORUSEC_EXPORT Certificate {
 public:
  Certificate() noexcept = default;
  /// Takes the reference over.
  explicit Certificate(x509_st* certificate) noexcept : certificate_(certificate) {}
  Certificate(const Certificate& other) noexcept;
  ~Certificate() { Clear(); }
  Certificate& operator=(const Certificate& other) noexcept;

  /// Reads one certificate: PEM, with or without other text around it, or base64. A second one is a failure.
  /// On false this one is unchanged and the reason is in the error state.
  bool Load(const OruGuiBase::AnsiStr& text, ASN1::Encoding encoding) noexcept;
  void Clear() noexcept;
  bool IsEmpty() const noexcept { return certificate_ == nullptr; }

  /// Writes the digest of the DER form to `text`.
  bool GetDigest(SecDigest digest, SecEncoding encoding, OruGuiBase::AnsiStr& text) const noexcept;
  /// Writes the subject to `text`, in the form of RFC 2253, in UTF-8.
  bool GetSubject(OruGuiBase::AnsiStr& text) const noexcept;
  /// Writes issuer and serial number as CMSKeyTransRecipient has them: the issuer in the form of the subject,
  /// the serial number in upper-case hexadecimal without prefix or sign byte.
  bool GetIssuer(OruGuiBase::AnsiStr& text) const noexcept;
  bool GetSerial(OruGuiBase::AnsiStr& text) const noexcept;
  /// The first and the last second of the validity period (RFC 5280, 4.1.2.5), in UTC.
  bool GetValidity(OruGuiBase::DateTime& notBefore, OruGuiBase::DateTime& notAfter) const noexcept;
  /// Three-way comparison of the DER forms; 0 means the same certificate. An empty one sorts first.
  static int Compare(const Certificate& a, const Certificate& b) noexcept;

  /// Builds and checks the chain of this certificate at `time` (UTC). All certificates of `store` are
  /// trusted. An unset time lies before every certificate and never means the present. Purpose and names are
  /// not checked.
  ///
  /// `chain` may be null; otherwise it is emptied and, when the chain verifies, filled from this certificate
  /// upwards. `checkRevocation` asks for the revocation lists of the store. Unless `allowPartialChain`, the
  /// chain has to end in a self-signed certificate of the store. `ignoreTime` leaves validity periods out.
  ///
  /// A chain is found if one exists: authorities renew and cross-certify their certificates, so several of
  /// one name may fit as issuer, and each is tried. The search is bounded: a store of tens of thousands of
  /// certificates of one name may exhaust it, which fails with a reason of its own.
  CertVerifyResult VerifyChain(const CertStore& store, OruGuiBase::PtrContainerQueue<Certificate>* chain,
                               bool checkRevocation, bool allowPartialChain, const OruGuiBase::DateTime& time,
                               bool ignoreTime) const noexcept;
  /// The same; of several issuers of one name those in `preferred` are tried first. So the second certificate
  /// of `chain`, the direct issuer, is one of `preferred` whenever some chain that verifies has one there.
  /// `preferred` adds no trust.
  CertVerifyResult VerifyChain(const CertStore& store, const CertStore& preferred,
                               OruGuiBase::PtrContainerQueue<Certificate>* chain, bool checkRevocation,
                               bool allowPartialChain, const OruGuiBase::DateTime& time,
                               bool ignoreTime) const noexcept;

  /// The certificate object, still owned by this handle; null when empty.
  x509_st* Get0() const noexcept { return certificate_; }

 private:
  x509_st* certificate_ = nullptr;
};

}  // namespace OruOssSec
