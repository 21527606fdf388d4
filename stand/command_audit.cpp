// getAuditLogRequest: the audit log of one group on this key server, as CSV. The one command whose response
// is not JSON.
#include "stand/audit_log.h"
#include "stand/group_command.h"

namespace CryptStand {
namespace {

HttpReply CsvReply() {
  HttpReply reply;
  reply.contentType = "text/csv; charset=utf-8";
  return reply;
}

// The response of this command is not an envelope, so its refusals go into a header.
CommandResult RefuseLog(Code code, std::string reason) {
  CommandResult result = CommandResult::Refuse(code, std::move(reason));
  result.reply = CsvReply();
  result.reply->headers.emplace_back("x-sec-status", std::to_string(static_cast<int>(code)));
  return result;
}

}  // namespace

CommandResult GetAuditLog(const CommandContext& context) {
  if (!HasMembers(context.payload, {"type", "groupId"}))
    return RefuseLog(Code::InvalidPayload, "members of getAuditLogRequest");
  AuditLogSpec spec;
  const Code found = ReadGroup(context, spec.group);
  if (found != Code::Success) return RefuseLog(found, "groupId");
  spec.server = context.server;
  spec.generated = context.realm.settings.GetGeneratedAudit(context.server);
  CommandResult result;
  result.reply = CsvReply();
  result.reply->openBody = OpenAuditLog(context.realm.store, spec);
  return result;
}

}  // namespace CryptStand
