#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CryptStand {

/// The faults that a test can set.
enum class FaultType {
  Down,              ///< Nothing listens: connections are refused, whatever the operation.
  Slow,              ///< The response comes `number` milliseconds late.
  Status,            ///< HTTP status `number`, 503 when that is 0, and no response.
  WrongDate,         ///< The "Date" header is `text`.
  MissingDate,       ///< There is no "Date" header.
  BrokenJson,        ///< The body is cut JSON.
  JsonArray,         ///< The body is an array.
  JsonNumber,        ///< The body is a number.
  JsonDeep,          ///< The body is 100000 arrays inside each other.
  JsonNotUtf8,       ///< The body is an object with a string that is not UTF-8.
  JsonHuge,          ///< The body is an object with a string of `number` bytes, 8 MiB when that is 0.
  EmptyBody,         ///< The body is empty.
  Body,              ///< The body is `text`.
  WrongType,         ///< The payload's "type" is `text`, "unexpectedResponse" when that is empty.
  ErrorCode,         ///< A refusal: a key server's code `number`, the crypt service's "errorid" `text`.
  BadSignature,      ///< One bit of each signature is wrong.
  BadBase64,         ///< Signatures and content keys are not base64.
  EmptyMembers,      ///< Each member of the response but "type" is the empty value of its type.
  OtherMembers,      ///< Each member of the response but "type" is of another type.
  WrongContentType,  ///< The content type is `text`, "text/html" when that is empty.
  Cut,               ///< The connection ends after `number` bytes of the body, half of it when that is 0.
  SecStatus,         ///< "x-sec-status" is `text`, or `number` when that is empty; the body stays.
  JsonResponse,  ///< An envelope whose payload has "type" alone: `text`, "getAuditLogResponse" when empty.
  EmptyCsv,      ///< The body is empty and the content type "text/csv".
};

/// A fault of one server.
struct Fault {
  FaultType type = FaultType::Status;
  /// The operation that it applies to, by its name in the event log; empty for all.
  std::string operation{};
  /// How many requests it applies to before it is gone; 0 for all.
  int uses = 0;
  int number = 0;
  std::string text{};
};

/// The type of a name such as "slow" or "bad-signature".
std::optional<FaultType> FindFaultType(std::string_view name);
const char* NameOf(FaultType type);

/// The faults that are set, by server. Safe for any number of threads.
class Faults {
 public:
  /// Adds a fault; one of the same type for the same operation is replaced.
  void Set(int server, const Fault& fault);
  void Clear(int server);
  /// The faults that apply to a request; counts it as a use of each.
  std::vector<Fault> Take(int server, const std::string& operation);

 private:
  std::mutex mutex_;
  std::map<int, std::vector<Fault>> faults_;  // guarded by mutex_
};

}  // namespace CryptStand
