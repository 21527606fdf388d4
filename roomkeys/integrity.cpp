// The integrity key of a group, which signs its files, and the digests of the certificates that a group signs
// with. Encrypt asks for the first, the check of a file's signers for the second.
#include "client/cryptcli.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"

using OruGuiBase::Val;

namespace OruKalvix {

bool CryptClient::ReadIntegrityKey(const KVMap& payload, const AnsiStr& id, IntegrityKey& key) noexcept {
  const MemberReader members(MemberReader(payload).Object("key"));
  members.String("type");  // Its value does not matter, but a missing or wrong type is reported.
  key = IntegrityKey();
  key.id = members.String("id");
  // This looks at the id that was asked for, on purpose; the checks below look at the response. A response
  // without "id" ends the sweep with success, and SignHash refuses the key. A check of the response's id here
  // would make the sweep ask further servers.
  if (id.IsEmpty()) return Fail("Could not get integrity certificate: Invalid id");
  key.subId = members.String("subId");
  if (key.subId.IsEmpty()) return Fail("Could not get integrity certificate: Invalid subId");
  const AnsiStr certificate = members.String("encodedCertificate");
  if (certificate.IsEmpty()) return Fail("Could not get integrity certificate: Invalid encodedCertificate");
  return key.certificate.Load(certificate, OruOssSec::ASN1::Encoding::Text) ||
         FailWithSystemError("Could not parse integrity certificate");
}

// The private key stays on the key servers, so the key is represented by its certificate.
bool CryptClient::KeyServerGetKey(const AnsiStr& id, const AnsiStr& subId, IntegrityKey& key) noexcept {
  KeyServerRequest request(KeyServerCommand::GetKey, room);
  request.payload.Put("key", Val(GetKeyHandle(id, subId)));
  request.payload.Put("representation", "certificate");
  return RunCommand(request,
                    [&](const KVMap& payload) noexcept { return ReadIntegrityKey(payload, id, key); });
}

bool CryptClient::FetchIntegrityCerts(const AnsiStr& ofGroup, ValArray& certificates,
                                      const AnsiStr& digest) noexcept {
  const AnsiStr url = GetServiceUrl("certlist", ofGroup, "integrity", digest);
  if (url.IsEmpty()) return false;
  KVMap request;
  request.Put("keyserver", keyServerCursor.keyServerUrl);
  KVMap response;
  if (!HttpPostJSON(url, request, KVMap(), response))
    return Fail("Could not get integrity certificates: %s", errorMessage.GetText());
  certificates = MemberReader(response).List("integrity");
  return true;
}

}  // namespace OruKalvix
