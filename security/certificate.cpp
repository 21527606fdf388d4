#include "security/certificate.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "foundation/encoding.h"
#include "security/failure.h"
#include "security/openssl_handles.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;

constexpr const char* kEmpty = "The certificate is empty";

// The DER form of a certificate, encoded for as long as this lives; a view of nothing when memory is out.
class Encoded {
 public:
  explicit Encoded(X509* certificate) noexcept {
    unsigned char* data = nullptr;
    size_ = i2d_X509(certificate, &data);
    data_.reset(data);
  }

  int Compare(const Encoded& other) const noexcept {
    if (size_ <= 0 || other.size_ <= 0) return size_ < other.size_ ? -1 : 1;
    const int order =
        std::memcmp(data_.get(), other.data_.get(), static_cast<std::size_t>(std::min(size_, other.size_)));
    return order != 0 ? order : size_ - other.size_;
  }

 private:
  DerPtr data_;
  int size_ = 0;
};

}  // namespace

Certificate::Certificate(const Certificate& other) noexcept : certificate_(other.certificate_) {
  if (certificate_ != nullptr) X509_up_ref(certificate_);
}

Certificate& Certificate::operator=(const Certificate& other) noexcept {
  Certificate copy(other);
  std::swap(certificate_, copy.certificate_);
  return *this;
}

bool Certificate::Load(const AnsiStr& text, ASN1::Encoding encoding) noexcept {
  const OpenSSLScope scope;
  if (encoding != ASN1::Encoding::Text) return FailWith("Unknown encoding of a certificate");
  TextObject object;
  if (!ReadSingleObject(text.View(), object)) return false;
  X509* const certificate = DecodeCertificate(object);
  if (certificate == nullptr) return false;
  X509_free(std::exchange(certificate_, certificate));
  return true;
}

void Certificate::Clear() noexcept {
  X509_free(std::exchange(certificate_, nullptr));
}

bool Certificate::GetDigest(SecDigest digest, SecEncoding encoding, AnsiStr& text) const noexcept {
  const OpenSSLScope scope;
  if (certificate_ == nullptr) return FailWith(kEmpty);
  if (digest != SecDigest::SHA256) return FailWith("Unknown digest");
  if (encoding != SecEncoding::HexLower) return FailWith("Unknown encoding of a digest");
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (X509_digest(certificate_, EVP_sha256(), value, &size) != 1) {
    return FailWithOpenSSL("The digest of the certificate cannot be computed");
  }
  text = OruGuiBase::Binary2B16Str(value, size, false);
  return true;
}

bool Certificate::GetSubject(AnsiStr& text) const noexcept {
  const OpenSSLScope scope;
  if (certificate_ == nullptr) return FailWith(kEmpty);
  return NameToText(X509_get_subject_name(certificate_), text);
}

int Certificate::Compare(const Certificate& a, const Certificate& b) noexcept {
  if (a.certificate_ == b.certificate_) return 0;
  if (a.certificate_ == nullptr) return -1;
  if (b.certificate_ == nullptr) return 1;
  return Encoded(a.certificate_).Compare(Encoded(b.certificate_));
}

}  // namespace OruOssSec
