#include "roomkeys/cert_text.h"

using OruGuiBase::AnsiStr;

namespace OruKalvix {

AnsiStr GetCertSubject(const OruOssSec::Certificate& certificate) noexcept {
  AnsiStr subject;
  return certificate.GetSubject(subject) ? subject : AnsiStr();
}

AnsiStr GetCertDigest(const OruOssSec::Certificate& certificate, OruOssSec::SecDigest digest,
                      OruOssSec::SecEncoding encoding) noexcept {
  AnsiStr text;
  return certificate.GetDigest(digest, encoding, text) ? text : AnsiStr();
}

}  // namespace OruKalvix
