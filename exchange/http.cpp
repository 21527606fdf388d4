// One HTTP exchange through the application's transport. HttpRequest is the only place that calls it; the
// other members prepare what a GET or a POST needs.
#include "client/cryptcli.h"
#include "client/tracing.h"
#include "foundation/format.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;

namespace OruKalvix {
namespace {

// The only status that counts as success: 201, 204 and redirects are failures, and nothing follows a
// redirect.
constexpr std::uint32_t kStatusOk = 200;

// The headers under lower-case names, since their case has no meaning (RFC 9110, section 5.1). Of names that
// differ in case alone, the later one wins.
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

// A transport must not throw. One that throws has carried out no exchange; the exception ends here, because
// the next noexcept function would abort the application.
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

// Every exchange of the client passes here. Headers and body of the response are taken from a success only.
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

// The transport writes the body to the file itself, so a body of any size takes no memory here.
bool CryptClient::HttpPost(const AnsiStr& url, const AnsiStr& body, const KVMap& headers,
                           const File& target) noexcept {
  HttpResponse response;
  response.targetFile = target.GetPath();
  return HttpRequest("POST", url, WithContentType(headers), body, HttpOptions(), response);
}

}  // namespace OruKalvix
