// Removes libcurl's key log with OpenSSL: libcurl has no option to switch it off.
#include "transport/key_log.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <string_view>

namespace OruKalvix {

namespace {

// libcurl calls this for each context after setting its own key log callback, which this removes.
CURLcode DropKeyLog(CURL*, void* context, void*) noexcept {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  return CURLE_OK;
}

// With another TLS library, or another OpenSSL, the context would not be the SSL_CTX of our headers.
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
