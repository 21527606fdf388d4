// The faults that are set at the moment, and which of them apply to a request. Their names and meanings, as
// scripts write them and as the control interface documents them, are in one table.
#include "stand/faults.h"

#include <algorithm>
#include <utility>

namespace CryptStand {
namespace {

constexpr FaultTypeInfo kTypes[] = {
    {FaultType::Down, "down", "nothing listens: connections are refused", nullptr, nullptr},
    {FaultType::Slow, "slow", "the response comes late", "milliseconds; 0 for 1000", nullptr},
    {FaultType::Status, "status", "an HTTP status and no response", "status; 0 for 503", nullptr},
    {FaultType::WrongDate, "wrong-date", "another \"Date\" header", nullptr, "the header"},
    {FaultType::MissingDate, "missing-date", "no \"Date\" header", nullptr, nullptr},
    {FaultType::BrokenJson, "broken-json", "the body is cut JSON", nullptr, nullptr},
    {FaultType::JsonArray, "json-array", "the body is a JSON array", nullptr, nullptr},
    {FaultType::JsonNumber, "json-number", "the body is a JSON number", nullptr, nullptr},
    {FaultType::JsonDeep, "json-deep", "the body is 100000 arrays inside each other", nullptr, nullptr},
    {FaultType::JsonNotUtf8, "json-not-utf8", "the body is an object with a string that is not UTF-8",
     nullptr, nullptr},
    {FaultType::JsonHuge, "json-huge", "the body is an object with a long string",
     "bytes; 0 for 8 MiB, at most 64 MiB", nullptr},
    {FaultType::EmptyBody, "empty-body", "the body is empty", nullptr, nullptr},
    {FaultType::Body, "body", "another body", nullptr, "the body"},
    {FaultType::WrongType, "wrong-type", "another \"type\" of the payload", nullptr,
     "the type; empty for \"unexpectedResponse\""},
    {FaultType::ErrorCode, "error-code", "a refusal", "code of a key server", "errorid of the crypt service"},
    {FaultType::BadSignature, "bad-signature", "one bit of each signature is wrong", nullptr, nullptr},
    {FaultType::BadBase64, "bad-base64", "signatures and content keys are not base64", nullptr, nullptr},
    {FaultType::EmptyMembers, "empty-members", "each member but \"type\" is the empty value of its type",
     nullptr, nullptr},
    {FaultType::OtherMembers, "other-members", "each member but \"type\" is of another type", nullptr,
     nullptr},
    {FaultType::WrongContentType, "wrong-content-type", "another content type", nullptr,
     "the type; empty for \"text/html\""},
    {FaultType::Cut, "cut", "the connection ends inside the body",
     "bytes of the body; 0 for half of its first MiB", nullptr},
    {FaultType::SecStatus, "sec-status", "a header \"x-sec-status\"", "the value if there is no text",
     "the value"},
    {FaultType::JsonResponse, "json-response", "an envelope whose payload has \"type\" alone", nullptr,
     "the type; empty for \"getAuditLogResponse\""},
    {FaultType::EmptyCsv, "empty-csv", "an empty body of the type \"text/csv\"", nullptr, nullptr},
    {FaultType::Trickle, "trickle", "the body comes byte by byte", "milliseconds for each byte; 0 for 10",
     nullptr},
    {FaultType::Close, "close", "the connection ends after the response, which says nothing of it", nullptr,
     nullptr},
    {FaultType::Drop, "drop", "the connection ends without a response", nullptr, nullptr},
    {FaultType::ServerCertificate, "server-certificate", "TLS with another certificate", nullptr,
     "\"expired\", \"wrong-host\" or \"self-signed\"; empty for \"expired\""},
};

// Whether it applies when a connection is made.
bool IsOfConnections(FaultType type) {
  return type == FaultType::Down || type == FaultType::ServerCertificate;
}

}  // namespace

std::span<const FaultTypeInfo> GetFaultTypes() {
  return kTypes;
}

std::optional<FaultType> FindFaultType(std::string_view name) {
  for (const FaultTypeInfo& known : kTypes) {
    if (name == known.name) return known.type;
  }
  return std::nullopt;
}

const char* NameOf(FaultType type) {
  for (const FaultTypeInfo& known : kTypes) {
    if (type == known.type) return known.name;
  }
  return "";
}

Faults::Faults() : generator_(std::random_device()()) {}

// A fault replaces the earlier one of the same type and operation, so that a test can change its parameters.
std::uint64_t Faults::Set(int server, const Fault& fault) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::erase_if(faults_, [&](const ActiveFault& other) {
    return other.server == server && other.fault.type == fault.type &&
           other.fault.operation == fault.operation;
  });
  faults_.push_back({++lastId_, server, fault});
  return lastId_;
}

void Faults::Clear(int server) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::erase_if(faults_, [server](const ActiveFault& fault) { return fault.server == server; });
  ++clears_[server];
}

std::optional<ActiveFault> Faults::Remove(std::uint64_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found =
      std::find_if(faults_.begin(), faults_.end(), [id](const ActiveFault& fault) { return fault.id == id; });
  if (found == faults_.end()) return std::nullopt;
  const ActiveFault removed = *found;
  faults_.erase(found);
  ++clears_[removed.server];
  return removed;
}

void Faults::Reset() {
  const std::lock_guard<std::mutex> lock(mutex_);
  faults_.clear();
  ++resets_;
  seed_ = startSeed_;
  generator_.seed(seed_.has_value() ? *seed_ : std::random_device()());
}

// The 53 upper bits as a fraction. A distribution of the standard library may differ between versions, and a
// seed has to mean the same everywhere.
bool Faults::Hits(const Fault& fault) {
  if (fault.probability >= 1) return true;
  constexpr double kScale = 1.0 / 9007199254740992.0;  // 2 to the power of -53
  return static_cast<double>(generator_() >> 11U) * kScale < fault.probability;
}

// Counts the use under the same lock: of two requests at the same time, only one gets the last use of a
// fault. Faults of connections come before any request: one on an earlier connection is served.
std::vector<Fault> Faults::Take(int server, const std::string& operation) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Fault> taken;
  for (ActiveFault& active : faults_) {
    const Fault& fault = active.fault;
    const bool concerns = active.server == server && !IsOfConnections(fault.type) &&
                          (fault.operation.empty() || fault.operation == operation);
    if (!concerns || !Hits(fault)) continue;
    ++active.taken;
    taken.push_back(fault);
  }
  std::erase_if(faults_,
                [](const ActiveFault& active) { return active.fault.uses > 0 && active.GetUsesLeft() <= 0; });
  return taken;
}

void Faults::Delay(int server, const Fault& fault, const std::function<bool(int milliseconds)>& pause) const {
  // How soon a delay ends once its fault is cleared: a test that clears it hardly waits.
  constexpr int kStepMs = 50;
  constexpr int kUsualMs = 1000;
  const std::uint64_t clears = CountClears(server);
  int left = fault.number > 0 ? fault.number : kUsualMs;
  for (; left > 0 && CountClears(server) == clears; left -= kStepMs) {
    if (!pause(std::min(left, kStepMs))) return;
  }
}

std::uint64_t Faults::CountClears(int server) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = clears_.find(server);
  return resets_ + (found != clears_.end() ? found->second : 0);
}

std::vector<ActiveFault> Faults::List() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return faults_;
}

void Faults::Seed(std::uint64_t seed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  startSeed_ = seed_ = seed;
  generator_.seed(seed);
}

void Faults::SeedUntilReset(std::uint64_t seed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  seed_ = seed;
  generator_.seed(seed);
}

std::optional<std::uint64_t> Faults::GetSeed() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return seed_;
}

}  // namespace CryptStand
