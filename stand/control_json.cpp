// Values that several resources of the control interface have; recordings have the same times.
#include "stand/control_json.h"

#include <ctime>
#include <openssl/asn1.h>
#include <openssl/x509.h>

namespace CryptStand {
namespace {

std::string SecondText(const std::tm& time) {
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", time.tm_year + 1900, time.tm_mon + 1,
                time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec);
  return text;
}

std::string DateText(const ASN1_TIME* date) {
  std::tm time = {};
  return ASN1_TIME_to_tm(date, &time) == 1 ? SecondText(time) + "Z" : "";
}

}  // namespace

Val PrintableVal(std::string_view bytes) {
  return TextVal(OruGuiBase::MakeUtf8(bytes));
}

std::string TimeText(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()) % 1000;
  std::tm fields = {};
  gmtime_r(&seconds, &fields);
  char fraction[16];
  std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(rest.count()));
  return SecondText(fields) + fraction;
}

Val CertificateVal(const Cert& certificate) {
  if (certificate.IsEmpty()) return Val();
  KVMap object;
  object.Set("subject", PrintableVal(certificate.GetSubject()));
  object.Set("issuer", PrintableVal(certificate.GetIssuer()));
  object.Set("serial", TextVal(certificate.GetSerial()));
  object.Set("notBefore", TextVal(DateText(X509_get0_notBefore(certificate.Get0()))));
  object.Set("notAfter", TextVal(DateText(X509_get0_notAfter(certificate.Get0()))));
  object.Set("digest", TextVal(certificate.GetDigest()));
  return Val(object);
}

Val CountVal(std::uint64_t count) {
  return Val(static_cast<std::int64_t>(count));
}

}  // namespace CryptStand
