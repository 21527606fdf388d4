#include "tests/end_to_end/fault_model.h"

#include <algorithm>

using CryptStand::Fault;
using CryptStand::FaultKind;

namespace TestSupport {
namespace {

constexpr Effect kGood{};

constexpr Effect Refuses(const char* message) {
  return {Visit::Refuses, message, true};
}
constexpr Effect RefusesFrom(const char* beginning) {
  return {Visit::Refuses, beginning, false};
}
constexpr Effect Unreachable(const char* message) {
  return {Visit::Unreachable, message, true};
}
constexpr Effect UnreachableFrom(const char* beginning) {
  return {Visit::Unreachable, beginning, false};
}

constexpr Effect kBadJson = RefusesFrom("Could not parse response: ");
constexpr Effect kNoPayload = Refuses("Invalid payload");
constexpr Effect kJsonType = Refuses("Unexpected content type application/json");
constexpr Effect kCut = RefusesFrom("Got no whole answer from ");
constexpr Effect kNoSignature = Refuses("Could not sign hash: Invalid signedHashes");
constexpr Effect kNoContentKey = Refuses("Could not decrypt document key: Invalid plainData");
constexpr Effect kWrongSignature{Visit::Misleads, "The signature does not fit the signer's certificate",
                                 true};
constexpr Effect kWrongContentKey{Visit::Misleads, "Could not set content key: ", false};
constexpr Effect kEmptyLog{Visit::AnswersLess, "", true};

FaultRow OnProbe(const char* name, Fault fault, Effect effect) {
  fault.operation = "status";
  return {name, fault, true, {effect, effect, effect, effect}};
}
FaultRow OnAll(const char* name, const Fault& fault, Effect effect) {
  return {name, fault, false, {effect, effect, effect, effect}};
}
// The commands with answers in JSON, and the audit log.
FaultRow OnAnswer(const char* name, const Fault& fault, Effect json, Effect log) {
  return {name, fault, false, {json, json, json, log}};
}
// What only signing and decrypting have in their answers.
FaultRow OnResults(const char* name, const Fault& fault, Effect sign, Effect decrypt) {
  return {name, fault, false, {sign, decrypt, kGood, kGood}};
}

std::vector<FaultRow> MakeRows() {
  const std::string refusal = R"({"payload":{"type":"status"}})";
  return {
      OnAll("Down", {.kind = FaultKind::Down}, UnreachableFrom("Could not connect to key server: ")),
      OnAll("Slow", {.kind = FaultKind::Slow, .number = 1}, kGood),
      OnAll("Status", {.kind = FaultKind::Status}, Refuses("HTTP 503")),
      OnProbe("WrongDate", {.kind = FaultKind::WrongDate, .text = "yesterday"},
              Unreachable("Invalid key server time [yesterday]")),
      OnProbe("MissingDate", {.kind = FaultKind::MissingDate}, Unreachable("Invalid key server time []")),
      OnProbe("ProbeStatus", {.kind = FaultKind::Status, .number = 500},
              Unreachable("Could not connect to key server: HTTP 500")),
      OnProbe("ProbeCut", {.kind = FaultKind::Cut},
              UnreachableFrom("Could not connect to key server: Got no whole answer from ")),
      OnAnswer("BrokenJson", {.kind = FaultKind::BrokenJson}, kBadJson, kJsonType),
      OnAll("JsonArray", {.kind = FaultKind::JsonArray}, kNoPayload),
      OnAll("JsonNumber", {.kind = FaultKind::JsonNumber}, kNoPayload),
      OnAnswer("JsonDeep", {.kind = FaultKind::JsonDeep}, kBadJson, kJsonType),
      OnAnswer("JsonNotUtf8", {.kind = FaultKind::JsonNotUtf8}, kBadJson, kJsonType),
      OnAll("JsonHuge", {.kind = FaultKind::JsonHuge, .number = 100000}, kNoPayload),
      OnAnswer("EmptyBody", {.kind = FaultKind::EmptyBody}, kNoPayload, kJsonType),
      OnAll("Body", {.kind = FaultKind::Body, .text = refusal}, Refuses("0 Unknown Error")),
      OnAnswer("WrongType", {.kind = FaultKind::WrongType},
               Refuses("Unexpected response type unexpectedResponse"), kGood),
      OnAll("ErrorCode", {.kind = FaultKind::ErrorCode, .number = 607}, Refuses("607 Key Not Found")),
      OnResults("BadSignature", {.kind = FaultKind::BadSignature}, kWrongSignature, kGood),
      OnResults("BadBase64", {.kind = FaultKind::BadBase64}, Refuses("Could not decode signedHashes"),
                kWrongContentKey),
      OnResults("EmptyMembers", {.kind = FaultKind::EmptyMembers}, kNoSignature, kNoContentKey),
      OnResults("OtherMembers", {.kind = FaultKind::OtherMembers}, kNoSignature, kNoContentKey),
      OnAnswer("WrongContentType", {.kind = FaultKind::WrongContentType}, kGood,
               Refuses("Unexpected content type text/html")),
      OnAll("Cut", {.kind = FaultKind::Cut}, kCut),
      OnAnswer("SecStatus", {.kind = FaultKind::SecStatus, .number = 612}, kGood,
               Refuses("612 Auditlog Error")),
      OnAnswer("JsonResponse", {.kind = FaultKind::JsonResponse},
               Refuses("Unexpected response type getAuditLogResponse"), kJsonType),
      OnAnswer("EmptyCsv", {.kind = FaultKind::EmptyCsv}, kNoPayload, kEmptyLog),
  };
}

using Servers = std::vector<const FaultRow*>;

const Effect& EffectOf(Operation operation, const FaultRow* server) {
  return server == nullptr ? kGood : server->On(operation);
}

void Record(const Effect& effect, Outcome& outcome) {
  outcome.message = effect.message;
  outcome.isWhole = effect.isWhole;
}

// One command: the first server that answers ends it.
Outcome Sweep(Operation operation, const Servers& servers) {
  Outcome outcome;
  for (std::size_t server = 0; server < servers.size(); ++server) {
    const Effect& effect = EffectOf(operation, servers[server]);
    if (effect.visit != Visit::Unreachable) outcome.visits.push_back(static_cast<int>(server));
    outcome.done = effect.visit == Visit::Answers;
    if (!outcome.done) Record(effect, outcome);
    if (outcome.done || effect.visit == Visit::Misleads) break;
  }
  return outcome;
}

// The walk of the audit log: every server is visited, and one log is enough.
Outcome Walk(const Servers& servers) {
  Outcome outcome;
  for (std::size_t server = 0; server < servers.size(); ++server) {
    const Effect& effect = EffectOf(Operation::AuditLog, servers[server]);
    if (effect.visit != Visit::Unreachable) outcome.visits.push_back(static_cast<int>(server));
    if (effect.visit == Visit::Answers) outcome.logs.push_back(static_cast<int>(server));
    const bool isLog = effect.visit == Visit::Answers || effect.visit == Visit::AnswersLess;
    if (!isLog) Record(effect, outcome);
    outcome.done = outcome.done || isLog;
  }
  return outcome;
}

// Without any server that can be reached the room's key is not proven either, and a new one is asked for. The
// crypt service's answer then begins the rotation anew at the server that was taken last, so the one before
// that is the last of all. Otherwise the signature is what fails, and that is told within the failure of the
// file.
Outcome PredictSign(const Servers& servers) {
  Outcome outcome = Sweep(Operation::Sign, servers);
  if (outcome.done) return outcome;
  if (outcome.visits.empty()) {
    Record(EffectOf(Operation::Sign, servers[servers.size() - 2]), outcome);
  } else {
    outcome.message = "Could not sign file: " + outcome.message;
  }
  return outcome;
}

// Behind the content key come two lists, whose sweeps meet the servers that cannot be reached once more.
Outcome PredictDecrypt(const Servers& servers) {
  Outcome outcome = Sweep(Operation::Decrypt, servers);
  if (!outcome.done) return outcome;
  for (const FaultRow* server : servers) {
    const Effect& effect = EffectOf(Operation::Decrypt, server);
    if (effect.visit != Visit::Unreachable) break;
    Record(effect, outcome);
  }
  return outcome;
}

// A named operation tells the message of its failure alone.
Outcome PredictConfigGroup(const Servers& servers) {
  Outcome outcome = Sweep(Operation::ConfigGroup, servers);
  if (outcome.done) Record(kGood, outcome);
  return outcome;
}

}  // namespace

Fault FaultRow::For(const char* command) const {
  Fault set = fault;
  if (!onProbe) set.operation = command;
  return set;
}

const std::vector<FaultRow>& GetFaultRows() {
  static const std::vector<FaultRow> rows = MakeRows();
  return rows;
}

Outcome Predict(Operation operation, const Servers& servers) {
  switch (operation) {
    case Operation::Sign:
      return PredictSign(servers);
    case Operation::Decrypt:
      return PredictDecrypt(servers);
    case Operation::ConfigGroup:
      return PredictConfigGroup(servers);
    case Operation::AuditLog:
      break;
  }
  return Walk(servers);
}

}  // namespace TestSupport
