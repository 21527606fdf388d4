#pragma once

#include "security/cms/content.h"
#include "security/cms/message.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// The one reason of a decryption that fails, whatever its cause: key, block, length or padding.
inline constexpr const char* kCouldNotDecrypt = "The content cannot be decrypted with this key";

/// Decrypts the content of a message with a context that has its key, into the sink.
bool DecryptContent(const LoadedMessage& message, EVP_CIPHER_CTX* context, IContentSink& sink) noexcept;

}  // namespace OruOssSec
