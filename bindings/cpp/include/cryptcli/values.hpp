#ifndef CRYPTCLI_VALUES_HPP
#define CRYPTCLI_VALUES_HPP

// Part of <cryptcli/cryptcli.hpp>: what an operation reports, as plain values that own all they hold.

#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {

/// How an operation ended. The numbers are those of the C interface and never change. A newer library may
/// know more of them: these arrive as Internal.
enum class Status : std::int32_t {
  Ok = CRYPTCLI_OK,                              ///< Never in an Error.
  Internal = CRYPTCLI_INTERNAL,                  ///< Anything without a code of its own; no memory.
  InvalidArgument = CRYPTCLI_INVALID_ARGUMENT,   ///< The call is wrong; nothing was tried.
  Unreachable = CRYPTCLI_UNREACHABLE,            ///< A server could not be reached, or is not trusted.
  Timeout = CRYPTCLI_TIMEOUT,                    ///< A server did not respond in time.
  Unauthorised = CRYPTCLI_UNAUTHORISED,          ///< A server refused the caller (401, 403).
  UnknownRoom = CRYPTCLI_UNKNOWN_ROOM,           ///< No such room, or no key of it for this file.
  KeyRefused = CRYPTCLI_KEY_REFUSED,             ///< The crypt service refuses the room's key for now.
  NotProtected = CRYPTCLI_NOT_PROTECTED,         ///< The source is no protected file.
  Damaged = CRYPTCLI_DAMAGED,                    ///< Content or signature is not what was protected.
  OriginNotProven = CRYPTCLI_ORIGIN_NOT_PROVEN,  ///< Whole, but weaker than the policy accepts.
  NoSpace = CRYPTCLI_NO_SPACE,                   ///< The file system is full, or a limit is reached.
  Io = CRYPTCLI_IO,                              ///< A file cannot be read or written.
  Conflict = CRYPTCLI_CONFLICT,                  ///< Others made the room's first key again and again.
  Cancelled = CRYPTCLI_CANCELLED,      ///< The caller's stop token or progress callable asked for it.
  ServerError = CRYPTCLI_SERVER_ERROR  ///< A server's response is an error or is wrong.
};

/// What is known about where the content of a protected file comes from. A later one is stronger, so that
/// `<` compares them.
enum class Origin : std::int32_t {
  Unsigned = CRYPTCLI_ORIGIN_UNSIGNED,             ///< No signature.
  Unproven = CRYPTCLI_ORIGIN_UNPROVEN,             ///< The signature holds; a check of the signer failed.
  SignatureOnly = CRYPTCLI_ORIGIN_SIGNATURE_ONLY,  ///< The signature holds; anybody can have made it.
  OtherRoom = CRYPTCLI_ORIGIN_OTHER_ROOM,          ///< Signer and chain hold, for another room or group.
  Proven = CRYPTCLI_ORIGIN_PROVEN                  ///< Signer and chain hold, for this room and group.
};

/// The weakest origin whose content is delivered. Each accepts what those before it accept.
enum class Policy : std::int32_t {
  Proven = CRYPTCLI_ACCEPT_PROVEN,                 ///< Origin::Proven alone: the default.
  AnySigner = CRYPTCLI_ACCEPT_ANY_SIGNER,          ///< And Origin::OtherRoom.
  SignatureOnly = CRYPTCLI_ACCEPT_SIGNATURE_ONLY,  ///< And Origin::SignatureOnly.
  Anything = CRYPTCLI_ACCEPT_ANYTHING              ///< And content that is unproven or not signed.
};

/// "origin_not_proven"; "internal" for a number that is none of them.
[[nodiscard]] inline std::string_view ToString(Status status) {
  return cryptcli_status_name(static_cast<cryptcli_status>(status));
}

/// "signature_only"; "unproven" for a number that is none of them.
[[nodiscard]] inline std::string_view ToString(Origin origin) {
  return cryptcli_origin_name(static_cast<cryptcli_origin>(origin));
}

/// "any_signer"; "proven", the strictest, for a number that is none of them.
[[nodiscard]] inline std::string_view ToString(Policy policy) {
  switch (policy) {
    case Policy::AnySigner:
      return "any_signer";
    case Policy::SignatureOnly:
      return "signature_only";
    case Policy::Anything:
      return "anything";
    case Policy::Proven:
      break;
  }
  return "proven";
}

/// What an operation found out. Strings are UTF-8 and empty where nothing is known.
struct Report {
  /// Set by Decrypt, Verify and Rekey; Encrypt examines no origin. None compares as weaker than any.
  std::optional<Origin> origin{};
  /// Why the origin is not proven; empty when it is.
  std::string reason{};
  /// What the signature names; empty when no signer was examined.
  std::string signedGroup{};
  std::string signedRoom{};
  std::string signedRoomUrl{};
  /// What the crypt service named for this file.
  std::string serviceGroup{};
  std::string serviceRoom{};
  /// Subjects of the signer's certificate chain, from the signer up.
  std::vector<std::string> chain{};
  /// The crypt service handed out the room's private key in the clear.
  bool isPlainKey = false;
  /// Bytes of the content: read by Encrypt, delivered by Decrypt, checked by Verify.
  std::uint64_t bytes = 0;
  /// All of this as a JSON object.
  std::string json{};
};

/// One key server that was asked in vain.
struct Attempt {
  std::string server{};  ///< Scheme, host and port of its URL.
  Status code = Status::Internal;
  std::string message{};
};

/// Why an operation failed.
///
///     if (!opened && opened.error().retryable) RetryLater();
///     if (!opened) Log("{}: {}", cryptcli::ToString(opened.error().code), opened.error().message);
struct Error {
  Status code = Status::Internal;
  /// For people, in UTF-8.
  std::string message{};
  /// The same call may succeed later without anything being changed.
  bool retryable = false;
  /// HTTP status and URL (without its query) of the exchange that failed last; 0 and empty where none did.
  std::uint32_t httpStatus = 0;
  std::string url{};
  /// The key servers that were asked in vain, in their order.
  std::vector<Attempt> attempts{};
  /// With Status::OriginNotProven: what is known about the content that was refused.
  std::optional<Report> report{};
  /// All of this but the report as a JSON object.
  std::string json{};
};

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_VALUES_HPP
