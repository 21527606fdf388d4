#pragma once

#include "security/cms/sink.h"
#include "security/cms/skeleton.h"

namespace OruOssSec {

/// Names the recipient and the key to open an EnvelopedData with.
bool TakeRecipientKey(LoadedMessage& message, const Certificate& certificate, const PrivateKey& key) noexcept;
/// Takes the content key, base64 text, for the cipher of an EnvelopedData.
bool TakeContentKey(LoadedMessage& message, const OruGuiBase::AnsiStr& text) noexcept;
/// Delivers the content of a message; that of an EnvelopedData decrypted with the key taken before.
///
/// Ciphers: AES-128-CBC, AES-192-CBC, AES-256-CBC (RFC 3565) and DES-EDE3-CBC (RFC 3370), so that every
/// padding is that of RFC 5652, 6.3.
bool DeliverContent(const LoadedMessage& message, IContentSink& sink) noexcept;

}  // namespace OruOssSec
