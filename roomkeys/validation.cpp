// The proof that a room key comes from the key servers. Encrypt asks for it before it uses a key, whether the
// crypt service had the key or a key server has just made it.
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

// The wrapped key is a CMS message around a JSON object. The signature of that message is not checked,
// because anybody can sign one: the proof is the two certificate chains.
bool CryptClient::ReadInnerSigningCertificate(const AnsiStr& data, Certificate& certificate) noexcept {
  OruOssSec::CMSMsg message;
  if (!message.Load(data)) return FailWithSystemError("Could not parse room key");
  Blob content;
  if (!message.GetContent(content)) return FailWithSystemError("Could not extract room key content");
  Val value;
  AnsiStr error;
  const AnsiStr json(reinterpret_cast<const char*>(content.GetData()), content.GetSize());
  if (!OruGuiBase::JSON2Val(json, value, error))
    return Fail("Could not parse room key content: %s", error.GetText());
  const AnsiStr encoded = MemberReader(value.AsMap()).String("encodedInnerSigningCertificate");
  if (encoded.IsEmpty()) return Fail("Invalid room key: Invalid encodedInnerSigningCertificate");
  if (!certificate.Load(encoded, OruOssSec::ASN1::Encoding::Text))
    return Fail("Invalid room key: Could not parse encodedInnerSigningCertificate");
  return true;
}

bool CryptClient::LoadRootsAndIntermediates(const AnsiStr& list, CertStore& store) noexcept {
  return store.Load(list, nullptr) ||
         FailWithSystemError("Could not parse list of root and intermediate CA certificates");
}

bool CryptClient::LoadTrustedIssuers(const AnsiStr& list, CertStore& store, unsigned int* count) noexcept {
  return store.Load(list, count) ||
         FailWithSystemError("Could not parse list of trusted issuing certificates");
}

// The inner signing certificate has to be the direct issuer of the room key's certificate. A chain to the
// lists through another issuer does not count, even if it verifies. The lists may hold certificates of the
// same name and key from before or after a renewal, so the inner one is preferred to those.
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
  for (const Certificate& certificate : chain) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::ValidateRoomKey: certchain = %s",
                       GetCertSubject(certificate).GetText());
  }
  const Certificate* issuer = chain.Get(1);
  if (issuer == nullptr || issuer->IsEmpty()) return Fail("Could not verify room key: Invalid issuer");
  if (Certificate::Compare(*issuer, inner) != 0) return Fail("Could not verify room key: Unexpected issuer");
  return true;
}

// Times are those of the key server: the local clock may be wrong, and both sides have to judge alike. The
// inner signing certificate has to chain to the lists, and the room key's certificate to the inner one.
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
  // The inner certificate comes from the key under proof, so it is trusted only after the lists accepted it.
  if (!store.Add(inner)) return FailWithSystemError("Could not add inner signing certificate to store");
  return VerifyRoomKeyChain(roomKey, inner, store, time);
}

}  // namespace OruKalvix
