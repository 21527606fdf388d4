// Builds the wrong replies that faults ask for: some replace the server's own reply, others damage it. Front
// calls both functions for every request.
#include "stand/fault_reply.h"

#include <algorithm>

#include "stand/wire.h"

namespace CryptStand {
namespace {

using OruGuiBase::Array;
using OruGuiBase::ValType;

constexpr std::size_t kMeasured = 1U << 20U;  // enough to cut a body in the middle of something
constexpr std::size_t kDepth = 100000;        // would overflow the stack of a recursive parser
constexpr int kMsPerByte = 10;                // a response of some hundred bytes takes seconds
constexpr std::size_t kHugeSize = 8U << 20U;  // far above any real response, within what a client may accept

HttpReply BodyReply(std::string body) {
  HttpReply reply;
  reply.body = std::move(body);
  return reply;
}

// Without a number 503, as an overloaded server or one in maintenance sends it.
HttpReply StatusReply(const Fault& fault) {
  return Refusal(fault.number > 0 ? fault.number : 503, "", "A fault was set");
}

// The crypt service refuses with "errorid", a key server with a code in a payload of the type "status".
HttpReply CodeReply(const Fault& fault, bool isKeyServer) {
  if (!isKeyServer) return Refusal(200, fault.text, "A fault was set");
  return BodyReply(R"({"header":{},"payload":{"type":"status","code":)" + std::to_string(fault.number) +
                   "}}");
}

std::string OrElse(const std::string& text, const char* instead) {
  return text.empty() ? instead : text;
}

HttpReply JsonResponse(const std::string& type) {
  KVMap payload;
  payload.Set("type", TextVal(type));
  KVMap envelope;
  envelope.Set("header", Val(KVMap()));
  envelope.Set("payload", Val(payload));
  return JsonReply(envelope);
}

HttpReply EmptyCsv() {
  HttpReply reply;
  reply.contentType = "text/csv";
  return reply;
}

// The status is for the event log alone.
HttpReply DroppedReply() {
  HttpReply reply;
  reply.status = 0;
  reply.isDropped = true;
  return reply;
}

Val EmptyLike(const Val& value) {
  switch (value.GetType()) {
    case ValType::String:
      return TextVal("");
    case ValType::Array:
      return Val(Array<Val>());
    case ValType::Map:
      return Val(KVMap());
    case ValType::Bool:
      return Val(false);
    default:
      return Val(std::int64_t{0});
  }
}

Val OtherThan(const Val& value) {
  return value.GetType() == ValType::Integer ? TextVal("other") : Val(std::int64_t{4711});
}

// Keeps the type: with another one the client would refuse the response before it reads the members.
template <class Change>
KVMap ChangeMembers(const KVMap& object, const Change& change) {
  KVMap changed;
  for (const auto& [name, value] : object) {
    changed.Set(name, name == "type" ? value : change(name.View(), value));
  }
  return changed;
}

// Changes the members of a key server's payload or of the crypt service's whole response.
template <class Change>
void ChangeResponse(HttpReply& reply, const Change& change) {
  auto object = ReadObject(reply.body);
  if (!object.has_value()) return;
  const auto payload = ReadMap(*object, "payload");
  if (payload.has_value()) {
    object->Set("payload", Val(ChangeMembers(*payload, change)));
  } else {
    object = ChangeMembers(*object, change);
  }
  reply.body = WriteObject(*object);
}

// Changes each string of the arrays that contain results of a private key.
template <class Change>
void ChangeResults(HttpReply& reply, std::initializer_list<const char*> names, const Change& change) {
  ChangeResponse(reply, [&](std::string_view name, const Val& value) {
    const bool isResult = std::find(names.begin(), names.end(), name) != names.end();
    if (!isResult || value.GetType() != ValType::Array) return value;
    Array<Val> changed;
    for (const Val& element : value.AsArray()) changed.Append(TextVal(change(element.AsString().View())));
    return Val(changed);
  });
}

// In the last byte, so that the value stays valid base64 of the same length and only the signature is wrong.
std::string FlipBit(std::string_view base64) {
  std::string bytes = FromBase64(base64).value_or("");
  if (!bytes.empty()) bytes.back() = static_cast<char>(bytes.back() ^ 1);
  return ToBase64(bytes);
}

void ChangeType(HttpReply& reply, const std::string& type) {
  auto object = ReadObject(reply.body);
  auto payload = object.has_value() ? ReadMap(*object, "payload") : std::nullopt;
  if (!payload.has_value()) return;
  payload->Set("type", TextVal(type));
  object->Set("payload", Val(*payload));
  reply.body = WriteObject(*object);
}

// Produces a streamed body once only to measure it; openBody() gives the same bytes again when it is sent. A
// generated one may have any size, so the rest of a long one is not looked at.
std::size_t SizeOf(const HttpReply& reply) {
  if (!reply.openBody) return reply.body.size();
  std::size_t size = 0;
  const BodySource next = reply.openBody();
  for (std::string chunk = next(); !chunk.empty() && size < kMeasured; chunk = next()) size += chunk.size();
  return size;
}

void Cut(const Fault& fault, HttpReply& reply) {
  reply.cutAfter = fault.number > 0 ? static_cast<std::size_t>(fault.number) : SizeOf(reply) / 2;
}

}  // namespace

std::optional<HttpReply> MakeFaultReply(const Fault& fault, bool isKeyServer) {
  switch (fault.type) {
    case FaultType::Status:
      return StatusReply(fault);
    case FaultType::BrokenJson:
      return BodyReply(R"({"payload":{"type":)");
    case FaultType::JsonArray:
      return BodyReply("[1,2,3]");
    case FaultType::JsonNumber:
      return BodyReply("4711");
    case FaultType::JsonDeep:
      return BodyReply(std::string(kDepth, '[') + std::string(kDepth, ']'));
    case FaultType::JsonNotUtf8:
      return BodyReply("{\"payload\":\"\xC3\x28\"}");
    case FaultType::JsonHuge: {
      const std::size_t size = fault.number > 0 ? static_cast<std::size_t>(fault.number) : kHugeSize;
      return BodyReply("{\"payload\":\"" + std::string(size, 'x') + "\"}");
    }
    case FaultType::EmptyBody:
      return BodyReply("");
    case FaultType::Body:
      return BodyReply(fault.text);
    case FaultType::ErrorCode:
      return CodeReply(fault, isKeyServer);
    case FaultType::JsonResponse:
      return JsonResponse(OrElse(fault.text, "getAuditLogResponse"));
    case FaultType::EmptyCsv:
      return EmptyCsv();
    case FaultType::Drop:
      return DroppedReply();
    default:
      return std::nullopt;
  }
}

void SpoilReply(const Fault& fault, HttpReply& reply) {
  switch (fault.type) {
    case FaultType::WrongType:
      return ChangeType(reply, OrElse(fault.text, "unexpectedResponse"));
    case FaultType::BadSignature:
      return ChangeResults(reply, {"signedHashes"}, FlipBit);
    case FaultType::BadBase64:
      return ChangeResults(reply, {"signedHashes", "plainData"},
                           [](std::string_view) { return "*no base64*"; });
    case FaultType::EmptyMembers:
      return ChangeResponse(reply, [](std::string_view, const Val& value) { return EmptyLike(value); });
    case FaultType::OtherMembers:
      return ChangeResponse(reply, [](std::string_view, const Val& value) { return OtherThan(value); });
    case FaultType::WrongContentType:
      reply.contentType = OrElse(fault.text, "text/html");
      return;
    case FaultType::Cut:
      return Cut(fault, reply);
    case FaultType::Trickle:
      reply.msPerByte = fault.number > 0 ? fault.number : kMsPerByte;
      return;
    case FaultType::Close:
      reply.isLast = true;
      return;
    case FaultType::SecStatus:
      reply.headers.emplace_back("x-sec-status",
                                 fault.text.empty() ? std::to_string(fault.number) : fault.text);
      return;
    default:
      return;
  }
}

}  // namespace CryptStand
