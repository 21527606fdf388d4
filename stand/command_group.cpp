// configGroupRequest and reencryptRequest: what an administrator changes about a group as a whole.
#include <algorithm>

#include "stand/encryption_keys.h"
#include "stand/group_command.h"

namespace CryptStand {
namespace {

bool AreCertificates(const std::vector<std::string>& texts) {
  return std::none_of(texts.begin(), texts.end(),
                      [](const std::string& text) { return CertFromText(text).IsEmpty(); });
}

std::optional<GroupRecord> ReadConfiguration(const KVMap& payload) {
  const auto id = ReadText(payload, "groupId");
  const auto name = ReadText(payload, "groupName");
  const auto owner = ReadText(payload, "ownerGroupId");
  const auto roots = ReadTexts(payload, "authnRootCertificates");
  const auto issuing = ReadTexts(payload, "authnIssuingCertificates");
  const auto urls = ReadTexts(payload, "authnCrlUrls");
  if (!HasMembers(payload, {"type", "groupId", "groupName", "ownerGroupId", "authnRootCertificates",
                            "authnIssuingCertificates", "authnCrlUrls"}) ||
      !id || id->empty() || !name || !owner || !roots || !issuing || !urls ||
      std::find(urls->begin(), urls->end(), "") != urls->end()) {
    return std::nullopt;
  }
  return GroupRecord{*id, *name, *owner, *roots, *issuing, *urls};
}

}  // namespace

CommandResult ConfigureGroup(const CommandContext& context) {
  const auto group = ReadConfiguration(context.payload);
  if (!group.has_value()) return CommandResult::Refuse(Code::InvalidPayload, "members of configGroupRequest");
  // Tokens name a room or a group by its id alone, so the two must not share one.
  if (context.realm.store.GetRoom(group->id).has_value())
    return CommandResult::Refuse(Code::InvalidPayload, "a room has this id");
  if (context.claim.id != group->id)
    return CommandResult::Refuse(Code::AuthFailed, "token for another group");
  if (!AreCertificates(group->rootCertificates) || !AreCertificates(group->issuingCertificates))
    return CommandResult::Refuse(Code::InvalidCertificate, "not a certificate");
  if (!context.realm.store.ConfigureGroup(*group))
    return CommandResult::Refuse(Code::KeystoreUnavailable, "the group cannot be kept");
  return {};
}

CommandResult Reencrypt(const CommandContext& context) {
  const auto object = ReadMap(context.payload, "encryptionKey");
  if (!HasMembers(context.payload, {"type", "groupId", "encryptionKey"}) || !object.has_value())
    return CommandResult::Refuse(Code::InvalidPayload, "members of reencryptRequest");
  std::string group;
  const Code found = ReadGroup(context, group);
  if (found != Code::Success) return CommandResult::Refuse(found, "groupId");
  Cert certificate;
  const Code code = ReadEncryptionKey(*object, certificate);
  if (code != Code::Success) return CommandResult::Refuse(code, "encryptionKey");
  if (!CanWrapFor(certificate))
    return CommandResult::Refuse(Code::InvalidCertificate, "the certificate cannot wrap a key");
  if (!context.realm.rooms.Reencrypt(group, certificate))
    return CommandResult::Refuse(Code::KeySwapError, "the keys cannot be wrapped again");
  return {};
}

}  // namespace CryptStand
