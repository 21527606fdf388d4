// URLs of the crypt service, and the authorization tokens that it gives. RunCommand fetches a token for each
// attempt of a command.
#include "client/cryptcli.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "exchange/url_segment.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Val;

namespace OruKalvix {

// The base URL, "crypt", and the segments up to the first empty one. Segments are escaped, so that a room or
// group of any name stays one segment.
AnsiStr CryptClient::GetServiceUrl(const AnsiStr& first, const AnsiStr& second, const AnsiStr& third,
                                   const AnsiStr& fourth) noexcept {
  if (serviceUrl.IsEmpty()) {
    SetError("Invalid URL");
    return AnsiStr();
  }
  AnsiStr url = serviceUrl;
  constexpr std::uint32_t kSegments = 64;  // Enough for most names: spares the string growing step by step.
  url.Reserve(url.GetLength() + kSegments);
  AppendPath(url, "crypt");
  for (const AnsiStr* segment : {&first, &second, &third, &fourth}) {
    if (segment->IsEmpty()) break;
    AppendSegment(url, *segment);
  }
  return url;
}

// The crypt service decides by key server, operation and, where given, transaction and key. A failed exchange
// leaves the old token; a response without a token empties it, since this attempt must not reuse another's.
bool CryptClient::FetchAuthzToken(KeyServerCommand command, const AnsiStr& id, const KVMap& key) noexcept {
  const AnsiStr url = GetServiceUrl("authztoken", id, AnsiStr(), AnsiStr());
  if (url.IsEmpty()) return false;
  KVMap request;
  request.Put("keyserver", keyServerCursor.keyServerUrl);
  request.Put("operation", GetRequestType(command));
  if (!transaction.IsEmpty()) request.Put("transaction", transaction);
  if (!key.IsEmpty()) request.Put("key", Val(key));
  KVMap response;
  if (!HttpPostJSON(url, request, KVMap(), response))
    return Fail("Could not get authorization token: %s", errorMessage.GetText());
  authzToken = MemberReader(response).String("authztoken");
  if (authzToken.IsEmpty()) return Fail("Invalid authorization token");
  return true;
}

}  // namespace OruKalvix
