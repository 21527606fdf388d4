// Turns messages into status codes; called by operation.cpp for every failure, and by inspect.cpp. A message
// consists of the operation's own words and, after ": ", the reason from the layer below. So the end of a
// message is examined first: a reason of the system or of an exchange is more exact than the words before it.
// Then the table of beginnings decides.
#include "bindings/c/classify.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <initializer_list>
#include <string>

#include "foundation/errorstate.h"

namespace CryptCliC {

namespace {

struct Row {
  std::string_view beginning;
  cryptcli_status code;
};

constexpr std::string_view kInvalidUrl = "Invalid URL";

// Reasons that decide alone, whatever words come before them. The first ones are faults of the file, or of
// another program that writes it; the others of this process or its cryptographic library. None of them is a
// fault of the content, its signer or a server.
constexpr std::array kReasons = {
    Row{"The file changed while it was read", CRYPTCLI_IO},
    Row{"The file cannot be read", CRYPTCLI_IO},
    Row{"The size of a pipe or device is unknown", CRYPTCLI_IO},
    Row{"The size of the file is not available", CRYPTCLI_IO},
    // The class checks no URL that the crypt service names: the transport refuses it.
    Row{kInvalidUrl, CRYPTCLI_SERVER_ERROR},
    Row{"The content is too large for memory", CRYPTCLI_INTERNAL},
    Row{"The content cannot be encrypted", CRYPTCLI_INTERNAL},
    Row{"The content encryption algorithm is not available", CRYPTCLI_INTERNAL},
    Row{"The digest of the content cannot be computed", CRYPTCLI_INTERNAL},
    Row{"The digest cannot be computed", CRYPTCLI_INTERNAL},
    Row{"The digest algorithm is not available", CRYPTCLI_INTERNAL},
    Row{"A signer's digest algorithm is not available", CRYPTCLI_INTERNAL},
    Row{"The hash cannot be computed", CRYPTCLI_INTERNAL},
    Row{"SHA-512 is not available", CRYPTCLI_INTERNAL},
    Row{"The enveloped message cannot be made", CRYPTCLI_INTERNAL},
    Row{"The signed message cannot be made", CRYPTCLI_INTERNAL},
    Row{"The message cannot be encoded", CRYPTCLI_INTERNAL},
};

// Sorted by the sources of the class that report them. The first row that fits counts, so a longer beginning
// comes before one that is a prefix of it.
constexpr std::array kRows = {
    // Reading a protected file.
    Row{"Could not parse encrypted file", CRYPTCLI_NOT_PROTECTED},
    Row{"Invalid content type", CRYPTCLI_NOT_PROTECTED},
    Row{"Could not read encrypted content keys", CRYPTCLI_NOT_PROTECTED},
    Row{"Could not get encrypted content key", CRYPTCLI_NOT_PROTECTED},
    Row{"Could not find matching room key", CRYPTCLI_UNKNOWN_ROOM},
    Row{"Could not decrypt document key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not set recipient key", CRYPTCLI_DAMAGED},
    Row{"Could not set content key", CRYPTCLI_DAMAGED},
    Row{"Could not decrypt file", CRYPTCLI_DAMAGED},
    // After it comes a fault of the message in our own words, or what the cryptographic library reports about
    // a chain.
    Row{"Could not verify signature: A signer's RSA key", CRYPTCLI_ORIGIN_NOT_PROVEN},
    Row{"Could not verify signature: A certificate", CRYPTCLI_ORIGIN_NOT_PROVEN},
    Row{"Could not verify signature: A ", CRYPTCLI_DAMAGED},
    Row{"Could not verify signature: The ", CRYPTCLI_DAMAGED},
    Row{"Could not verify signature", CRYPTCLI_ORIGIN_NOT_PROVEN},
    Row{"Could not read signed content", CRYPTCLI_DAMAGED},
    Row{"Could not read digested content", CRYPTCLI_DAMAGED},
    Row{"Could not read signer information", CRYPTCLI_DAMAGED},
    Row{"Invalid signer certificate", CRYPTCLI_DAMAGED},
    Row{"Could not determine group of signer", CRYPTCLI_DAMAGED},
    Row{"Could not determine signer certificate digest", CRYPTCLI_DAMAGED},
    Row{"Could not find a matching integrity certificate", CRYPTCLI_ORIGIN_NOT_PROVEN},
    Row{"Could not verify integrity certificate", CRYPTCLI_ORIGIN_NOT_PROVEN},
    Row{"Untrusted integrity certificate issuer", CRYPTCLI_ORIGIN_NOT_PROVEN},
    // Writing one.
    Row{"Could not create temporary file", CRYPTCLI_IO},
    Row{"Could not move temporary file", CRYPTCLI_IO},
    Row{"Could not create enveloped data", CRYPTCLI_INTERNAL},
    Row{"Could not add recipient", CRYPTCLI_SERVER_ERROR},
    Row{"Could not encrypt file", CRYPTCLI_IO},
    Row{"Could not sign file", CRYPTCLI_SERVER_ERROR},
    Row{"Could not sign hash", CRYPTCLI_SERVER_ERROR},
    Row{"Could not decode signedHashes", CRYPTCLI_SERVER_ERROR},
    // The crypt service and what it names.
    Row{"Could not get authorization token", CRYPTCLI_UNAUTHORISED},
    Row{"Invalid authorization token", CRYPTCLI_UNAUTHORISED},
    Row{"Could not get room key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not get room certificates", CRYPTCLI_SERVER_ERROR},
    Row{"Could not get integrity certificate", CRYPTCLI_SERVER_ERROR},
    Row{"Could not upload new room key", CRYPTCLI_SERVER_ERROR},
    Row{"Invalid room", CRYPTCLI_SERVER_ERROR},  // also "Invalid room key: ..."
    Row{"Invalid group", CRYPTCLI_SERVER_ERROR},
    Row{"Invalid key server URL", CRYPTCLI_SERVER_ERROR},
    Row{"Invalid timeout value", CRYPTCLI_SERVER_ERROR},
    // Key servers and the room keys that they make.
    Row{"Could not connect to key server", CRYPTCLI_UNREACHABLE},
    Row{"Invalid key server time", CRYPTCLI_SERVER_ERROR},
    Row{"Invalid payload", CRYPTCLI_SERVER_ERROR},
    Row{"Unexpected response type", CRYPTCLI_SERVER_ERROR},
    Row{"Unexpected content type", CRYPTCLI_SERVER_ERROR},
    Row{"Could not parse response", CRYPTCLI_SERVER_ERROR},
    Row{"Could not generate wrapped key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not modify wrapped key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not decrypt room key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not parse integrity certificate", CRYPTCLI_SERVER_ERROR},
    Row{"Could not parse room key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not extract room key content", CRYPTCLI_SERVER_ERROR},
    Row{"Could not parse list of", CRYPTCLI_SERVER_ERROR},
    Row{"No trusted issuing certificates", CRYPTCLI_SERVER_ERROR},
    Row{"Could not verify room key", CRYPTCLI_SERVER_ERROR},
    Row{"Could not add inner signing certificate", CRYPTCLI_INTERNAL},
    Row{"Could not get audit log", CRYPTCLI_SERVER_ERROR},
    Row{"Could not create ", CRYPTCLI_IO},
    Row{"Could not replace ", CRYPTCLI_IO},
    Row{"HTTP ", CRYPTCLI_SERVER_ERROR},
    // The call itself.
    Row{kInvalidUrl, CRYPTCLI_INVALID_ARGUMENT},
    Row{"Invalid base64 hash", CRYPTCLI_INVALID_ARGUMENT},
    Row{"Could not convert object to JSON", CRYPTCLI_INVALID_ARGUMENT},
    Row{"Unknown crypt client method identifier", CRYPTCLI_INVALID_ARGUMENT},
    Row{"No HTTP service", CRYPTCLI_INTERNAL},
    Row{"HTTP service failed", CRYPTCLI_UNREACHABLE},
};

// Errors of key servers, by the number at the start of their text.
constexpr std::uint32_t kAuthFailed = 609;
constexpr std::uint32_t kReadOnly = 618;
constexpr std::uint32_t kTemporarilyUnavailable = 619;

// Whether the reason comes right after the operation's own words. Further on in the message, a name that
// somebody else chose could look like a reason.
bool HasReason(std::string_view message, std::string_view reason) {
  const std::size_t at = message.find(": ");
  return at != std::string_view::npos && message.substr(at + 2).starts_with(reason);
}

std::string_view Reason(std::string_view message) {
  const std::size_t at = message.rfind(": ");
  return at == std::string_view::npos ? message : message.substr(at + 2);
}

// The number of a key server's error, "607 Key Not Found"; 0 for anything else.
std::uint32_t KeyServerCode(std::string_view reason) {
  std::uint32_t code = 0;
  std::size_t digits = 0;
  while (digits < reason.size() && reason[digits] >= '0' && reason[digits] <= '9' && digits < 6) {
    code = code * 10 + static_cast<std::uint32_t>(reason[digits++] - '0');
  }
  return digits >= 3 && digits < reason.size() && reason[digits] == ' ' ? code : 0;
}

cryptcli_status CodeOfErrno(int number) {
  switch (number) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return CRYPTCLI_NO_SPACE;
    case ECANCELED:
      return CRYPTCLI_CANCELLED;
    case ENOMEM:
      return CRYPTCLI_INTERNAL;
    default:
      return CRYPTCLI_IO;
  }
}

// The status for a reason that is the system's message of an errno value; OK for any other reason.
cryptcli_status CodeOfSystemText(std::string_view reason) {
  constexpr std::uint32_t kNumbers = 134;  // one above the highest errno value of Linux, EHWPOISON
  for (std::uint32_t number = 1; number < kNumbers; ++number) {
    if (OruGuiBase::GetErrorMessage(number, 0, 1).View() == reason)
      return CodeOfErrno(static_cast<int>(number));
  }
  return CRYPTCLI_OK;
}

bool StartsWithOneOf(std::string_view text, std::initializer_list<std::string_view> beginnings) {
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [text](std::string_view beginning) { return text.starts_with(beginning); });
}

// The server does not take the client's certificate, or wants one.
bool IsClientRefused(const FailedExchange& exchange) {
  return StartsWithOneOf(exchange.reason,
                         {"A client certificate is required by ", "The client certificate was refused by "});
}

// A certificate, or a file that the options name, is wrong: waiting does not help.
bool IsTrustFailure(const FailedExchange& exchange) {
  return StartsWithOneOf(exchange.reason,
                         {"Could not verify the certificate of ", "Could not use the client certificate for ",
                          "Could not use the CA file for "});
}

bool IsReasonOf(std::string_view message, const FailedExchange& exchange) {
  if (!exchange.happened) return false;
  if (!exchange.hasResponse) return !exchange.reason.empty() && message.ends_with(exchange.reason);
  return message.ends_with("HTTP " + std::to_string(exchange.status));
}

}  // namespace

cryptcli_status ClassifyExchange(const FailedExchange& exchange) {
  if (!exchange.hasResponse) {
    // A response that goes to a file, an audit log, can find the disk full. No network reports these reasons.
    if (CodeOfSystemText(Reason(exchange.reason)) == CRYPTCLI_NO_SPACE) return CRYPTCLI_NO_SPACE;
    if (exchange.failure != CRYPTCLI_UNREACHABLE) return exchange.failure;
    // The caller configured the URL of the crypt service. That of a key server can come from a server too,
    // and is not worth another attempt either way.
    if (exchange.reason.starts_with(kInvalidUrl))
      return exchange.isCryptService ? CRYPTCLI_INVALID_ARGUMENT : CRYPTCLI_SERVER_ERROR;
    if (IsClientRefused(exchange)) return CRYPTCLI_UNAUTHORISED;
    if (exchange.reason.starts_with("Cancelled while waiting for ")) return CRYPTCLI_CANCELLED;
    return exchange.reason.starts_with("Gave up waiting for ") ? CRYPTCLI_TIMEOUT : CRYPTCLI_UNREACHABLE;
  }
  switch (exchange.status) {
    case 401:
    case 403:
    case 407:
      return CRYPTCLI_UNAUTHORISED;
    case 404:
    case 410:
      return exchange.isCryptService ? CRYPTCLI_UNKNOWN_ROOM : CRYPTCLI_SERVER_ERROR;
    case 408:
    case 504:
      return CRYPTCLI_TIMEOUT;
    // Both mean that the new key was made for an earlier state of the room. In a response to any other
    // request they have no meaning.
    case 409:
    case 412:
      return exchange.isKeyUpload ? CRYPTCLI_CONFLICT : CRYPTCLI_SERVER_ERROR;
    default:
      return CRYPTCLI_SERVER_ERROR;
  }
}

cryptcli_status Classify(std::string_view message, const FailedExchange& exchange) {
  if (IsReasonOf(message, exchange)) return ClassifyExchange(exchange);
  const std::string_view reason = Reason(message);
  const std::uint32_t keyServerCode = KeyServerCode(reason);
  if (keyServerCode != 0) return keyServerCode == kAuthFailed ? CRYPTCLI_UNAUTHORISED : CRYPTCLI_SERVER_ERROR;
  const cryptcli_status system = CodeOfSystemText(reason);
  if (system != CRYPTCLI_OK) return system;
  for (const Row& row : kReasons) {
    if (HasReason(message, row.beginning)) return row.code;
  }
  for (const Row& row : kRows) {
    if (message.starts_with(row.beginning)) return row.code;
  }
  return CRYPTCLI_INTERNAL;
}

bool IsRetryable(cryptcli_status code, std::string_view message, const FailedExchange& exchange) {
  switch (code) {
    case CRYPTCLI_UNREACHABLE:
      return !IsReasonOf(message, exchange) || !IsTrustFailure(exchange);
    case CRYPTCLI_TIMEOUT:
    case CRYPTCLI_CONFLICT:
      return true;
    case CRYPTCLI_SERVER_ERROR: {
      const std::uint32_t keyServerCode = KeyServerCode(Reason(message));
      if (keyServerCode != 0) return keyServerCode == kReadOnly || keyServerCode == kTemporarilyUnavailable;
      return IsReasonOf(message, exchange) && (exchange.status >= 500 || exchange.status == 429);
    }
    default:
      return false;
  }
}

}  // namespace CryptCliC
