// The names of faults as scripts write them, and the faults that are set at the moment.
#include "stand/faults.h"

#include <utility>

namespace CryptStand {
namespace {

constexpr std::pair<const char*, FaultType> kNames[] = {
    {"down", FaultType::Down},
    {"slow", FaultType::Slow},
    {"status", FaultType::Status},
    {"wrong-date", FaultType::WrongDate},
    {"missing-date", FaultType::MissingDate},
    {"broken-json", FaultType::BrokenJson},
    {"json-array", FaultType::JsonArray},
    {"json-number", FaultType::JsonNumber},
    {"json-deep", FaultType::JsonDeep},
    {"json-not-utf8", FaultType::JsonNotUtf8},
    {"json-huge", FaultType::JsonHuge},
    {"empty-body", FaultType::EmptyBody},
    {"body", FaultType::Body},
    {"wrong-type", FaultType::WrongType},
    {"error-code", FaultType::ErrorCode},
    {"bad-signature", FaultType::BadSignature},
    {"bad-base64", FaultType::BadBase64},
    {"empty-members", FaultType::EmptyMembers},
    {"other-members", FaultType::OtherMembers},
    {"wrong-content-type", FaultType::WrongContentType},
    {"cut", FaultType::Cut},
    {"sec-status", FaultType::SecStatus},
    {"json-response", FaultType::JsonResponse},
    {"empty-csv", FaultType::EmptyCsv},
};

}  // namespace

std::optional<FaultType> FindFaultType(std::string_view name) {
  for (const auto& [known, type] : kNames) {
    if (name == known) return type;
  }
  return std::nullopt;
}

const char* NameOf(FaultType type) {
  for (const auto& [name, known] : kNames) {
    if (type == known) return name;
  }
  return "";
}

// A fault replaces the earlier one of the same type and operation, so that a test can change its parameters.
void Faults::Set(int server, const Fault& fault) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto& faults = faults_[server];
  std::erase_if(faults, [&fault](const Fault& other) {
    return other.type == fault.type && other.operation == fault.operation;
  });
  faults.push_back(fault);
}

void Faults::Clear(int server) {
  const std::lock_guard<std::mutex> lock(mutex_);
  faults_.erase(server);
}

// Counts the use under the same lock: of two requests at the same time, only one gets the last use of a
// fault.
std::vector<Fault> Faults::Take(int server, const std::string& operation) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Fault> taken;
  auto& faults = faults_[server];
  for (auto fault = faults.begin(); fault != faults.end();) {
    const bool applies = fault->operation.empty() || fault->operation == operation;
    if (applies) taken.push_back(*fault);
    const bool isLast = applies && fault->uses == 1;
    if (applies && fault->uses > 1) --fault->uses;
    fault = isLast ? faults.erase(fault) : fault + 1;
  }
  return taken;
}

}  // namespace CryptStand
