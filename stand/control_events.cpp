// The event log of the control interface: which requests came, what was in them, and what was sent back.
#include "stand/control_events.h"

#include <algorithm>
#include <strings.h>

#include "stand/control_access.h"
#include "stand/control_follow.h"
#include "stand/control_json.h"
#include "stand/required_headers.h"
#include "stand/secrets.h"

namespace CryptStand {
namespace {

/// What a reader gets to see.
struct Secrecy {
  bool isShown = false;
  std::vector<RequiredHeader> requiredHeaders{};  ///< Their values are credentials, whatever their names.

  bool Hides(const std::string& header, const std::string& value) const {
    return !isShown &&
           (IsSecretHeader(header) || IsSecretHeaderValue(header, value) ||
            std::any_of(requiredHeaders.begin(), requiredHeaders.end(), [&](const RequiredHeader& required) {
              return strcasecmp(required.first.c_str(), header.c_str()) == 0;
            }));
  }
};

Val HeadersVal(const RecordedMessage& message, const Secrecy& secrecy) {
  OruGuiBase::Array<Val> headers;
  for (const auto& [name, value] : message.headers) {
    OruGuiBase::Array<Val> header;
    header.Append(PrintableVal(name));
    header.Append(secrecy.Hides(name, value) ? TextVal(kHidden) : PrintableVal(value));
    headers.Append(Val(header));
  }
  return Val(headers);
}

// Hides in the string what is hidden in the decoded form. Bytes that are not UTF-8 are shown as base64, and
// only with secrets: nothing can be found in them.
void AddBody(const RecordedMessage& message, bool showsSecrets, KVMap& object) {
  const auto json = ReadObject(message.body);
  const Val hidden = HideSecrets(json.has_value() ? Val(*json) : Val());
  const bool isText = IsUtf8(message.body);
  const bool isHidden = !showsSecrets && !json.has_value() && (!isText || MayHoldSecret(message.body));
  Val text;
  if (isText) text = TextVal(message.body);
  if (!showsSecrets && json.has_value()) text = TextVal(WriteObject(hidden.AsMap()));
  if (isHidden) text = TextVal(kHidden);
  object.Set("body", text);
  object.Set("bodyBase64", isText || isHidden ? Val() : TextVal(ToBase64(message.body)));
  object.Set("json", showsSecrets && json.has_value() ? Val(*json) : hidden);
}

KVMap MessageObject(const RecordedMessage& message, const Secrecy& secrecy) {
  KVMap object;
  object.Set("headers", HeadersVal(message, secrecy));
  AddBody(message, secrecy.isShown, object);
  object.Set("size", CountVal(message.size));
  object.Set("truncated", Val(message.isTruncated));
  return object;
}

// Each event of a list has some hundred bytes, more with a long target.
constexpr std::int64_t kDefaultLimit = 1000;

EventFilter ReadFilter(ControlCall& call) {
  EventFilter filter;
  filter.after =
      static_cast<std::uint64_t>(call.input.ReadWhole("after", 0, std::numeric_limits<std::int64_t>::max()));
  filter.limit =
      static_cast<std::size_t>(call.input.ReadWhole("limit", 1, EventLog::kCapacity, kDefaultLimit));
  if (call.input.Has("server")) {
    const auto servers = ReadServers(call);
    if (servers.size() == 1) filter.server = servers.front();
  }
  if (call.input.Has("operation")) filter.operation = call.input.ReadString("operation");
  const std::string outcome = call.input.ReadChoice("outcome", {"ok", "refused"});
  if (!outcome.empty()) filter.isGood = outcome == "ok";
  return filter;
}

HttpReply ServeEvents(ControlCall& call) {
  const EventFilter filter = ReadFilter(call);
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  const EventPage page = call.GetRealm().log.Get(filter);
  OruGuiBase::Array<Val> list;
  for (const Event& event : page.events) list.Append(Val(EventObject(event)));
  KVMap reply;
  reply.Set("events", Val(list));
  reply.Set("last", CountVal(page.last));
  reply.Set("dropped", CountVal(page.dropped));
  return JsonReply(reply);
}

HttpReply ServeEvent(ControlCall& call) {
  const bool showsSecrets = call.input.ReadChoice("secrets", {"hidden", "shown"}, "hidden") == "shown";
  if (call.input.GetError().has_value()) return ErrorReply(*call.input.GetError());
  if (showsSecrets && !call.isAuthorized) return TokenMissing();
  const auto number = ReadPathNumber(call);
  const auto event = number.has_value() ? call.GetRealm().log.Find(*number) : std::nullopt;
  if (!event.has_value()) return NotFound("There is no such event, or no longer");
  KVMap object = EventObject(*event);
  if (showsSecrets) {
    object.Set("target", PrintableVal(event->target));
    object.Set("operation", PrintableVal(event->operation));
  }
  const RecordedExchange exchange = event->exchange != nullptr ? *event->exchange : RecordedExchange();
  const Secrecy secrecy = {showsSecrets, call.GetRealm().settings.GetRequiredHeaders()};
  KVMap response = MessageObject(exchange.response, secrecy);
  response.Set("status", Val(std::int64_t{event->status}));
  object.Set("request", Val(MessageObject(exchange.request, secrecy)));
  object.Set("response", Val(response));
  return JsonReply(object);
}

HttpReply ClearEvents(ControlCall& call) {
  call.GetRealm().log.Clear();
  return DoneReply();
}

}  // namespace

KVMap EventObject(const Event& event) {
  KVMap object;
  object.Set("number", CountVal(event.number));
  object.Set("time", TextVal(TimeText(event.time)));
  object.Set("durationMs", Val(event.durationMs));
  object.Set("server", TextVal(ServerName(event.server)));
  object.Set("method", PrintableVal(event.method));
  object.Set("target", PrintableVal(HideInTarget(event.target)));
  // The type that a client names in its command.
  object.Set("operation", MayHoldSecret(event.operation) ? TextVal(kHidden) : PrintableVal(event.operation));
  object.Set("status", Val(std::int64_t{event.status}));
  object.Set("outcome", PrintableVal(event.outcome));
  object.Set("faults", TextsVal(event.faults));
  object.Set("room", event.room.empty() ? Val() : PrintableVal(event.room));
  object.Set("client", event.peer.empty() ? Val() : PrintableVal(event.peer));
  return object;
}

std::vector<ControlRoute> EventRoutes() {
  return {{"GET",
           "/stand/v1/events",
           "the latest requests to all servers, oldest first",
           {{"after", "only events with greater numbers"},
            {"limit", "at most so many, the latest ones; 1000 if it is left out"},
            {"server", "only those of this server"},
            {"operation", "only those of this operation"},
            {"outcome", "ok or refused"}},
           ServeEvents},
          {"DELETE", "/stand/v1/events", "clears the log", {}, ClearEvents},
          {"GET",
           "/stand/v1/events/follow",
           "events and changes of state as server-sent events",
           {{"after", "events with greater numbers first; otherwise only those from now on"}},
           FollowEvents},
          {"GET",
           "/stand/v1/events/NUMBER",
           "one event with its request and response",
           {{"secrets", "shown, with the token; hidden otherwise"}},
           ServeEvent}};
}

}  // namespace CryptStand
