#include "client/cryptcli.h"
#include "exchange/key_server_command.h"
#include "exchange/member_reader.h"
#include "exchange/url_segment.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Val;

namespace OruKalvix {

AnsiStr CryptClient::GetServiceUrl(const AnsiStr& first, const AnsiStr& second, const AnsiStr& third,
                                   const AnsiStr& fourth) noexcept {
  if (serviceUrl.IsEmpty()) {
    SetError("Invalid URL");
    return AnsiStr();
  }
  AnsiStr url = serviceUrl;
  constexpr std::uint32_t kSegments = 64;  // what most take together
  url.Reserve(url.GetLength() + kSegments);
  AppendPath(url, "crypt");
  for (const AnsiStr* segment : {&first, &second, &third, &fourth}) {
    if (segment->IsEmpty()) break;
    AppendSegment(url, *segment);
  }
  return url;
}

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
