// What the crypt service knows about a room. cryptcli_room reports it, and cryptcli_check in check.cpp takes
// the key servers from it. A response can contain the room's private key, which is never copied out of it.
#include "bindings/c/room.h"

#include <charconv>
#include <memory>

#include "bindings/c/boundary.h"
#include "bindings/c/report.h"
#include "bindings/c/text.h"
#include "exchange/member_reader.h"
#include "exchange/url_segment.h"
#include "foundation/json.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;
using OruKalvix::MemberReader;

namespace {

// The words of the class for the same failure, so that the table of messages has a row for it.
constexpr std::string_view kPrefix = "Could not get room key: ";

// Only decimal digits are a limit. The class ignores any other value in the same way.
std::uint32_t ReadSeconds(std::string_view text) {
  std::uint32_t seconds = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  return problem == std::errc() && end == text.data() + text.size() ? seconds : 0;
}

// In the order in which Decrypt tries them: the plain key before the wrapped one. Without a certificate it
// uses neither.
KeyType FindKeyType(const MemberReader& response, const OruOssSec::Certificate& certificate) {
  if (certificate.IsEmpty()) return KeyType::None;
  if (IsPlainKey(response.String("plain"))) return KeyType::Plain;
  return response.String("data").IsEmpty() ? KeyType::None : KeyType::Wrapped;
}

const char* NameOf(KeyType type) {
  switch (type) {
    case KeyType::Wrapped:
      return "wrapped";
    case KeyType::Plain:
      return "plain";
    default:
      return "none";
  }
}

RoomInfo ReadInfo(const MemberReader& response) {
  RoomInfo info;
  info.room = ToString(response.String("room"));
  info.group = ToString(response.String("group"));
  const AnsiStr certificate = response.String("certificate");
  if (!certificate.IsEmpty()) info.certificate.Load(certificate, OruOssSec::ASN1::Encoding::Text);
  info.keyType = FindKeyType(response, info.certificate);
  if (info.keyType == KeyType::None) info.certificate.Clear();
  for (const Val& server : response.List("keyserver")) info.keyServers.push_back(ToString(server.AsString()));
  info.statusTimeout = ReadSeconds(response.String("statustimeout").View());
  info.certificateAuthentication = response.Flag("certauth");
  return info;
}

// Refusals get the same messages as in the class: one has the service's text alone, the others have the
// prefix.
bool IsRefused(const MemberReader& response, std::string& message) {
  const AnsiStr id = response.String("errorid");
  const std::string text = ToString(response.String("errortext"));
  if (id.IsEmpty() && text.empty()) return false;
  message = id.View() == kKeyRefused ? text : std::string(kPrefix) + text;
  return true;
}

// A name or date that cannot be read stays empty: the rest of the description is useful without it.
KVMap DescribeCertificate(const OruOssSec::Certificate& certificate) {
  AnsiStr subject;
  AnsiStr issuer;
  AnsiStr serial;
  OruGuiBase::DateTime notBefore;
  OruGuiBase::DateTime notAfter;
  certificate.GetSubject(subject);
  certificate.GetIssuer(issuer);
  certificate.GetSerial(serial);
  certificate.GetValidity(notBefore, notAfter);
  KVMap object;
  SetText(object, "subject", subject.View());
  SetText(object, "issuer", issuer.View());
  SetText(object, "serial", serial.View());
  SetText(object, "notBefore", TimeText(notBefore));
  SetText(object, "notAfter", TimeText(notAfter));
  return object;
}

}  // namespace

// The class asks in the same way, but only as a part of Encrypt and Decrypt, and keeps the response to
// itself.
RoomQuery QueryRoom(Operation& operation, const cryptcli_client& client, std::string_view room) {
  AnsiStr url = ToAnsi(client.options.service);
  OruKalvix::AppendPath(url, "crypt/key");
  OruKalvix::AppendSegment(url, ToAnsi(room));
  RoomQuery query;
  query.probe = ProbeServer(operation, url, 0);
  if (!query.probe.message.empty()) {
    query.message = std::string(kPrefix) + query.probe.message;
    return query;
  }
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(query.probe.body, value, reason)) {
    query.message = std::string(kPrefix) + "Could not parse response: " + ToString(reason);
    return query;
  }
  if (value.GetType() != ValType::Map || !IsKeyResponse(value.AsMap())) {
    query.message = std::string(kPrefix) + "The response is not that of a crypt service";
    return query;
  }
  const MemberReader response(value.AsMap());
  query.ok = !IsRefused(response, query.message);
  if (query.ok) query.info = ReadInfo(response);
  return query;
}

KVMap DescribeRoom(const RoomInfo& info) {
  KVMap object;
  SetText(object, "room", info.room);
  SetText(object, "group", info.group);
  SetText(object, "keyType", NameOf(info.keyType));
  if (!info.certificate.IsEmpty()) object.Put("certificate", Val(DescribeCertificate(info.certificate)));
  Array<Val> servers;
  for (const std::string& server : info.keyServers) servers.Append(Val(ToAnsi(MakeUtf8(server))));
  object.Put("keyServers", Val(servers));
  object.Put("statusTimeout", Val(std::int64_t{info.statusTimeout}));
  object.Put("certificateAuthentication", Val(info.certificateAuthentication));
  return object;
}

}  // namespace CryptCliC

cryptcli_status cryptcli_room(const cryptcli_client* client, const char* room, cryptcli_call* call,
                              cryptcli_report** report, cryptcli_error** error) {
  using namespace CryptCliC;
  if (report != nullptr) *report = nullptr;
  return Guarded(error, [&]() -> cryptcli_status {
    if (!CheckRoom(client, room, error)) return CRYPTCLI_INVALID_ARGUMENT;
    Operation operation(*client, call);
    const RoomQuery query = QueryRoom(operation, *client, room);
    if (!query.ok) return Fail(error, operation.MakeFailure(query.message));
    auto made = std::make_unique<cryptcli_report>();
    made->json = ToJson(DescribeRoom(query.info));
    if (report != nullptr) *report = made.release();
    return CRYPTCLI_OK;
  });
}
