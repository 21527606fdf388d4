// Judges the origin of content that the class opened, and whether a policy accepts it. files.cpp calls it
// before it delivers content. The judgement uses only the flags of the class and the facts that the operation
// collected; no server is asked here.
#include "bindings/c/origin.h"

#include <algorithm>

namespace CryptCliC {

namespace {

std::string Quote(const std::string& text) {
  return "\"" + text + "\"";
}

// Empty names never match: a signature without a group must not prove a room whose group the service left
// out.
bool IsForNamedRoom(const SignerFacts& signer, const Facts& facts) {
  return !signer.group.empty() && signer.group == facts.serviceGroup && !signer.room.empty() &&
         signer.room == facts.serviceRoom;
}

// Why a signer does not prove the origin. What the caller expects comes first: it is what the caller knows.
std::string DescribeMismatch(const SignerFacts& signer, const Facts& facts,
                             const std::optional<std::string>& expectedRoom) {
  std::string reason = "Signed for room " + Quote(signer.room) + " of group " + Quote(signer.group) + "; ";
  if (expectedRoom && signer.room != *expectedRoom)
    return reason + "room " + Quote(*expectedRoom) + " was expected";
  return reason + "the crypt service named room " + Quote(facts.serviceRoom) + " of group " +
         Quote(facts.serviceGroup);
}

// The class calls content verified as well where the room's key came in the clear: then no signer is
// examined, and nothing names one.
Origin JudgeSigners(const Verdict& verdict, const Facts& facts,
                    const std::optional<std::string>& expectedRoom) {
  if (!verdict.isSigned) return {CRYPTCLI_ORIGIN_UNSIGNED, "The content is not signed"};
  if (!verdict.isVerified) return {CRYPTCLI_ORIGIN_UNPROVEN, verdict.message};
  if (facts.isIncomplete) return {CRYPTCLI_ORIGIN_UNPROVEN, "No memory for what the signature says"};
  if (facts.signers.empty() && !facts.isPlainKey) return {CRYPTCLI_ORIGIN_UNPROVEN, "No signer was examined"};
  if (facts.signers.empty()) {
    return {CRYPTCLI_ORIGIN_SIGNATURE_ONLY,
            "The crypt service handed out the room's key in the clear, so no signer was examined"};
  }
  for (const SignerFacts& signer : facts.signers) {
    const bool isExpected = !expectedRoom || signer.room == *expectedRoom;
    if (isExpected && IsForNamedRoom(signer, facts)) continue;
    return {CRYPTCLI_ORIGIN_OTHER_ROOM, DescribeMismatch(signer, facts, expectedRoom)};
  }
  return {CRYPTCLI_ORIGIN_PROVEN, {}};
}

// The first signer who signed for another room; null if there is none.
const SignerFacts* FindSignerOfOtherRoom(const std::string& room, const Facts& facts) {
  const auto found =
      std::ranges::find_if(facts.signers, [&](const auto& signer) { return signer.room != room; });
  return found != facts.signers.end() ? &*found : nullptr;
}

}  // namespace

std::string DescribeOtherRoom(const std::string& named, const std::string& expected) {
  return "The crypt service named room " + Quote(named) + "; room " + Quote(expected) + " was expected";
}

// A signer that was not examined names no room: then only the crypt service's response does.
Origin JudgeOrigin(const Verdict& verdict, const Facts& facts,
                   const std::optional<std::string>& expectedRoom) {
  Origin origin = JudgeSigners(verdict, facts, expectedRoom);
  if (!expectedRoom) return origin;
  const bool isNamed = facts.serviceRoom == *expectedRoom;
  const SignerFacts* const signer = FindSignerOfOtherRoom(*expectedRoom, facts);
  if (isNamed && signer == nullptr && !facts.isIncomplete) return origin;
  origin.isOfOtherRoom = true;
  // A weaker origin has a reason of its own, which the policy may accept: the room is why it is refused.
  if (origin.value == CRYPTCLI_ORIGIN_OTHER_ROOM) return origin;
  if (!isNamed) origin.reason += ". " + DescribeOtherRoom(facts.serviceRoom, *expectedRoom);
  if (isNamed && signer != nullptr) origin.reason += ". " + DescribeMismatch(*signer, facts, expectedRoom);
  return origin;
}

bool IsAccepted(const Origin& origin, cryptcli_policy policy) {
  if (origin.isOfOtherRoom) return false;
  switch (policy) {
    case CRYPTCLI_ACCEPT_ANYTHING:
      return true;
    case CRYPTCLI_ACCEPT_SIGNATURE_ONLY:
      return origin.value >= CRYPTCLI_ORIGIN_SIGNATURE_ONLY;
    case CRYPTCLI_ACCEPT_ANY_SIGNER:
      return origin.value >= CRYPTCLI_ORIGIN_OTHER_ROOM;
    default:
      return origin.value >= CRYPTCLI_ORIGIN_PROVEN;
  }
}

}  // namespace CryptCliC
