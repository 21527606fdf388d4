// The table of faults and the rules of the sweep, written a second time and without the client, so that
// two_faults_test.cpp can compare the client with them.
#include "tests/end_to_end/fault_model.h"

#include <algorithm>

using CryptStand::Fault;
using CryptStand::FaultType;

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
constexpr Effect kCut = RefusesFrom("Got no complete response from ");
constexpr Effect kNoSignature = Refuses("Could not sign hash: Invalid signedHashes");
constexpr Effect kNoContentKey = Refuses("Could not decrypt document key: Invalid plainData");
constexpr Effect kWrongSignature{Visit::Misleads, "The signature does not fit the signer's certificate",
                                 true};
constexpr Effect kWrongContentKey{Visit::Misleads, "Could not set content key: ", false};
constexpr Effect kEmptyLog{Visit::RespondsWithLess, "", true};

FaultRow OnProbe(const char* name, Fault fault, Effect effect) {
  fault.operation = "status";
  return {name, fault, true, {effect, effect, effect, effect}};
}
FaultRow OnAll(const char* name, const Fault& fault, Effect effect) {
  return {name, fault, false, {effect, effect, effect, effect}};
}
// The commands whose responses are JSON, and the audit log.
FaultRow OnResponse(const char* name, const Fault& fault, Effect json, Effect log) {
  return {name, fault, false, {json, json, json, log}};
}
// What only signing and decrypting have in their responses.
FaultRow OnResults(const char* name, const Fault& fault, Effect sign, Effect decrypt) {
  return {name, fault, false, {sign, decrypt, kGood, kGood}};
}

std::vector<FaultRow> MakeRows() {
  const std::string refusal = R"({"payload":{"type":"status"}})";
  return {
      OnAll("Down", {.type = FaultType::Down}, UnreachableFrom("Could not connect to key server: ")),
      OnAll("Slow", {.type = FaultType::Slow, .number = 1}, kGood),
      OnAll("Status", {.type = FaultType::Status}, Refuses("HTTP 503")),
      OnProbe("WrongDate", {.type = FaultType::WrongDate, .text = "yesterday"},
              Unreachable("Invalid key server time [yesterday]")),
      OnProbe("MissingDate", {.type = FaultType::MissingDate}, Unreachable("Invalid key server time []")),
      OnProbe("ProbeStatus", {.type = FaultType::Status, .number = 500},
              Unreachable("Could not connect to key server: HTTP 500")),
      OnProbe("ProbeCut", {.type = FaultType::Cut},
              UnreachableFrom("Could not connect to key server: Got no complete response from ")),
      OnResponse("BrokenJson", {.type = FaultType::BrokenJson}, kBadJson, kJsonType),
      OnAll("JsonArray", {.type = FaultType::JsonArray}, kNoPayload),
      OnAll("JsonNumber", {.type = FaultType::JsonNumber}, kNoPayload),
      OnResponse("JsonDeep", {.type = FaultType::JsonDeep}, kBadJson, kJsonType),
      OnResponse("JsonNotUtf8", {.type = FaultType::JsonNotUtf8}, kBadJson, kJsonType),
      OnAll("JsonHuge", {.type = FaultType::JsonHuge, .number = 100000}, kNoPayload),
      OnResponse("EmptyBody", {.type = FaultType::EmptyBody}, kNoPayload, kJsonType),
      OnAll("Body", {.type = FaultType::Body, .text = refusal}, Refuses("0 Unknown Error")),
      OnResponse("WrongType", {.type = FaultType::WrongType},
                 Refuses("Unexpected response type unexpectedResponse"), kGood),
      OnAll("ErrorCode", {.type = FaultType::ErrorCode, .number = 607}, Refuses("607 Key Not Found")),
      OnResults("BadSignature", {.type = FaultType::BadSignature}, kWrongSignature, kGood),
      OnResults("BadBase64", {.type = FaultType::BadBase64}, Refuses("Could not decode signedHashes"),
                kWrongContentKey),
      OnResults("EmptyMembers", {.type = FaultType::EmptyMembers}, kNoSignature, kNoContentKey),
      OnResults("OtherMembers", {.type = FaultType::OtherMembers}, kNoSignature, kNoContentKey),
      OnResponse("WrongContentType", {.type = FaultType::WrongContentType}, kGood,
                 Refuses("Unexpected content type text/html")),
      OnAll("Cut", {.type = FaultType::Cut}, kCut),
      OnResponse("SecStatus", {.type = FaultType::SecStatus, .number = 612}, kGood,
                 Refuses("612 Auditlog Error")),
      OnResponse("JsonResponse", {.type = FaultType::JsonResponse},
                 Refuses("Unexpected response type getAuditLogResponse"), kJsonType),
      OnResponse("EmptyCsv", {.type = FaultType::EmptyCsv}, kNoPayload, kEmptyLog),
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

// One command: the first server that responds ends it.
Outcome Sweep(Operation operation, const Servers& servers) {
  Outcome outcome;
  for (std::size_t server = 0; server < servers.size(); ++server) {
    const Effect& effect = EffectOf(operation, servers[server]);
    if (effect.visit != Visit::Unreachable) outcome.visits.push_back(static_cast<int>(server));
    outcome.done = effect.visit == Visit::Responds;
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
    if (effect.visit == Visit::Responds) outcome.logs.push_back(static_cast<int>(server));
    const bool isLog = effect.visit == Visit::Responds || effect.visit == Visit::RespondsWithLess;
    if (!isLog) Record(effect, outcome);
    outcome.done = outcome.done || isLog;
  }
  return outcome;
}

// Without any server that can be reached the room's key is not proven either, and a new one is requested. The
// crypt service's response then begins the rotation again at the server that was taken last, so the one
// before that is the last of all. Otherwise the signature is what fails, and that is reported within the
// failure of the file.
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

// After the content key, two lists are fetched. Their sweeps meet the servers that cannot be reached again.
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

// A named operation reports the message of its failure alone.
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
