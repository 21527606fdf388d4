#pragma once

#include "foundation/ansistr.h"
#include "security/certificate.h"
#include "security/export.h"

struct stack_st_X509;

namespace OruOssSec {

/// A set of trusted certificates. It shares them with other handles. A null pointer inside is the empty
/// store.
class ORUSEC_EXPORT CertStore {
 public:
  CertStore() noexcept = default;
  CertStore(const CertStore&) = delete;
  CertStore& operator=(const CertStore&) = delete;
  ~CertStore() { Clear(); }

  /// Adds the certificates in `text`: any number of PEM blocks, or base64 DER certificates separated by blank
  /// lines. Other text around PEM blocks is passed over (RFC 7468, section 2); without any block, everything
  /// has to be a certificate. Base64 beside blocks needs a blank line or a block before it: directly under a
  /// line of other text it is a part of that text and passed over too. No certificate at all is a success.
  /// If anything cannot be read, nothing is added. `count` may be null; otherwise it receives the number of
  /// certificates read.
  bool Load(const OruGuiBase::AnsiStr& text, unsigned int* count) noexcept;
  /// Adds one certificate, unless it is there already. An empty one is a failure.
  bool Add(const Certificate& certificate) noexcept;
  bool Contains(const Certificate& certificate) const noexcept;
  void Clear() noexcept;

  /// The certificates, still owned by the store; null when empty.
  stack_st_X509* Get0() const noexcept { return certificates_; }

 private:
  stack_st_X509* certificates_ = nullptr;
};

}  // namespace OruOssSec
