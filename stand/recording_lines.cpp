// Writes an exchange as JSON: bodies as strings where they are UTF-8, as they nearly always are, so that a
// person can read the recording, and as base64 otherwise.
#include "stand/recording_lines.h"

#include <algorithm>
#include <chrono>

#include "stand/control_json.h"
#include "stand/key_pair.h"
#include "stand/wire.h"

namespace CryptStand {
namespace {

using OruGuiBase::Array;

// JSON has no other strings than UTF-8. What HTTP allows beyond is replaced byte by byte, since nothing that
// this environment or its clients understand needs it.
Val AnyTextVal(std::string text) {
  if (!IsUtf8(text)) {
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; }, '?');
  }
  return TextVal(text);
}

void SetBody(KVMap& message, std::string_view body) {
  if (IsUtf8(body) && body.find('\0') == std::string_view::npos) {
    message.Set("body", TextVal(body));
  } else {
    message.Set("bodyBase64", TextVal(ToBase64(body)));
  }
}

Val HeadersVal(const std::vector<std::pair<std::string, std::string>>& headers) {
  Array<Val> list;
  for (const auto& [name, value] : headers) {
    Array<Val> header;
    header.Append(AnyTextVal(name));
    header.Append(AnyTextVal(value));
    list.Append(Val(header));
  }
  return Val(list);
}

KVMap RequestObject(const HttpRequest& request) {
  KVMap object;
  object.Set("headers", HeadersVal(request.headers));
  SetBody(object, request.body);
  return object;
}

// Of a response that a fault cut, the part that was sent. A status of 0 says that there was no response.
KVMap ResponseObject(const HttpReply& reply, const SentBody& sent) {
  auto headers = reply.headers;
  headers.emplace(headers.begin(), "Content-Type", reply.contentType);
  KVMap object;
  object.Set("status", Val(std::int64_t{reply.status}));
  object.Set("headers", HeadersVal(headers));
  SetBody(object, sent.bytes.substr(0, reply.cutAfter.value_or(sent.bytes.size())));
  object.Set("isWhole", Val(sent.isWhole && reply.status != 0 && !reply.cutAfter.has_value()));
  return object;
}

}  // namespace

std::string MakeStartLine(const std::string& service, const std::vector<std::string>& keyServers) {
  KVMap line;
  line.Set("recording", TextVal("cryptstand"));
  line.Set("version", Val(std::int64_t{kRecordingVersion}));
  line.Set("contents", TextVal("exchanges of a local test environment, with all its secrets"));
  line.Set("time", TextVal(TimeText(std::chrono::system_clock::now())));
  line.Set("service", TextVal(service));
  line.Set("keyservers", TextsVal(keyServers));
  return WriteObject(line);
}

bool IsStartLine(const std::string& line) {
  const auto object = ReadObject(line);
  return object.has_value() && ReadText(*object, "recording") == "cryptstand" &&
         ReadInteger(*object, "version") == kRecordingVersion;
}

std::string MakeExchangeLine(const Event& event, const HttpRequest& request, const HttpReply& reply,
                             const SentBody& sent) {
  KVMap line;
  line.Set("number", Val(static_cast<std::int64_t>(event.number)));
  line.Set("time", TextVal(TimeText(event.time)));
  line.Set("durationMs", Val(event.durationMs));
  line.Set("server", TextVal(ServerName(event.server)));
  line.Set("method", AnyTextVal(event.method));
  line.Set("target", AnyTextVal(event.target));
  line.Set("operation", AnyTextVal(event.operation));
  line.Set("outcome", AnyTextVal(event.outcome));
  line.Set("faults", TextsVal(event.faults));
  line.Set("request", Val(RequestObject(request)));
  line.Set("response", Val(ResponseObject(reply, sent)));
  return WriteObject(line);
}

}  // namespace CryptStand
