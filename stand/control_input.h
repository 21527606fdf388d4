#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "stand/wire.h"

namespace CryptStand {

/// Why the control interface refuses a request.
struct ControlError {
  int status = 400;
  const char* code = "invalid_argument";
  std::string message{};
  std::string member{};                ///< The wrong member; empty for none.
  std::vector<std::string> allowed{};  ///< What it may be instead; empty if that is not a list.
};

/// {"error":{"code","message","member","allowed"}}; members that do not apply are left out.
HttpReply ErrorReply(const ControlError& error);

/// The members of a control request: of its body, or of its query, where each value is a string. Each reader
/// returns the fallback for a member that is missing. A wrong member is recorded, the first one only, so that
/// a handler reads all members and then asks once whether one was wrong.
class ControlInput {
 public:
  ControlInput() = default;
  ControlInput(KVMap members, bool isQuery) : members_(std::move(members)), isQuery_(isQuery) {}

  bool Has(const char* name) const { return members_.Contains(name); }
  /// Of any type; nil if it is missing.
  Val Get(const char* name) const { return members_.Get(name); }
  const KVMap& GetMembers() const { return members_; }

  std::string ReadString(const char* name, std::string fallback = "");
  bool ReadFlag(const char* name, bool fallback);
  std::int64_t ReadWhole(const char* name, std::int64_t least, std::int64_t most, std::int64_t fallback = 0);
  double ReadFraction(const char* name, double fallback);
  /// One of some words.
  std::string ReadChoice(const char* name, const std::vector<std::string>& allowed,
                         std::string fallback = "");
  /// A string, or no value for null.
  std::optional<std::string> ReadStringOrNull(const char* name);
  /// An array of strings, or no value for null.
  std::optional<std::vector<std::string>> ReadStringsOrNull(const char* name);

  void Refuse(const char* member, std::string message, std::vector<std::string> allowed = {});
  const std::optional<ControlError>& GetError() const { return error_; }

 private:
  KVMap members_;
  bool isQuery_ = false;
  std::optional<ControlError> error_;
};

/// The largest number of most members.
inline constexpr std::int64_t kMaxCount = std::numeric_limits<std::int32_t>::max();

}  // namespace CryptStand
