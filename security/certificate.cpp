// Certificates as values over OpenSSL's X509. Everything that holds or compares a certificate uses this
// class; how a chain is found is in x509/chain.cpp.
#include "security/certificate.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "foundation/dates.h"
#include "foundation/encoding.h"
#include "security/certstore.h"
#include "security/failure.h"
#include "security/openssl_handles.h"
#include "security/x509/chain.h"
#include "security/x509/text_forms.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::DateTime;
using Chain = OruGuiBase::PtrContainerQueue<Certificate>;

constexpr const char* kEmpty = "The certificate is empty";

// Owns the DER form of a certificate; empty on allocation failure, which then compares as different.
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

// Each entry of the chain takes a reference of its own.
bool CopyChain(const STACK_OF(X509) * verified, Chain& chain) {
  for (int i = 0; i < sk_X509_num(verified); ++i) {
    X509* const certificate = sk_X509_value(verified, i);
    auto* const entry = new (std::nothrow) Certificate();
    if (entry == nullptr || !chain.Append(entry)) return false;
    X509_up_ref(certificate);
    *entry = Certificate(certificate);
  }
  return true;
}

bool ToDateTime(const ASN1_TIME* time, DateTime& value) {
  std::tm fields{};
  if (ASN1_TIME_to_tm(time, &fields) != 1) return false;
  value = {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
           fields.tm_hour,        fields.tm_min,     fields.tm_sec};
  return true;
}

// A result is returned and, on failure, recorded too: callers may look at either.
CertVerifyResult Outcome(int code, const char* text) {
  if (code != X509_V_OK) FailWith(text);
  return {code, text};
}

}  // namespace

Certificate::Certificate(const Certificate& other) noexcept : certificate_(other.certificate_) {
  if (certificate_ != nullptr) X509_up_ref(certificate_);
}

// By a copy, so that assigning a certificate to itself keeps its reference.
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
  text = OruGuiBase::Binary2B16Str(value, size, /*upperCase=*/false);
  return true;
}

bool Certificate::GetSubject(AnsiStr& text) const noexcept {
  const OpenSSLScope scope;
  if (certificate_ == nullptr) return FailWith(kEmpty);
  return NameToText(X509_get_subject_name(certificate_), text);
}

bool Certificate::GetIssuer(AnsiStr& text) const noexcept {
  const OpenSSLScope scope;
  if (certificate_ == nullptr) return FailWith(kEmpty);
  return NameToText(X509_get_issuer_name(certificate_), text);
}

bool Certificate::GetSerial(AnsiStr& text) const noexcept {
  if (certificate_ == nullptr) return FailWith(kEmpty);
  const ASN1_INTEGER* const serial = X509_get0_serialNumber(certificate_);
  text = OruGuiBase::Binary2B16Str(ASN1_STRING_get0_data(serial),
                                   static_cast<std::uint32_t>(ASN1_STRING_length(serial)),
                                   /*upperCase=*/true);
  return true;
}

bool Certificate::GetValidity(DateTime& notBefore, DateTime& notAfter) const noexcept {
  const OpenSSLScope scope;
  if (certificate_ == nullptr) return FailWith(kEmpty);
  DateTime first;
  DateTime last;
  if (!ToDateTime(X509_get0_notBefore(certificate_), first) ||
      !ToDateTime(X509_get0_notAfter(certificate_), last)) {
    return FailWithOpenSSL("The validity period of the certificate cannot be read");
  }
  notBefore = first;
  notAfter = last;
  return true;
}

int Certificate::Compare(const Certificate& a, const Certificate& b) noexcept {
  if (a.certificate_ == b.certificate_) return 0;
  if (a.certificate_ == nullptr) return -1;
  if (b.certificate_ == nullptr) return 1;
  return Encoded(a.certificate_).Compare(Encoded(b.certificate_));
}

CertVerifyResult Certificate::VerifyChain(const CertStore& store, const CertStore& preferred, Chain* chain,
                                          bool checkRevocation, bool allowPartialChain, const DateTime& time,
                                          bool ignoreTime) const noexcept {
  const OpenSSLScope scope;
  if (chain != nullptr) chain->Clear();
  if (certificate_ == nullptr) return Outcome(X509_V_ERR_INVALID_CALL, "The certificate is empty");
  // An invalid time lies before every certificate. It must never mean the present.
  if (!ignoreTime && !OruGuiBase::IsValidDateTime(time)) {
    return Outcome(X509_V_ERR_CERT_NOT_YET_VALID,
                   X509_verify_cert_error_string(X509_V_ERR_CERT_NOT_YET_VALID));
  }
  const ChainVerdict verdict = FindChain(
      certificate_, {store.Get0(), nullptr, preferred.Get0()},
      {checkRevocation, allowPartialChain, ignoreTime, ignoreTime ? 0 : OruGuiBase::ToUnixTime(time)});
  if (verdict.code == X509_V_OK && chain != nullptr && !CopyChain(verdict.chain.get(), *chain)) {
    chain->Clear();
    return Outcome(X509_V_ERR_OUT_OF_MEM, X509_verify_cert_error_string(X509_V_ERR_OUT_OF_MEM));
  }
  return Outcome(verdict.code, verdict.text);
}

CertVerifyResult Certificate::VerifyChain(const CertStore& store, Chain* chain, bool checkRevocation,
                                          bool allowPartialChain, const DateTime& time,
                                          bool ignoreTime) const noexcept {
  return VerifyChain(store, CertStore(), chain, checkRevocation, allowPartialChain, time, ignoreTime);
}

}  // namespace OruOssSec
