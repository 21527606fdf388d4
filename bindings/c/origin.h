#pragma once

#include <optional>
#include <string>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "bindings/c/operation.h"

namespace CryptCliC {

/// The outcome of Decrypt of the class. A value.
struct Verdict {
  bool isSigned = false;
  bool isVerified = false;
  std::string message;  ///< of the failed check of a signer
};

/// An origin, and the reason why it is not a better one. A value.
struct Origin {
  cryptcli_origin value = CRYPTCLI_ORIGIN_UNSIGNED;
  std::string reason;
  bool isOfOtherRoom = false;  ///< another one than the call expects; no policy accepts that
};

/// Judges where content comes from. Proven means: the class verified it, it examined every signer, and each
/// of them signed for the group and the room that the crypt service named for this file. That room has to be
/// `expectedRoom` as well if there is one.
Origin JudgeOrigin(const Verdict& verdict, const Facts& facts,
                   const std::optional<std::string>& expectedRoom);
/// Whether the policy delivers content of the origin. None delivers content of another room than the expected
/// one.
bool IsAccepted(const Origin& origin, cryptcli_policy policy);
/// What a refusal says where the crypt service named another room than the caller expects.
std::string DescribeOtherRoom(const std::string& named, const std::string& expected);

}  // namespace CryptCliC
