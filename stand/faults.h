#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <span>
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
  Cut,        ///< The connection ends after `number` bytes of the body, half of its first MiB when that is 0.
  SecStatus,  ///< "x-sec-status" is `text`, or `number` when that is empty; the body stays.
  JsonResponse,  ///< An envelope whose payload has "type" alone: `text`, "getAuditLogResponse" when empty.
  EmptyCsv,      ///< The body is empty and the content type "text/csv".
  Trickle,       ///< Each byte of the body comes after `number` milliseconds, 10 when that is 0.
  Close,         ///< The connection ends after the response, whose headers do not say so.
  Drop,          ///< The connection ends instead of a response; the request is not carried out.
  ServerCertificate,  ///< TLS with a certificate that is `text`: "expired", "wrong-host" or "self-signed".
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
  /// How likely it applies to a request, from 0 to 1. A request that it spares does not count as a use.
  double probability = 1;
};

/// A fault that is set.
struct ActiveFault {
  std::uint64_t id = 0;  ///< Not used again in this process.
  int server = 0;
  Fault fault{};
  std::uint64_t taken = 0;  ///< How often it was applied.

  /// Requests before it is gone; 0 for no limit.
  int GetUsesLeft() const { return fault.uses == 0 ? 0 : fault.uses - static_cast<int>(taken); }
};

/// The documentation of a type of fault.
struct FaultTypeInfo {
  FaultType type;
  const char* name;
  const char* does;
  const char* number;  ///< Meaning of the number; null if it has none.
  const char* text;    ///< The same for the text.
};

/// All types, in the order of FaultType.
std::span<const FaultTypeInfo> GetFaultTypes();
/// The type of a name such as "slow" or "bad-signature".
std::optional<FaultType> FindFaultType(std::string_view name);
const char* NameOf(FaultType type);

/// The faults that are set, by server. Safe for any number of threads.
class Faults {
 public:
  Faults();

  /// Adds a fault; one of the same type for the same operation is replaced. Returns its identifier.
  std::uint64_t Set(int server, const Fault& fault);
  void Clear(int server);
  std::optional<ActiveFault> Remove(std::uint64_t id);
  /// Clears all faults and starts the generator again, with the seed of Seed() if there is one.
  void Reset();
  /// The faults that apply to a request; counts it as a use of each.
  std::vector<Fault> Take(int server, const std::string& operation);
  /// How often faults of this server were cleared. A delay in progress watches it, so that it ends early.
  std::uint64_t CountClears(int server) const;
  /// Waits as a slow fault of the server says, until it is over, the server's faults are cleared, or `pause`,
  /// which waits for so many milliseconds, returns false.
  void Delay(int server, const Fault& fault, const std::function<bool(int milliseconds)>& pause) const;
  /// In the order in which they were set.
  std::vector<ActiveFault> List() const;

  /// Starts the generator behind probabilities with a seed: the same requests in the same order then meet the
  /// same faults.
  void Seed(std::uint64_t seed);
  /// The same until Reset(), which brings back the seed before.
  void SeedUntilReset(std::uint64_t seed);
  std::optional<std::uint64_t> GetSeed() const;

 private:
  bool Hits(const Fault& fault);

  mutable std::mutex mutex_;
  // All guarded by mutex_.
  std::vector<ActiveFault> faults_;
  std::uint64_t lastId_ = 0;
  std::map<int, std::uint64_t> clears_;
  std::uint64_t resets_ = 0;
  std::optional<std::uint64_t> startSeed_;
  std::optional<std::uint64_t> seed_;
  std::mt19937_64 generator_;
};

}  // namespace CryptStand
