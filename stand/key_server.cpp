// The resources of a key server and the frame of every command: envelope, token, audit log. The commands
// themselves are in command_*.cpp.
#include "stand/key_server.h"

#include "stand/audit_log.h"
#include "stand/required_headers.h"

namespace CryptStand {
namespace {

constexpr Command kCommands[] = {
    {"configGroupRequest", "configGroupResponse", ConfigureGroup},
    {"reencryptRequest", "reencryptResponse", Reencrypt},
    {"getAuditLogRequest", "getAuditLogResponse", GetAuditLog},
    {"generateWrappedKeyRequest", "generateWrappedKeyResponse", GenerateWrappedKey},
    {"modifyWrappedKeyRequest", "modifyWrappedKeyResponse", ModifyWrappedKey},
    {"exportWrappedKeyRequest", "exportWrappedKeyResponse", ExportWrappedKey},
    {"decryptRequest", "decryptResponse", DecryptData},
    {"signRequest", "signResponse", SignHashes},
    {"getKeyRequest", "getKeyResponse", GetKey},
    {"importKeyRequest", "importKeyResponse", ImportKey},
    {"deleteKeyRequest", "deleteKeyResponse", DeleteKey},
};

enum class Resource { Unknown, Status, List, Commands };

Resource FindResource(const HttpRequest& request) {
  const auto path = request.PathSegments();
  if (!path.has_value()) return Resource::Unknown;
  if (*path == std::vector<std::string>{"status"}) return Resource::Status;
  if (*path == std::vector<std::string>{"rest", "json"}) return Resource::Commands;
  const bool isList = path->size() == 1 && (path->front() == "certstore" || path->front() == "truststore");
  return isList ? Resource::List : Resource::Unknown;
}

KVMap StandardHeader() {
  KVMap header;
  header.Set("type", "standardVelmoraHeader");
  header.Set("commandId", "");
  header.Set("sessionId", "");
  header.Set("path", TextsVal({"java-api-instance"}));
  header.Set("protocolVersion", "2.0");
  return header;
}

bool IsStandardHeader(const std::optional<KVMap>& header) {
  return header.has_value() &&
         HasMembers(*header, {"type", "commandId", "sessionId", "path", "protocolVersion"}) &&
         ReadText(*header, "type") == "standardVelmoraHeader" && ReadText(*header, "commandId") &&
         ReadText(*header, "sessionId") &&
         ReadTexts(*header, "path") == std::vector<std::string>{"java-api-instance"} &&
         ReadText(*header, "protocolVersion") == "2.0";
}

HttpReply Envelope(const KVMap& payload) {
  KVMap envelope;
  envelope.Set("header", Val(StandardHeader()));
  envelope.Set("payload", Val(payload));
  return JsonReply(envelope);
}

// "ok", or the code of the refusal with its reason.
std::string OutcomeOf(const CommandResult& result) {
  return result.code == Code::Success ? "ok"
                                      : std::to_string(static_cast<int>(result.code)) + " " + result.reason;
}

Served CommandResponse(const CommandResult& result, const Command* command) {
  if (result.reply.has_value()) return {*result.reply, OutcomeOf(result)};
  KVMap payload;
  if (result.code == Code::Success) {
    payload.Set("type", command->responseType);
    for (const auto& [name, value] : result.members) payload.Set(name, value);
    return {Envelope(payload), "ok"};
  }
  payload.Set("type", "status");
  payload.Set("code", Val(static_cast<std::int64_t>(result.code)));
  return {Envelope(payload), OutcomeOf(result)};
}

Served TextResponse(std::string text) {
  HttpReply reply;
  reply.contentType = "text/plain";
  reply.body = std::move(text);
  return {std::move(reply), "ok"};
}

}  // namespace

const Command* FindCommand(const std::string& requestType) {
  for (const Command& command : kCommands) {
    if (requestType == command.requestType) return &command;
  }
  return nullptr;
}

std::string KeyServer::FindOperation(const HttpRequest& request) {
  switch (FindResource(request)) {
    case Resource::Status:
    case Resource::List:
      return request.PathSegments()->front();
    case Resource::Commands: {
      const auto envelope = ReadObject(request.body);
      const auto payload = envelope.has_value() ? ReadMap(*envelope, "payload") : std::nullopt;
      return payload.has_value() ? ReadText(*payload, "type").value_or("") : "";
    }
    case Resource::Unknown:
      break;
  }
  return {};
}

std::vector<std::string> KeyServer::GetOperations() {
  std::vector<std::string> operations = {"status", "certstore", "truststore"};
  for (const Command& command : kCommands) operations.emplace_back(command.requestType);
  return operations;
}

// Only looks at the token: the command redeems it.
Subject KeyServer::FindSubject(const HttpRequest& request) const {
  const auto tokens = request.HeaderValues("X-SEC-AUTHZTOKEN");
  return {FindOperation(request), tokens.size() == 1 ? realm_.tokens.FindId(tokens.front()) : ""};
}

Served KeyServer::Serve(const HttpRequest& request, const std::string& operation) {
  if (auto refusal = RefuseWithHeaders(request, realm_.settings.GetRequiredHeaders())) return *refusal;
  const Resource resource = FindResource(request);
  if (resource == Resource::Unknown) return RefusedWith(404, kUnknownErrorId, "Unknown path");
  const char* method = resource == Resource::Commands ? "POST" : "GET";
  if (request.method != method) return WrongMethod(method);
  if (resource == Resource::Status) return TextResponse("alive\n");
  return resource == Resource::List ? ServeList(operation) : ServeCommand(request, operation);
}

Served KeyServer::ServeList(const std::string& operation) {
  const bool isTrust = operation == "truststore";
  const auto instead = isTrust ? realm_.settings.GetTrustStoreText() : realm_.settings.GetCertStoreText();
  if (instead.has_value()) return TextResponse(*instead);
  const std::string text =
      isTrust ? realm_.authority.GetTrustStoreText() : realm_.authority.GetCertStoreText();
  return text.empty() ? RefusedWith(500, kUnknownErrorId, "The list cannot be made") : TextResponse(text);
}

Served KeyServer::ServeCommand(const HttpRequest& request, const std::string& operation) {
  if (request.ContentType() != "text/json") {
    return RefusedWith(415, kMalformedErrorId, "Content type is not text/json");
  }
  // Never null after a success: RunCommand refuses an unknown type.
  const Command* command = FindCommand(operation);
  return CommandResponse(RunCommand(request, command), command);
}

// Logs belong to groups: a command for an id that is neither a room nor a group is in no log.
void KeyServer::AddAudit(const TokenClaim& claim, const std::string& outcome) {
  const auto group = realm_.rooms.FindGroup(claim.id);
  if (!group.has_value()) return;
  AuditRecord record;
  record.server = server_;
  record.group = *group;
  record.time = AuditTime(std::time(nullptr) + realm_.settings.GetClockOffset(server_));
  record.operation = claim.operation;
  if (claim.id != *group) record.room = claim.id;
  if (!claim.keyId.empty()) record.key = claim.keyId + "/" + claim.keySubId;
  record.outcome = outcome;
  realm_.store.AddAudit(record);
}

CommandResult KeyServer::RunCommand(const HttpRequest& request, const Command* command) {
  const auto envelope = ReadObject(request.body);
  if (!envelope.has_value() || !HasMembers(*envelope, {"header", "payload"}) ||
      !IsStandardHeader(ReadMap(*envelope, "header"))) {
    return CommandResult::Refuse(Code::InvalidPayload, "envelope");
  }
  if (command == nullptr) return CommandResult::Refuse(Code::InvalidPayload, "unknown type");
  // The token is used up before the command sees the payload, so a refused command needs a new token, too.
  const auto tokens = request.HeaderValues("X-SEC-AUTHZTOKEN");
  if (tokens.size() != 1) return CommandResult::Refuse(Code::AuthFailed, "no token");
  std::string reason;
  const auto claim = realm_.tokens.Redeem(tokens.front(), url_, command->requestType, reason);
  if (!claim.has_value()) return CommandResult::Refuse(Code::AuthFailed, reason);
  const auto payload = ReadMap(*envelope, "payload");
  CommandResult result = command->run({realm_, *payload, *claim, server_});
  // Refused commands are logged too. Without a valid token there is no group whose log could be meant.
  AddAudit(*claim, OutcomeOf(result));
  return result;
}

}  // namespace CryptStand
