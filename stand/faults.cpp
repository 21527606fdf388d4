#include "stand/faults.h"

#include <utility>

namespace CryptStand {
namespace {

constexpr std::pair<const char*, FaultKind> kNames[] = {
    {"down", FaultKind::Down},
    {"slow", FaultKind::Slow},
    {"status", FaultKind::Status},
    {"wrong-date", FaultKind::WrongDate},
    {"missing-date", FaultKind::MissingDate},
    {"broken-json", FaultKind::BrokenJson},
    {"json-array", FaultKind::JsonArray},
    {"json-number", FaultKind::JsonNumber},
    {"json-deep", FaultKind::JsonDeep},
    {"json-not-utf8", FaultKind::JsonNotUtf8},
    {"json-huge", FaultKind::JsonHuge},
    {"empty-body", FaultKind::EmptyBody},
    {"body", FaultKind::Body},
    {"wrong-type", FaultKind::WrongType},
    {"error-code", FaultKind::ErrorCode},
    {"bad-signature", FaultKind::BadSignature},
    {"bad-base64", FaultKind::BadBase64},
    {"empty-members", FaultKind::EmptyMembers},
    {"other-members", FaultKind::OtherMembers},
    {"wrong-content-type", FaultKind::WrongContentType},
    {"cut", FaultKind::Cut},
    {"sec-status", FaultKind::SecStatus},
    {"json-response", FaultKind::JsonResponse},
    {"empty-csv", FaultKind::EmptyCsv},
};

}  // namespace

std::optional<FaultKind> FindFaultKind(std::string_view name) {
  for (const auto& [known, kind] : kNames) {
    if (name == known) return kind;
  }
  return std::nullopt;
}

void Faults::Set(int server, const Fault& fault) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto& faults = faults_[server];
  std::erase_if(faults, [&fault](const Fault& other) {
    return other.kind == fault.kind && other.operation == fault.operation;
  });
  faults.push_back(fault);
}

void Faults::Clear(int server) {
  const std::lock_guard<std::mutex> lock(mutex_);
  faults_.erase(server);
}

std::vector<Fault> Faults::Take(int server, const std::string& operation) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Fault> taken;
  auto& faults = faults_[server];
  for (auto fault = faults.begin(); fault != faults.end();) {
    const bool strikes = fault->operation.empty() || fault->operation == operation;
    if (strikes) taken.push_back(*fault);
    const bool isLast = strikes && fault->uses == 1;
    if (strikes && fault->uses > 1) --fault->uses;
    fault = isLast ? faults.erase(fault) : fault + 1;
  }
  return taken;
}

}  // namespace CryptStand
