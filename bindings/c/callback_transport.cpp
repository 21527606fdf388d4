// The request and response objects that a transport callback sees, and the transport that calls it.
#include "bindings/c/callback_transport.h"

#include <string>
#include <string_view>

#include "bindings/c/observer_pause.h"
#include "bindings/c/text.h"
#include "foundation/errorstate.h"
#include "foundation/filehandle.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruKalvix::HttpOptions;
using OruKalvix::HttpResponse;

/// One exchange as the callback sees it, valid during the call.
struct cryptcli_request {
  const AnsiStr& method;
  const AnsiStr& url;
  const KVMap& headers;
  const AnsiStr& body;
  const HttpOptions& options;
};

/// What the callback fills, valid during the call. A body goes to memory or to the file that the class asked
/// for.
struct cryptcli_response {
  HttpResponse& response;
  OruGuiBase::FileWriter file{};
  bool failed = false;
  cryptcli_status failure = CRYPTCLI_UNREACHABLE;
};

namespace {

// The limit of the built-in transport as well: a response in memory must not exhaust it.
constexpr std::uint32_t kMaxBody = 64U * 1024 * 1024;

// Runs a setter. A failure is remembered: the exchange then fails whatever the callback returns, so that an
// ignored return value cannot lead to a response with a part missing.
template <class Work>
int32_t Try(cryptcli_response* response, Work work) noexcept {
  if (response == nullptr) return -1;
  try {
    if (work()) return 0;
  } catch (...) {
  }
  response->failed = true;
  return -1;
}

}  // namespace

const char* cryptcli_request_method(const cryptcli_request* request) {
  return request->method.GetText();
}

const char* cryptcli_request_url(const cryptcli_request* request) {
  return request->url.GetText();
}

size_t cryptcli_request_header_count(const cryptcli_request* request) {
  return request->headers.GetCount();
}

const char* cryptcli_request_header_name(const cryptcli_request* request, size_t index) {
  if (index >= request->headers.GetCount()) return nullptr;
  return request->headers.GetKeys()[static_cast<std::uint32_t>(index)].GetText();
}

const char* cryptcli_request_header_value(const cryptcli_request* request, size_t index) {
  if (index >= request->headers.GetCount()) return nullptr;
  // The map keeps a reference to the string as long as the request lives.
  return request->headers.GetValues()[static_cast<std::uint32_t>(index)].AsString().GetText();
}

const void* cryptcli_request_body(const cryptcli_request* request, size_t* size) {
  if (size != nullptr) *size = request->body.GetLength();
  return request->body.GetText();
}

// HttpOptions: the first timeout limits connecting, the last one the whole exchange.
uint32_t cryptcli_request_connect_timeout(const cryptcli_request* request) {
  return request->options.timeouts[0];
}

uint32_t cryptcli_request_timeout(const cryptcli_request* request) {
  return request->options.timeouts[2];
}

int32_t cryptcli_response_set_status(cryptcli_response* response, uint32_t status) {
  return Try(response, [&] {
    response->response.status = status;
    return status >= 100 && status <= 999;
  });
}

int32_t cryptcli_response_add_header(cryptcli_response* response, const char* name, const char* value) {
  return Try(response, [&] {
    if (name == nullptr || value == nullptr) return false;
    return response->response.headers.Set(AnsiStr(name), AnsiStr(value));
  });
}

int32_t cryptcli_response_append_body(cryptcli_response* response, const void* bytes, size_t size) {
  return Try(response, [&] {
    if (size > kMaxBody || (bytes == nullptr && size != 0)) return false;
    const auto length = static_cast<std::uint32_t>(size);
    if (response->file.IsOpen()) return response->file.Write(bytes, length);
    if (response->response.body.GetLength() > kMaxBody - length) return false;
    response->response.body.Append(static_cast<const char*>(bytes), length);
    return true;
  });
}

int32_t cryptcli_response_set_error(cryptcli_response* response, const char* message) {
  return Try(response, [&] {
    response->response.errorText = message != nullptr ? message : "";
    return true;
  });
}

int32_t cryptcli_response_set_error_code(cryptcli_response* response, cryptcli_status code) {
  return Try(response, [&] {
    if (code != CRYPTCLI_UNREACHABLE && code != CRYPTCLI_TIMEOUT && code != CRYPTCLI_CANCELLED) return false;
    response->failure = code;
    return true;
  });
}

namespace CryptCliC {

std::int32_t CallbackTransport::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                                            const AnsiStr& body, const HttpOptions& options,
                                            HttpResponse& response) {
  cryptcli_status ignored = CRYPTCLI_UNREACHABLE;
  return SendRequest(method, url, headers, body, options, response, ignored);
}

std::int32_t CallbackTransport::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                                            const AnsiStr& body, const HttpOptions& options,
                                            HttpResponse& response, cryptcli_status& failure) {
  const cryptcli_request request{method, url, headers, body, options};
  cryptcli_response filled{response};
  if (!response.targetFile.IsEmpty() && !filled.file.Open(OruGuiBase::File(response.targetFile))) {
    response.errorText = AnsiStr("Could not take the response: ") + OruGuiBase::GetSystemErrorText();
    return -1;
  }
  // A callback that returns 0 without a status is taken for a failure: there is no such response.
  std::int32_t result = -1;
  {
    const ObserverPause pause;
    result = callback_(context_, &request, &filled);
  }
  const bool done = result == 0 && !filled.failed && (!filled.file.IsOpen() || filled.file.Close());
  if (done && response.status != 0) return 0;
  failure = filled.failure;
  if (response.errorText.IsEmpty()) response.errorText = "The application's transport failed";
  return -1;
}

}  // namespace CryptCliC
