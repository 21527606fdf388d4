#pragma once

#include "foundation/file.h"
#include "security/certificate.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// An enveloped message that is being built. Owns OpenSSL's structure, which has the content key in it.
struct NewEnvelope {
  CmsPtr cms;
  bool hasRecipient = false;
  bool saved = false;
};

/// Starts an EnvelopedData for AES-256-CBC; OpenSSL generates its content key.
bool StartEnvelope(NewEnvelope& envelope) noexcept;
/// Adds an RSAES-PKCS1-v1_5 recipient named by issuer and serial number.
bool AddEnvelopeRecipient(NewEnvelope& envelope, const Certificate& certificate) noexcept;
/// Encrypts `content` into `target`. An envelope is saved only once: a key must not encrypt two contents.
bool SaveEnvelope(NewEnvelope& envelope, const OruGuiBase::File& content,
                  const OruGuiBase::File& target) noexcept;

}  // namespace OruOssSec
