#pragma once

#include <memory>

#include "foundation/reference.h"
#include "security/ber/source.h"
#include "security/certificate.h"
#include "security/cms/skeleton.h"
#include "security/key.h"
#include "security/openssl_handles.h"

namespace OruOssSec {

/// A symmetric key, wiped with its holder.
struct ContentKey {
  static constexpr std::uint32_t kMost = EVP_MAX_KEY_LENGTH;

  ContentKey() noexcept = default;
  ContentKey(const ContentKey&) = delete;
  ContentKey& operator=(const ContentKey&) = delete;
  ~ContentKey() { OruGuiBase::WipeMemory(bytes, sizeof(bytes)); }

  std::uint8_t bytes[kMost] = {};
  std::uint32_t size = 0;
};

/// What a CMSMsg holds of a message that was loaded.
struct LoadedMessage {
  std::unique_ptr<IByteSource> source;
  CmsSkeleton skeleton;
  OruGuiBase::AnsiStr typeName;
  /// OpenSSL's view of the skeleton, of SignedData and EnvelopedData alone.
  CmsPtr cms;

  // How to open an EnvelopedData: one of the two, the one that was set last.
  Certificate recipient;
  PrivateKey recipientKey{nullptr};
  std::unique_ptr<ContentKey> contentKey;
};

/// Reads the message that fills `message.source`.
CMSMsg::LoadResult ReadMessage(LoadedMessage& message) noexcept;

/// What a CMSMsg holds of an enveloped message that is being made.
struct NewEnvelope {
  CmsPtr cms;
  bool hasRecipient = false;
  bool saved = false;
};

struct CMSMsg::Imp {
  /// Reads the message in `source`, null when there was no memory for it; it takes the place of `present`
  /// when it was loaded.
  static LoadResult Replace(Imp*& present, std::unique_ptr<IByteSource> source) noexcept;

  LoadedMessage loaded;
  NewEnvelope envelope;
};

}  // namespace OruOssSec
