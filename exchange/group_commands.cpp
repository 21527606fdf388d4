// The commands that administer a group and its key store. Applications call the public members, directly or
// by name; each is one key-server command.
#include "client/cryptcli.h"
#include "exchange/external_certificate.h"
#include "exchange/function_ref.h"
#include "exchange/key_server_command.h"

using OruGuiBase::Val;

namespace OruKalvix {

// Nothing is read from the response: a response of the command's own type is the key server's consent.
bool CryptClient::RunGroupCommand(const KeyServerRequest& request) noexcept {
  return RunCommand(request, [](const KVMap&) noexcept { return true; });
}

bool CryptClient::ConfigGroup(const AnsiStr& ofGroup, const AnsiStr& groupName, const AnsiStr& ownerGroup,
                              const ValArray& rootCertificates, const ValArray& issuingCertificates,
                              const ValArray& crlUrls) noexcept {
  return KeyServerConfigGroup(ofGroup, groupName, ownerGroup, rootCertificates, issuingCertificates, crlUrls);
}

bool CryptClient::Reencrypt(const AnsiStr& ofGroup, const AnsiStr& certificate) noexcept {
  return KeyServerReencrypt(ofGroup, certificate);
}

bool CryptClient::ImportKey(const AnsiStr& ofGroup, const AnsiStr& id, const AnsiStr& key,
                            const AnsiStr& password) noexcept {
  return KeyServerImportKey(ofGroup, id, key, password);
}

bool CryptClient::DeleteKey(const AnsiStr& ofGroup, const KVMap& key) noexcept {
  return KeyServerDeleteKey(ofGroup, key);
}

bool CryptClient::KeyServerConfigGroup(const AnsiStr& ofGroup, const AnsiStr& groupName,
                                       const AnsiStr& ownerGroup, const ValArray& rootCertificates,
                                       const ValArray& issuingCertificates,
                                       const ValArray& crlUrls) noexcept {
  KeyServerRequest request(KeyServerCommand::ConfigGroup, ofGroup);
  request.payload.Put("groupId", ofGroup);
  request.payload.Put("groupName", groupName);
  request.payload.Put("ownerGroupId", ownerGroup);
  request.payload.Put("authnRootCertificates", Val(rootCertificates));
  request.payload.Put("authnIssuingCertificates", Val(issuingCertificates));
  request.payload.Put("authnCrlUrls", Val(crlUrls));
  return RunGroupCommand(request);
}

bool CryptClient::KeyServerReencrypt(const AnsiStr& ofGroup, const AnsiStr& certificate) noexcept {
  KeyServerRequest request(KeyServerCommand::Reencrypt, ofGroup);
  request.payload.Put("groupId", ofGroup);
  request.payload.Put("encryptionKey", Val(ExternalCertificate(certificate)));
  return RunGroupCommand(request);
}

bool CryptClient::KeyServerImportKey(const AnsiStr& ofGroup, const AnsiStr& id, const AnsiStr& key,
                                     const AnsiStr& password) noexcept {
  KeyServerRequest request(KeyServerCommand::ImportKey, ofGroup);
  request.payload.Put("groupId", ofGroup);
  request.payload.Put("id", id);
  request.payload.Put("encodedKey", key);
  request.payload.Put("password", password);
  return RunGroupCommand(request);
}

bool CryptClient::KeyServerDeleteKey(const AnsiStr& ofGroup, const KVMap& key) noexcept {
  KeyServerRequest request(KeyServerCommand::DeleteKey, ofGroup, key);
  request.payload.Put("groupId", ofGroup);
  request.payload.Put("key", Val(key));
  return RunGroupCommand(request);
}

}  // namespace OruKalvix
