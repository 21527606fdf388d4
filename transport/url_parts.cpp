// Splits URLs with libcurl's own parser, so that the check which requests may carry credentials sees the same
// host as the request that is sent.
#include "transport/url_parts.h"

#include <curl/curl.h>
#include <memory>
#include <new>
#include <string_view>

namespace OruKalvix {

using OruGuiBase::AnsiStr;

namespace {

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct TextDeleter {
  void operator()(char* text) const { curl_free(text); }
};

bool TakePart(CURLU* url, CURLUPart part, unsigned int flags, std::string& target) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return false;
  const std::unique_ptr<char, TextDeleter> owner(text);
  target = text;
  return true;
}

// Not std::tolower, which follows the locale of the process.
void ToLowerAscii(std::string& text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
}

// An escaped dot is equivalent to a dot (RFC 3986, 6.2.2.2), so it forms dot
// segments too: "service/%2e%2e/x" is not below "service/".
std::string UnescapeDots(std::string_view url) {
  std::string text;
  text.reserve(url.size());
  for (std::size_t i = 0; i < url.size(); ++i) {
    const bool isDot = url.substr(i).starts_with("%2e") || url.substr(i).starts_with("%2E");
    text += isDot ? '.' : url[i];
    if (isDot) i += 2;
  }
  return text;
}

}  // namespace

AnsiStr UrlParts::GetAuthority() const {
  return AnsiStr(host) + ":" + AnsiStr(port);
}

bool ParseUrl(const AnsiStr& url, UrlParts& parts, AnsiStr& errorText) {
  // The parser takes C strings and would stop at a NUL.
  if (url.View().find('\0') != std::string_view::npos) {
    errorText = "Invalid URL: it contains a NUL character";
    return false;
  }
  const std::unique_ptr<CURLU, UrlDeleter> handle(curl_url());
  if (handle == nullptr) throw std::bad_alloc();
  const std::string text = UnescapeDots(url.View());
  const CURLUcode code = curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_DISALLOW_USER);
  if (code == CURLUE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLUE_OK) {
    errorText = AnsiStr("Invalid URL: ") + curl_url_strerror(code);
    return false;
  }
  if (!TakePart(handle.get(), CURLUPART_SCHEME, 0, parts.scheme) ||
      !TakePart(handle.get(), CURLUPART_HOST, 0, parts.host) ||
      !TakePart(handle.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT, parts.port) ||
      !TakePart(handle.get(), CURLUPART_PATH, 0, parts.path)) {
    errorText = "Invalid URL: it names no host";
    return false;
  }
  ToLowerAscii(parts.scheme);
  ToLowerAscii(parts.host);
  if (parts.scheme != "http" && parts.scheme != "https") {
    errorText = "Invalid URL: only http and https are supported";
    return false;
  }
  return true;
}

bool IsAtOrBelow(const UrlParts& base, const UrlParts& url) {
  if (base.scheme != url.scheme || base.host != url.host || base.port != url.port) return false;
  std::string_view prefix = base.path;
  // "/api" and "/api/" are the same base: both cover "/api/x" and neither "/apis".
  while (prefix.ends_with('/')) prefix.remove_suffix(1);
  const std::string_view path = url.path;
  return path.starts_with(prefix) && (path.size() == prefix.size() || path[prefix.size()] == '/');
}

}  // namespace OruKalvix
