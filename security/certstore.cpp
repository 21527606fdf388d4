// Trust lists as users keep them: up to tens of thousands of certificates in one string. Loading one has to
// be fast, all or nothing, and must not hold a certificate twice.
#include "security/certstore.h"

#include <array>
#include <new>
#include <set>
#include <utility>

#include "security/failure.h"
#include "security/openssl_handles.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;

// The certificates seen so far, by SHA-256 digest, so that duplicates among thousands are found without
// comparing each with each. Lives for one Load.
class DigestSet {
 public:
  /// Returns whether the certificate was new. Throws std::bad_alloc on allocation failure.
  bool Insert(X509* certificate) {
    Digest digest = {};
    if (X509_digest(certificate, EVP_sha256(), digest.data(), nullptr) != 1) throw std::bad_alloc();
    return known_.insert(digest).second;
  }

 private:
  using Digest = std::array<unsigned char, 32>;
  std::set<Digest> known_;
};

bool ReadAll(const AnsiStr& text, STACK_OF(X509) * certificates) {
  TextObjectReader reader(text.View());
  TextObject object;
  for (;;) {
    const TextObjectReader::Step step = reader.Next(object);
    if (step != TextObjectReader::Step::Object) return step == TextObjectReader::Step::End;
    CertPtr certificate(DecodeCertificate(object));
    if (certificate == nullptr) return false;
    if (sk_X509_push(certificates, certificate.get()) == 0) return FailWithoutMemory();
    static_cast<void>(certificate.release());
  }
}

// Those of `found` that are not in `present`, each once. `present` may be null. Null on allocation failure.
CertStackPtr SelectNew(const STACK_OF(X509) * present, const STACK_OF(X509) * found) try {
  DigestSet known;
  for (int i = 0; i < sk_X509_num(present); ++i) known.Insert(sk_X509_value(present, i));
  CertStackPtr fresh(sk_X509_new_reserve(nullptr, sk_X509_num(found)));
  if (fresh == nullptr) throw std::bad_alloc();
  for (int i = 0; i < sk_X509_num(found); ++i) {
    X509* const certificate = sk_X509_value(found, i);
    if (!known.Insert(certificate)) continue;
    X509_up_ref(certificate);
    sk_X509_push(fresh.get(), certificate);
  }
  return fresh;
} catch (const std::bad_alloc&) {
  return nullptr;
}

// The space is reserved first, so that the certificates are added all or not at all.
bool AppendAll(STACK_OF(X509) * &target, CertStackPtr fresh) {
  if (target == nullptr) {
    if (sk_X509_num(fresh.get()) > 0) target = fresh.release();
    return true;
  }
  if (sk_X509_reserve(target, sk_X509_num(fresh.get())) == 0) return false;
  for (int i = 0; i < sk_X509_num(fresh.get()); ++i) {
    X509* const certificate = sk_X509_value(fresh.get(), i);
    X509_up_ref(certificate);
    sk_X509_push(target, certificate);
  }
  return true;
}

// Issuer and serial number differ for nearly all others, which saves encoding both.
bool IsSame(X509* a, const Certificate& b) {
  if (X509_issuer_and_serial_cmp(a, b.Get0()) != 0) return false;
  X509_up_ref(a);
  return Certificate::Compare(Certificate(a), b) == 0;
}

}  // namespace

bool CertStore::Load(const AnsiStr& text, unsigned int* count) noexcept {
  const OpenSSLScope scope;
  if (count != nullptr) *count = 0;
  const CertStackPtr found(sk_X509_new_null());
  if (found == nullptr) return FailWithoutMemory();
  if (!ReadAll(text, found.get())) return false;
  CertStackPtr fresh = SelectNew(certificates_, found.get());
  if (fresh == nullptr || !AppendAll(certificates_, std::move(fresh))) return FailWithoutMemory();
  if (count != nullptr) *count = static_cast<unsigned int>(sk_X509_num(found.get()));
  return true;
}

bool CertStore::Add(const Certificate& certificate) noexcept {
  const OpenSSLScope scope;
  if (certificate.IsEmpty()) return FailWith("The certificate is empty");
  if (Contains(certificate)) return true;
  if (certificates_ == nullptr) certificates_ = sk_X509_new_null();
  if (certificates_ == nullptr || sk_X509_push(certificates_, certificate.Get0()) == 0) {
    return FailWithoutMemory();
  }
  X509_up_ref(certificate.Get0());
  return true;
}

bool CertStore::Contains(const Certificate& certificate) const noexcept {
  if (certificate.IsEmpty()) return false;
  for (int i = 0; i < sk_X509_num(certificates_); ++i) {
    if (IsSame(sk_X509_value(certificates_, i), certificate)) return true;
  }
  return false;
}

void CertStore::Clear() noexcept {
  CertStackPtr(std::exchange(certificates_, nullptr));
}

}  // namespace OruOssSec
