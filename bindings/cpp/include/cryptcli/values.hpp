#ifndef CRYPTCLI_VALUES_HPP
#define CRYPTCLI_VALUES_HPP

// Part of <cryptcli/cryptcli.hpp>: what an operation reports, as plain values that own their contents.

#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {

/// How an operation ended. The numbers are those of the C interface and never change. A status that only a
/// newer library knows becomes Internal.
enum class Status : std::int32_t {
  Ok = CRYPTCLI_OK,                              ///< Never in an Error.
  Internal = CRYPTCLI_INTERNAL,                  ///< Allocation failure, or one without a code of its own.
  InvalidArgument = CRYPTCLI_INVALID_ARGUMENT,   ///< An argument is wrong; nothing was done.
  Unreachable = CRYPTCLI_UNREACHABLE,            ///< No connection, or a certificate that is not trusted.
  Timeout = CRYPTCLI_TIMEOUT,                    ///< A server did not respond in time.
  Unauthorised = CRYPTCLI_UNAUTHORISED,          ///< HTTP 401, 403 or 407, a client certificate, or no token.
  UnknownRoom = CRYPTCLI_UNKNOWN_ROOM,           ///< The crypt service does not know the room or its key.
  KeyRefused = CRYPTCLI_KEY_REFUSED,             ///< The crypt service keeps the room's key back at present.
  NotProtected = CRYPTCLI_NOT_PROTECTED,         ///< The source is not a protected file.
  Damaged = CRYPTCLI_DAMAGED,                    ///< Content or signature were changed.
  OriginNotProven = CRYPTCLI_ORIGIN_NOT_PROVEN,  ///< Intact, but the policy does not accept the origin.
  NoSpace = CRYPTCLI_NO_SPACE,                   ///< The file system is full, or a limit is reached.
  Io = CRYPTCLI_IO,                              ///< A file cannot be read or written.
  Conflict = CRYPTCLI_CONFLICT,                  ///< Others kept making the room's first key.
  Cancelled = CRYPTCLI_CANCELLED,                ///< By the stop token or the progress callable.
  ServerError = CRYPTCLI_SERVER_ERROR            ///< A server reported an error, or something invalid.
};

/// What is known about who signed the content of a protected file, from the weakest to the strongest: `<`
/// compares them.
enum class Origin : std::int32_t {
  Unsigned = CRYPTCLI_ORIGIN_UNSIGNED,             ///< There is no signature.
  Unproven = CRYPTCLI_ORIGIN_UNPROVEN,             ///< The signature holds; a check of the signer failed.
  SignatureOnly = CRYPTCLI_ORIGIN_SIGNATURE_ONLY,  ///< The signature holds; anybody may have made it.
  OtherRoom = CRYPTCLI_ORIGIN_OTHER_ROOM,          ///< Signer and chain are valid, for another room or group.
  Proven = CRYPTCLI_ORIGIN_PROVEN                  ///< Signer and chain are valid, for this room and group.
};

/// The weakest origin whose content is delivered. Each accepts what those before it accept.
enum class Policy : std::int32_t {
  Proven = CRYPTCLI_ACCEPT_PROVEN,                 ///< The default.
  AnySigner = CRYPTCLI_ACCEPT_ANY_SIGNER,          ///< Also Origin::OtherRoom.
  SignatureOnly = CRYPTCLI_ACCEPT_SIGNATURE_ONLY,  ///< Also Origin::SignatureOnly.
  Anything = CRYPTCLI_ACCEPT_ANYTHING              ///< Also unproven and unsigned content.
};

/// The name of a status, such as "origin_not_proven"; "internal" for an unknown one.
[[nodiscard]] inline std::string_view ToString(Status status) {
  return cryptcli_status_name(static_cast<cryptcli_status>(status));
}

/// The name of an origin, such as "signature_only"; "unproven" for an unknown one.
[[nodiscard]] inline std::string_view ToString(Origin origin) {
  return cryptcli_origin_name(static_cast<cryptcli_origin>(origin));
}

/// The name of a policy, such as "any_signer"; "proven", the strictest, for an unknown one.
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
  /// Set by Decrypt, Verify and Rekey. Encrypt examines no origin: std::nullopt, which compares as weaker
  /// than every origin.
  std::optional<Origin> origin{};
  /// Why the origin is not proven; empty if it is.
  std::string reason{};
  /// What the signature names; empty if no signer was checked. Of several signers, the first one's.
  std::string signedGroup{};
  std::string signedRoom{};
  std::string signedRoomUrl{};
  /// The group and the room that the crypt service named for this file.
  std::string serviceGroup{};
  std::string serviceRoom{};
  /// Subjects of the signer's certificate chain, from the signer up.
  std::vector<std::string> chain{};
  /// The crypt service gave the room's private key to the client.
  bool isPlainKey = false;
  /// Bytes of the content: read by Encrypt, delivered by Decrypt, checked by Verify, protected by Rekey.
  std::uint64_t bytes = 0;
  /// All of this as a JSON object; cryptcli_report_json in <cryptcli/cryptcli.h> lists its members.
  std::string json{};
};

/// A key server that failed.
struct Attempt {
  std::string server{};  ///< Scheme, host and port of its URL.
  Status code = Status::Internal;
  std::string message{};
};

/// Why an operation failed.
///
///     if (!opened) {
///       std::cerr << cryptcli::ToString(opened.error().code) << ": " << opened.error().message << "\n";
///       if (opened.error().retryable) TryAgainLater();
///     }
struct Error {
  Status code = Status::Internal;
  /// For people, in UTF-8.
  std::string message{};
  /// The same call may succeed later although nobody changes anything.
  bool retryable = false;
  /// HTTP status and URL, without its query, of the last exchange that failed; 0 and empty if none did.
  std::uint32_t httpStatus = 0;
  std::string url{};
  /// The key servers that failed, in the order in which they were asked.
  std::vector<Attempt> attempts{};
  /// With Status::OriginNotProven: the report about the content that was refused.
  std::optional<Report> report{};
  /// All of this, except for the report, as a JSON object.
  std::string json{};
};

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_VALUES_HPP
