// The one source of the transport that knows OpenSSL: libcurl has no option for this.
#include "transport/key_log.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <string_view>

namespace OruKalvix {

namespace {

// libcurl asks for each context after it has set its own key log on it.
CURLcode DropKeyLog(CURL*, void* context, void*) noexcept {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  return CURLE_OK;
}

// Of another TLS library, or of another OpenSSL, the context would not be what SSL_CTX is here.
bool IsOurOpenSSL() noexcept {
  const char* const named = curl_version_info(CURLVERSION_NOW)->ssl_version;
  const std::string_view theirs = named == nullptr ? "" : named;
  constexpr std::string_view kPrefix = "OpenSSL/";
  return theirs.starts_with(kPrefix) &&
         theirs.substr(kPrefix.size()) == OpenSSL_version(OPENSSL_VERSION_STRING);
}

}  // namespace

CURLcode ForbidKeyLog(CURL* handle) noexcept {
  if (!IsOurOpenSSL()) return CURLE_OK;
  return curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &DropKeyLog);
}

}  // namespace OruKalvix
