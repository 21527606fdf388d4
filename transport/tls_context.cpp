// What libcurl has no option for: it writes a key log, and of an alert it keeps at most a text. With TLS 1.3
// the refusal of a client's certificate comes after the handshake, and where the server resets the
// connection, the text of another failure comes first.
#include "transport/tls_context.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <string_view>

namespace OruKalvix {

namespace {

// libcurl works on the thread that carries out the exchange. A connection outlives the exchange, so the
// callback is given no pointer.
thread_local int latestAlert = SSL_AD_CLOSE_NOTIFY;
thread_local bool wasCertificateRequested = false;

void NoteEvent(const SSL* session, int where, int alert) noexcept {
  if (where == SSL_CB_READ_ALERT) latestAlert = alert & 0xFF;  // above it is the level
  if (SSL_get_state(session) == TLS_ST_CR_CERT_REQ) wasCertificateRequested = true;
}

// libcurl calls this for each context after setting its own key log callback, which this removes.
CURLcode SetCallbacks(CURL*, void* context, void*) noexcept {
  SSL_CTX_set_keylog_callback(static_cast<SSL_CTX*>(context), nullptr);
  SSL_CTX_set_info_callback(static_cast<SSL_CTX*>(context), &NoteEvent);
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

CURLcode PrepareTls(CURL* handle) noexcept {
  if (!IsOurOpenSSL()) return CURLE_OK;
  return curl_easy_setopt(handle, CURLOPT_SSL_CTX_FUNCTION, &SetCallbacks);
}

void ForgetHandshakes() noexcept {
  latestAlert = SSL_AD_CLOSE_NOTIFY;
  wasCertificateRequested = false;
}

bool WasCertificateRequested() noexcept {
  return wasCertificateRequested;
}

const char* GetClientRefusal() noexcept {
  switch (latestAlert) {
    case SSL_AD_BAD_CERTIFICATE:
    case SSL_AD_UNSUPPORTED_CERTIFICATE:
    case SSL_AD_CERTIFICATE_REVOKED:
    case SSL_AD_CERTIFICATE_EXPIRED:
    case SSL_AD_CERTIFICATE_UNKNOWN:
    case SSL_AD_UNKNOWN_CA:
      return SSL_alert_desc_string_long(latestAlert);
    case SSL_AD_CERTIFICATE_REQUIRED:
      return "certificate required";  // OpenSSL 3.0 has no text for this one
    default:
      return nullptr;
  }
}

}  // namespace OruKalvix
