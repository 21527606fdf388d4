#pragma once

#include "security/cms/sink.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Sets the recipient and the key to open an EnvelopedData with; a content key set before is dropped.
bool TakeRecipientKey(LoadedMessage& message, const Certificate& certificate, const PrivateKey& key) noexcept;
/// Sets the content key of an EnvelopedData, in base64, in the place of a recipient's key.
bool TakeContentKey(LoadedMessage& message, const OruGuiBase::AnsiStr& text) noexcept;
/// Delivers the content of a message to `sink`; that of an EnvelopedData is decrypted with the key set
/// before.
///
/// Ciphers: AES-128-CBC, AES-192-CBC, AES-256-CBC (RFC 3565) and DES-EDE3-CBC (RFC 3370). All of them have
/// the padding of RFC 5652, 6.3.
bool DeliverContent(const LoadedMessage& message, IContentSink& sink) noexcept;

}  // namespace OruOssSec
