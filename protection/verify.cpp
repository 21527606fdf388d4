// Signed content: the check of its signature, its delivery, and the proof of its origin. Called by Decrypt
// for a file whose content is a SignedData.
#include <string_view>

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

// The value of a signed attribute; empty when the signer has none of this OID.
AnsiStr GetAttribute(const CMSSigner& signer, const char* oid) noexcept {
  const Val value = signer.signedAttributes.Get(oid);
  return value.IsNil() ? AnsiStr() : value.AsString();
}

// A trace ends at a NUL byte. The trace of a value with one does not end in a bracket, so that no reader
// takes the part before the NUL for the value.
void TraceAttribute(const char* name, const AnsiStr& value) noexcept {
  const bool isCut = value.View().find('\0') != std::string_view::npos;
  CRYPTCLI_TRACE_STR(2, "CryptClient::DecryptFile: %s=[%s]%s", name, value.GetText(),
                     isCut ? " up to a NUL byte" : "");
}

// A group begins with "QOB."; any other value should be the hexadecimal form of one, which is how an
// attribute of type octet string reads. What cannot be decoded stays as it is: the crypt service then knows
// no such group.
AnsiStr NormaliseGroup(const AnsiStr& group) noexcept {
  if (group.View().starts_with("QOB.")) return group;
  AnsiStr decoded;
  std::uint32_t size = group.GetLength() / 2;
  char* characters = decoded.Alloc(size);
  if (characters == nullptr && size != 0) return group;
  if (!OruGuiBase::B16Str2Binary(group, characters, size, "\r\n")) return group;
  return decoded.Trunc(size);
}

// Hexadecimal digests, whose case has no meaning.
bool ListContains(const OruGuiBase::Array<Val>& digests, const AnsiStr& digest) noexcept {
  for (const Val& element : digests) {
    if (AnsiStr::Compare(digest, element.AsString(), /*ignoreCase=*/true) == 0) return true;
  }
  return false;
}

}  // namespace

// Two stores: `full` holds every certificate that a chain may use, `issuers` only those that may issue
// integrity certificates. Without any such issuer no signer could pass, so that is an error of its own.
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

// A broken signature stops the delivery. A signer who cannot be trusted does not: the content is delivered,
// and `isVerified` stays false. With an unwrapped room key no key server is asked at all, so only the
// signature is checked.
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

// Every signer has to pass, in the order of the message. The signature was verified before this is called.
bool CryptClient::CheckSigners(const CMSMsg& message, const CertStore& full,
                               const CertStore& issuers) noexcept {
  PtrContainerQueue<CMSSigner> signers;
  if (!message.GetSigners(signers)) return Fail("Could not read signer information");
  for (const CMSSigner& signer : signers) {
    if (!CheckSignerGroup(signer)) return false;
    if (!CheckSignerChain(signer, full, issuers)) return false;
  }
  return true;
}

// The signer's certificate has to be one of the integrity certificates of the group that the signed
// attributes name.
bool CryptClient::CheckSignerGroup(const CMSSigner& signer) noexcept {
  if (signer.certificate.IsEmpty()) return Fail("Invalid signer certificate");
  const AnsiStr signedGroup = GetAttribute(signer, kGroupAttribute);
  TraceAttribute("group", signedGroup);
  TraceAttribute("room", GetAttribute(signer, kRoomAttribute));
  TraceAttribute("roomurl", GetAttribute(signer, kRoomUrlAttribute));
  if (signedGroup.IsEmpty()) return Fail("Could not determine group of signer");
  const AnsiStr digest =
      GetCertDigest(signer.certificate, OruOssSec::SecDigest::SHA256, OruOssSec::SecEncoding::HexLower);
  if (digest.IsEmpty()) return Fail("Could not determine signer certificate digest");
  ValArray digests;
  if (!FetchIntegrityCerts(NormaliseGroup(signedGroup), digests, "sha256")) return false;
  if (ListContains(digests, digest)) return true;
  return Fail("Could not find a matching integrity certificate");
}

// The chain is judged at the time of signing: a certificate that has expired since does not spoil old files.
// The direct issuer has to be in the trust list; being below a trusted authority is not enough. The list of
// certificates may hold renewed ones of the same name and key, so those of the trust list are preferred.
bool CryptClient::CheckSignerChain(const CMSSigner& signer, const CertStore& full,
                                   const CertStore& issuers) noexcept {
  PtrContainerQueue<Certificate> chain;
  const CertVerifyResult result =
      signer.certificate.VerifyChain(full, issuers, &chain, /*checkRevocation=*/false,
                                     /*allowPartialChain=*/false, signer.signingTime, /*ignoreTime=*/false);
  if (result.code != 0)
    return Fail("Could not verify integrity certificate chain: %s", result.GetResultString().GetText());
  for (const Certificate& certificate : chain) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::Decrypt: certchain = %s", GetCertSubject(certificate).GetText());
  }
  const Certificate* issuer = chain.Get(1);
  if (issuer == nullptr || issuer->IsEmpty())
    return Fail("Could not verify integrity certificate: Invalid issuer");
  if (!issuers.Contains(*issuer))
    return Fail("Untrusted integrity certificate issuer: %s", GetCertSubject(*issuer).GetText());
  return true;
}

}  // namespace OruKalvix
