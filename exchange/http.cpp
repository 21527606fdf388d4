#include "client/cryptcli.h"
#include "client/tracing.h"
#include "foundation/format.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;

namespace OruKalvix {
namespace {

constexpr std::uint32_t kStatusOk = 200;

// The headers under lower-case names; of names that differ only in case the later one stands.
KVMap LowerCaseNames(const KVMap& headers) noexcept {
  Array<AnsiStr> names;
  names.Reserve(headers.GetCount());
  for (AnsiStr name : headers.GetKeys()) names.Append(name.ToLower());
  return KVMap::FromPairs(names, headers.GetValues());
}

KVMap WithContentType(const KVMap& headers) noexcept {
  KVMap all = headers;
  all.Put("Content-Type", "text/json");
  return all;
}

// A transport is not allowed to throw. One that does all the same has carried out no exchange, and must not
// take the application down.
bool Send(ICryptClientHttp& http, const char* method, const AnsiStr& url, const KVMap& headers,
          const AnsiStr& body, const HttpOptions& options, HttpResponse& response) noexcept {
  try {
    return http.SendRequest(method, url, headers, body, options, response) >= 0;
  } catch (...) {
    response.errorText = "HTTP service failed";
    return false;
  }
}

}  // namespace

// The one way out: every exchange of the client passes here.
bool CryptClient::HttpRequest(const char* method, const AnsiStr& url, const KVMap& headers,
                              const AnsiStr& body, const HttpOptions& options,
                              HttpResponse& response) noexcept {
  if (http == nullptr) {
    SetHttpError(method, url, "No HTTP service");
    return false;
  }
  if (!Send(*http, method, url, headers, body, options, response)) {
    SetHttpError(method, url, response.errorText);
    return false;
  }
  if (response.status != kStatusOk) {
    SetHttpError(method, url, OruGuiBase::FmtArgs("HTTP %ld", static_cast<long>(response.status)));
    return false;
  }
  CRYPTCLI_TRACE_STR(1, "CryptClient::HttpRequest: %s %s", method, url.GetText());
  responseHeaders = LowerCaseNames(response.headers);
  return true;
}

bool CryptClient::HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body) noexcept {
  return HttpGet(url, headers, body, 0);
}

bool CryptClient::HttpGet(const AnsiStr& url, const KVMap& headers, AnsiStr& body,
                          std::uint32_t timeout) noexcept {
  HttpOptions options;
  options.useTimeouts = timeout != 0;
  for (std::uint32_t& value : options.timeouts) value = timeout;
  HttpResponse response;
  if (!HttpRequest("GET", url, headers, AnsiStr(), options, response)) return false;
  body = response.body;
  return true;
}

bool CryptClient::HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers,
                           AnsiStr& responseBody) noexcept {
  HttpResponse response;
  if (!HttpRequest("POST", url, WithContentType(headers), body, HttpOptions(), response)) return false;
  responseBody = response.body;
  return true;
}

// The body goes from the transport to the file and never passes through memory here.
bool CryptClient::HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers,
                           const File& target) noexcept {
  HttpResponse response;
  response.targetFile = target.GetPath();
  return HttpRequest("POST", url, WithContentType(headers), body, HttpOptions(), response);
}

}  // namespace OruKalvix
