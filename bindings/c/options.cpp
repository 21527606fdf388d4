// The setters of the options. Each checks what it can without looking at a file or a server; the rest is
// checked when a client is made.
#include "bindings/c/options.h"

#include <new>
#include <string_view>

#include "bindings/c/boundary.h"
#include "bindings/c/headers.h"
#include "bindings/c/text.h"

using CryptCliC::Fail;
using CryptCliC::Guarded;
using CryptCliC::ToAnsi;

namespace {

std::string_view OrEmpty(const char* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}

// Refused here, before a control character could come into a request or forge a line of the log.
cryptcli_status CheckUrl(const char* what, std::string_view url, cryptcli_error** error) {
  if (!CryptCliC::IsUtf8(url) || OruGuiBase::HasControlCharacter(url)) {
    return Fail(error, CRYPTCLI_INVALID_ARGUMENT, std::string(what) + " is not a URL");
  }
  return CRYPTCLI_OK;
}

// Runs a setter that can fail.
template <class Work>
cryptcli_status Set(cryptcli_options* options, cryptcli_error** error, Work work) noexcept {
  return Guarded(error, [&]() -> cryptcli_status {
    if (options == nullptr) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No options");
    return work();
  });
}

}  // namespace

cryptcli_options* cryptcli_options_new(void) {
  try {
    return new cryptcli_options;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void cryptcli_options_free(cryptcli_options* options) {
  delete options;
}

cryptcli_status cryptcli_options_set_service(cryptcli_options* options, const char* url,
                                             cryptcli_error** error) {
  return Set(options, error, [&] {
    const cryptcli_status status = CheckUrl("The service", OrEmpty(url), error);
    if (status == CRYPTCLI_OK) options->service = OrEmpty(url);
    return status;
  });
}

cryptcli_status cryptcli_options_set_ca_file(cryptcli_options* options, const char* path,
                                             cryptcli_error** error) {
  return Set(options, error, [&]() -> cryptcli_status {
    options->curl.caFile = ToAnsi(OrEmpty(path));
    return CRYPTCLI_OK;
  });
}

cryptcli_status cryptcli_options_set_client_certificate(cryptcli_options* options, const char* certificate,
                                                        const char* key, const char* password_file,
                                                        cryptcli_error** error) {
  return Set(options, error, [&]() -> cryptcli_status {
    if (certificate == nullptr && (key != nullptr || password_file != nullptr)) {
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "A client key without a client certificate");
    }
    options->curl.clientCertificate = ToAnsi(OrEmpty(certificate));
    options->curl.clientKey = ToAnsi(OrEmpty(key));
    options->clientKeyPasswordFile = OrEmpty(password_file);
    return CRYPTCLI_OK;
  });
}

cryptcli_status cryptcli_options_set_proxy(cryptcli_options* options, const char* url,
                                           cryptcli_error** error) {
  return Set(options, error, [&] {
    const cryptcli_status status = CheckUrl("The proxy", OrEmpty(url), error);
    if (status == CRYPTCLI_OK) options->curl.proxy = ToAnsi(OrEmpty(url));
    return status;
  });
}

cryptcli_status cryptcli_options_add_header(cryptcli_options* options, const char* name, const char* value,
                                            cryptcli_error** error) {
  return Set(options, error, [&]() -> cryptcli_status {
    // The value may be a secret and is not quoted.
    if (!OruGuiBase::IsHeaderName(OrEmpty(name)) || value == nullptr ||
        OruGuiBase::HasControlCharacter(value) || !CryptCliC::IsUtf8(value)) {
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT,
                  "A header has a name of letters, digits and hyphens and a value of one line");
    }
    CryptCliC::PutHeader(options->serviceHeaders, ToAnsi(name), ToAnsi(value));
    return CRYPTCLI_OK;
  });
}

void cryptcli_options_set_connect_timeout(cryptcli_options* options, uint32_t milliseconds) {
  if (options == nullptr) return;
  options->connectTimeout = milliseconds != 0 ? milliseconds : cryptcli_options::kConnectTimeout;
}

void cryptcli_options_set_timeout(cryptcli_options* options, uint32_t milliseconds) {
  if (options == nullptr) return;
  options->timeout = milliseconds != 0 ? milliseconds : cryptcli_options::kTimeout;
}

cryptcli_status cryptcli_options_set_temporary_directory(cryptcli_options* options, const char* path,
                                                         cryptcli_error** error) {
  return Set(options, error, [&]() -> cryptcli_status {
    options->temporaryDirectory = OrEmpty(path);
    return CRYPTCLI_OK;
  });
}

void cryptcli_options_set_log(cryptcli_options* options, cryptcli_log_level level,
                              cryptcli_log_callback callback, void* context, int32_t reveal_secrets) {
  if (options == nullptr) return;
  // Level 0 for no callback: then the class formats no trace that nobody reads.
  options->logLevel = callback != nullptr ? level : 0;
  options->log = callback;
  options->logContext = context;
  options->revealSecrets = reveal_secrets != 0;
}

void cryptcli_options_set_transport(cryptcli_options* options, cryptcli_transport_callback callback,
                                    void* context) {
  if (options == nullptr) return;
  options->transport = callback;
  options->transportContext = context;
}
