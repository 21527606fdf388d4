#pragma once

#include "foundation/file.h"
#include "security/certificate.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// What a CMSMsg holds of an enveloped message that is being made.
struct NewEnvelope {
  CmsPtr cms;
  bool hasRecipient = false;
  bool saved = false;
};

/// Starts an EnvelopedData for AES-256-CBC; OpenSSL makes its content key.
bool StartEnvelope(NewEnvelope& envelope) noexcept;
/// Adds an RSAES-PKCS1-v1_5 recipient named by issuer and serial number.
bool AddEnvelopeRecipient(NewEnvelope& envelope, const Certificate& certificate) noexcept;
/// Encrypts `content` into `target`. An envelope is saved once: its key is used up with that.
bool SaveEnvelope(NewEnvelope& envelope, const OruGuiBase::File& content,
                  const OruGuiBase::File& target) noexcept;

}  // namespace OruOssSec
