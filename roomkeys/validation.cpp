#include "client/cryptcli.h"
#include "client/tracing.h"
#include "exchange/member_reader.h"
#include "foundation/json.h"
#include "roomkeys/cert_text.h"
#include "security/certstore.h"
#include "security/cmsmsg.h"

using OruGuiBase::datetime;
using OruGuiBase::PtrContainerQueue;
using OruGuiBase::Val;
using OruOssSec::Certificate;
using OruOssSec::CertStore;
using OruOssSec::CertVerifyResult;

namespace OruKalvix {

// The wrapped key is a CMS message around a JSON object. Its own signature proves nothing here: the proof is
// the two certificate chains.
bool CryptClient::ReadInnerSigningCertificate(const AnsiStr& data, Certificate& certificate) noexcept {
  OruOssSec::CMSMsg message;
  if (!message.Load(data)) return FailWithSystemError("Could not parse room key");
  Blob content;
  if (!message.GetContent(content)) return FailWithSystemError("Could not extract room key content");
  Val value;
  AnsiStr error;
  const AnsiStr text(reinterpret_cast<const char*>(content.GetData()), content.GetSize());
  if (!OruGuiBase::JSON2Val(text, value, error))
    return Fail("Could not parse room key content: %s", error.GetText());
  const AnsiStr encoded = MemberReader(value.AsMap()).String("encodedInnerSigningCertificate");
  if (encoded.IsEmpty()) return Fail("Invalid room key: Invalid encodedInnerSigningCertificate");
  if (!certificate.Load(encoded, OruOssSec::ASN1::Encoding::Text))
    return Fail("Invalid room key: Could not parse encodedInnerSigningCertificate");
  return true;
}

bool CryptClient::LoadRootsAndIntermediates(const AnsiStr& text, CertStore& store) noexcept {
  return store.Load(text, nullptr) ||
         FailWithSystemError("Could not parse list of root and intermediate CA certificates");
}

bool CryptClient::LoadTrustedIssuers(const AnsiStr& text, CertStore& store, unsigned int* count) noexcept {
  return store.Load(text, count) ||
         FailWithSystemError("Could not parse list of trusted issuing certificates");
}

// The room key's certificate has to be issued by the inner signing certificate directly: a chain to the lists
// by any other way does not count, however good it is. So that certificate is preferred to others of its name
// and key, which the lists may hold from before or after a renewal.
bool CryptClient::VerifyRoomKeyChain(const RoomKey& roomKey, const Certificate& inner, const CertStore& store,
                                     const datetime& time) noexcept {
  CertStore direct;
  if (!direct.Add(inner)) return FailWithSystemError("Could not add inner signing certificate to store");
  PtrContainerQueue<Certificate> chain;
  const CertVerifyResult result =
      roomKey.certificate.VerifyChain(store, direct, &chain, /*checkRevocation=*/false,
                                      /*allowPartialChain=*/true, time, /*ignoreTime=*/false);
  if (result.code != 0)
    return Fail("Could not verify room key certificate chain: %s", result.GetResultString().GetText());
  for (auto* node = chain.GetFirst(); node != nullptr; node = node->next) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::ValidateRoomKey: certchain = %s",
                       GetCertSubject(*node->element).GetText());
  }
  const Certificate* issuer = chain.Get(1);
  if (issuer == nullptr || issuer->IsEmpty()) return Fail("Could not verify room key: Invalid issuer");
  if (Certificate::Compare(*issuer, inner) != 0) return Fail("Could not verify room key: Unexpected issuer");
  return true;
}

bool CryptClient::ValidateRoomKey(const RoomKey& roomKey) noexcept {
  Certificate inner;
  if (!ReadInnerSigningCertificate(roomKey.data, inner)) return false;
  AnsiStr certStore;
  AnsiStr trustStore;
  if (!KeyServerGetCertStore(certStore)) return false;
  if (!KeyServerGetTrustStore(trustStore)) return false;
  CertStore store;
  if (!LoadRootsAndIntermediates(certStore, store)) return false;
  if (!LoadTrustedIssuers(trustStore, store, nullptr)) return false;
  if (!KeyServerConnect()) return false;
  datetime time;
  GetKeyServerTime(time);
  const CertVerifyResult issuer = inner.VerifyChain(store, nullptr, /*checkRevocation=*/false,
                                                    /*allowPartialChain=*/false, time, /*ignoreTime=*/false);
  if (issuer.code != 0)
    return Fail("Could not verify room key issuer certificate chain: %s", issuer.GetResultString().GetText());
  // Trusted as an issuer only now that the lists have accepted it by themselves.
  if (!store.Add(inner)) return FailWithSystemError("Could not add inner signing certificate to store");
  return VerifyRoomKeyChain(roomKey, inner, store, time);
}

}  // namespace OruKalvix
