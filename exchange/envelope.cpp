// The envelope around each key-server command: header and payload out, payload or error code back. Used by
// RunCommand and by the audit log.
#include "client/cryptcli.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "exchange/url_segment.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace OruKalvix {

const char* CryptClient::GetRequestType(KeyServerCommand command) noexcept {
  return GetCommandNames(command).request;
}

const char* CryptClient::GetResponseType(KeyServerCommand command) noexcept {
  return GetCommandNames(command).response;
}

// The protocol prescribes all five members, the empty ones included.
KVMap CryptClient::GetStandardHeader() noexcept {
  ValArray path;
  path.Append(Val("java-api-instance"));
  KVMap header;
  header.Put("type", "standardVelmoraHeader");
  header.Put("commandId", "");
  header.Put("sessionId", "");
  header.Put("path", Val(path));
  header.Put("protocolVersion", "2.0");
  return header;
}

KVMap CryptClient::GetEnvelope(const KVMap& payload) noexcept {
  KVMap envelope;
  envelope.Put("header", Val(GetStandardHeader()));
  envelope.Put("payload", Val(payload));
  return envelope;
}

AnsiStr CryptClient::GetServerUrl(const AnsiStr& path) const noexcept {
  AnsiStr url = keyServerCursor.keyServerUrl;
  if (url.IsEmpty() || path.IsEmpty()) return url;
  constexpr std::uint32_t kSlashAndQuery = 24;  // "/", "?" and the 20 digits of a probe, rounded up.
  url.Reserve(url.GetLength() + path.GetLength() + kSlashAndQuery);
  AppendPath(url, path.View());
  return url;
}

// Empties the token before the request goes out: it is used up even if the exchange fails.
KVMap CryptClient::GetSecurityHeader() noexcept {
  KVMap headers;
  headers.Put("X-SEC-AUTHZTOKEN", authzToken);
  authzToken.Clear();
  return headers;
}

bool CryptClient::KeyServerPost(const KVMap& envelope, KeyServerCommand command, KVMap& payload) noexcept {
  KVMap response;
  if (!HttpPostJSON(GetServerUrl("rest/json"), envelope, GetSecurityHeader(), response)) return false;
  return KeyServerCheckResponse(response, command, payload);
}

// HTTP status 200 alone is no success: a key server reports its errors in a payload of the type "status". The
// payload is handed out even when it is refused.
bool CryptClient::KeyServerCheckResponse(const KVMap& response, KeyServerCommand command,
                                         KVMap& payload) noexcept {
  payload = MemberReader(response).Object("payload");
  if (payload.IsEmpty()) return Fail("Invalid payload");
  const AnsiStr type = MemberReader(payload).String("type");
  if (type == "status") {
    KeyServerErrorText(MemberReader(payload).Integer("code"));
    return false;
  }
  if (type != GetResponseType(command)) return Fail("Unexpected response type %s", type.GetText());
  return true;
}

}  // namespace OruKalvix
