#include "client/cryptcli.h"
#include "client/tracing.h"
#include "foundation/encoding.h"
#include "protection/attributes.h"
#include "roomkeys/cert_text.h"
#include "security/certstore.h"
#include "security/cmsmsg.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::PtrContainerQueue;
using OruGuiBase::Val;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::CertVerifyResult;
using OruOssSec::CMSMsg;
using OruOssSec::CMSSigner;

namespace OruKalvix {
namespace {

// A missing attribute reads as the empty text.
AnsiStr AttributeText(const CMSSigner& signer, const char* oid) noexcept {
  const Val value = signer.signedAttributes.Get(oid);
  return value.IsNil() ? AnsiStr() : value.AsString();
}

// A group begins with "QOB."; any other text is the hexadecimal form of one. What does not decode stays as it
// is, for the crypt service to judge.
AnsiStr NormaliseGroup(const AnsiStr& group) noexcept {
  if (group.View().starts_with("QOB.")) return group;
  AnsiStr decoded;
  std::uint32_t size = group.GetLength() / 2;
  char* room = decoded.Alloc(size);
  if (room == nullptr && size != 0) return group;
  if (!OruGuiBase::B16Str2Binary(group, room, size, "\r\n")) return group;
  return decoded.Trunc(size);
}

bool ListHolds(const OruGuiBase::Array<Val>& digests, const AnsiStr& digest) noexcept {
  for (const Val& element : digests) {
    if (AnsiStr::Compare(digest, element.AsString(), /*ignoreCase=*/true) == 0) return true;
  }
  return false;
}

}  // namespace

// The full store judges chains; the issuer store alone says who may issue integrity certificates.
bool CryptClient::LoadSignerStores(CertStore& full, CertStore& issuers) noexcept {
  AnsiStr certStore;
  AnsiStr trustStore;
  if (!KeyServerGetCertStore(certStore)) return false;
  if (!KeyServerGetTrustStore(trustStore)) return false;
  if (!LoadRootsAndIntermediates(certStore, full)) return false;
  if (!LoadTrustedIssuers(trustStore, full, nullptr)) return false;
  unsigned int count = 0;
  if (!LoadTrustedIssuers(trustStore, issuers, &count)) return false;
  if (count == 0) return Fail("No trusted issuing certificates");
  return true;
}

// With a plain room key the signature alone is checked; with one that the key servers hold, the signature
// stops the delivery, and who signed decides on `isVerified` once the content is out.
bool CryptClient::DeliverSigned(CMSMsg& message, const RoomKey& roomKey, const File& target,
                                bool& isVerified) noexcept {
  CertStore full;
  CertStore issuers;
  const bool isPlainKey = !roomKey.key.IsEmpty();
  if (!isPlainKey && !LoadSignerStores(full, issuers)) return false;
  const bool isIntact = isPlainKey ? message.Verify() : message.Verify(full);
  if (!isIntact) return FailWithSystemError("Could not verify signature");
  if (!message.GetContent(target)) return FailWithSystemError("Could not read signed content");
  isVerified = isPlainKey || CheckSigners(message, full, issuers);
  return true;
}

bool CryptClient::CheckSigners(const CMSMsg& message, const CertStore& full,
                               const CertStore& issuers) noexcept {
  PtrContainerQueue<CMSSigner> signers;
  if (!message.GetSigners(signers)) return Fail("Could not read signer information");
  for (auto* node = signers.GetFirst(); node != nullptr; node = node->next) {
    const CMSSigner& signer = *node->element;
    if (!CheckSignerGroup(signer)) return false;
    if (!CheckSignerChain(signer, full, issuers)) return false;
  }
  return true;
}

// The signer's certificate has to be one of the integrity certificates of the group that the signature names.
bool CryptClient::CheckSignerGroup(const CMSSigner& signer) noexcept {
  if (signer.certificate.IsEmpty()) return Fail("Invalid signer certificate");
  const AnsiStr signedGroup = AttributeText(signer, kGroupAttribute);
  CRYPTCLI_TRACE_STR(2, "CryptClient::DecryptFile: group=[%s]", signedGroup.GetText());
  CRYPTCLI_TRACE_STR(2, "CryptClient::DecryptFile: room=[%s]",
                     AttributeText(signer, kRoomAttribute).GetText());
  CRYPTCLI_TRACE_STR(2, "CryptClient::DecryptFile: roomurl=[%s]",
                     AttributeText(signer, kRoomUrlAttribute).GetText());
  if (signedGroup.IsEmpty()) return Fail("Could not determine group of signer");
  const AnsiStr digest =
      GetCertDigest(signer.certificate, OruOssSec::SecDigest::SHA256, OruOssSec::SecEncoding::HexLower);
  if (digest.IsEmpty()) return Fail("Could not determine signer certificate digest");
  ValArray digests;
  if (!FetchIntegrityCerts(NormaliseGroup(signedGroup), digests, "sha256")) return false;
  if (ListHolds(digests, digest)) return true;
  return Fail("Could not find a matching integrity certificate");
}

// The chain is judged as of the time of signing, and its second certificate has to stand in the trust list
// itself: a longer way to a root does not suffice. So its certificates are preferred to others of their names
// and keys, such as renewed ones that the certificate list holds already.
bool CryptClient::CheckSignerChain(const CMSSigner& signer, const CertStore& full,
                                   const CertStore& issuers) noexcept {
  PtrContainerQueue<Certificate> chain;
  const CertVerifyResult result =
      signer.certificate.VerifyChain(full, issuers, &chain, /*checkRevocation=*/false,
                                     /*allowPartialChain=*/false, signer.signingTime, /*ignoreTime=*/false);
  if (result.code != 0)
    return Fail("Could not verify integrity certificate chain: %s", result.GetResultString().GetText());
  for (auto* node = chain.GetFirst(); node != nullptr; node = node->next) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::Decrypt: certchain = %s", GetCertSubject(*node->element).GetText());
  }
  const Certificate* issuer = chain.Get(1);
  if (issuer == nullptr || issuer->IsEmpty())
    return Fail("Could not verify integrity certificate: Invalid issuer");
  if (!issuers.Contains(*issuer))
    return Fail("Untrusted integrity certificate issuer: %s", GetCertSubject(*issuer).GetText());
  return true;
}

}  // namespace OruKalvix
