#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/blob.h"
#include "foundation/file.h"
#include "foundation/queue.h"
#include "security/certificate.h"
#include "security/certstore.h"
#include "security/cmslimits.h"
#include "security/cmsparties.h"
#include "security/export.h"
#include "security/key.h"

namespace OruOssSec {

/// Content encryption algorithms that a message can be written with.
enum class CipherAlgorithm : std::uint32_t { AES256CBC = 3 };

/// One CMS message (RFC 5652) of any size.
///
/// A loaded message keeps only its skeleton in memory: the structure without its content, within CMSLimits.
/// Parsed, it takes up to fifty times its size, 50 MiB at most. The content of a message from a file is
/// streamed from that file, which must stay there unchanged as long as this object uses it. All operations
/// that return a bool leave the reason of a failure in the error state.
class ORUSEC_EXPORT CMSMsg {
 public:
  enum class Type : std::uint32_t {
    Unknown = 0,
    Data = 1,
    SignedData = 2,
    EnvelopedData = 3,
    DigestedData = 5,
    EncryptedData = 6,
    AuthenticatedData = 7,
    CompressedData = 8,
    AuthEnvelopedData = 9,
  };

  enum class Format : std::uint32_t {
    BERStream = 0,  ///< indefinite lengths and content in segments, so that no size is known in advance
  };

  CMSMsg() noexcept = default;
  ~CMSMsg();
  CMSMsg(const CMSMsg&) = delete;
  CMSMsg& operator=(const CMSMsg&) = delete;

  /// Whether a message was loaded, and why not.
  enum class LoadResult : std::uint32_t {
    Loaded,
    NotAMessage,    ///< the bytes were read and are not a message of the accepted form
    Unreadable,     ///< they may be one: reading, allocation or a limit of this class failed
    LargeEnvelope,  ///< an EnvelopedData by its type, beyond CMSLimits::kSkeleton and so not read further
  };

  /// Reads a message in BER or DER. Nothing may follow it in the file.
  bool Load(const OruGuiBase::File& file) noexcept;
  /// The same, for a caller to whom a file that is no message is not a failure.
  LoadResult TryLoad(const OruGuiBase::File& file) noexcept;
  /// Reads a message from a string: PEM, or the base64 of BER or DER.
  bool Load(const OruGuiBase::AnsiStr& text) noexcept;

  Type GetType() const noexcept;
  /// The name of the type, or its OID in dotted form when the type is not known.
  OruGuiBase::AnsiStr GetTypeStr() const noexcept;

  /// Reads the key-transport recipients in their order. A recipient of another type, or one named by a key
  /// identifier, is a failure. A message without recipients is not.
  bool GetRecipients(OruGuiBase::PtrContainerQueue<CMSKeyTransRecipient>& recipients) const noexcept;

  /// Sets the private key to open the message with, and the certificate that names its recipient. True says
  /// only that there is such a recipient: a wrong key shows when the content is read. Its error is the same
  /// for every cause, so that nobody can use it to find out whether a padding was right.
  bool SetRecipientKey(const Certificate& certificate, const PrivateKey& key) noexcept;
  /// Sets the content key that somebody else decrypted, in base64. Its length must be that of the message's
  /// cipher.
  bool SetContentKey(const OruGuiBase::AnsiStr& key) noexcept;

  /// Writes the content; that of an enveloped message is decrypted with the key set before. A failure may
  /// leave a part of it at `target`. The content of SignedData, DigestedData and Data is delivered
  /// unverified.
  bool GetContent(const OruGuiBase::File& target) const noexcept;
  /// The same into memory, for small messages.
  bool GetContent(OruGuiBase::Blob& target) const noexcept;

  /// Reads the signers in their order.
  bool GetSigners(OruGuiBase::PtrContainerQueue<CMSSigner>& signers) const noexcept;

  /// Checks every signer's signature and the digest of the content. Fails for a message without signers,
  /// which proves nothing. The form with a store also demands a chain from each signer's certificate to the
  /// store, valid at the claimed time of signing, or now when the signer claims none.
  bool Verify() noexcept;
  bool Verify(const CertStore& store) noexcept;

  /// Prepares an enveloped message; AddRecipient and Save follow.
  bool CreateEnvelopedData(CipherAlgorithm cipher) noexcept;
  /// Adds a key-transport recipient (RSAES-PKCS1-v1_5) named by the issuer and serial number of the
  /// certificate. At most CMSLimits::kRecipients can be added.
  bool AddRecipient(const Certificate& certificate) noexcept;
  /// Writes `content` as the message into `target`, which is created or replaced. A failure may leave a part
  /// of it.
  bool Save(Format format, const OruGuiBase::File& content, const OruGuiBase::File& target) noexcept;

 private:
  struct Imp;
  Imp* imp_ = nullptr;
};

}  // namespace OruOssSec
