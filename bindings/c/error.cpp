// The error object: a Failure with its JSON, made once, and the getters that lend from it. Created through
// Fail in boundary.h; perform.cpp also uses its JSON as the description of a warning.
#include "bindings/c/error.h"

#include <utility>

#include "bindings/c/text.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

struct cryptcli_error {
  CryptCliC::Failure failure;
  std::string json;
};

namespace CryptCliC {

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

std::string DescribeAsJson(const Failure& failure) {
  Array<Val> attempts;
  for (const Attempt& attempt : failure.attempts) {
    KVMap entry;
    SetText(entry, "server", attempt.server);
    SetText(entry, "code", cryptcli_status_name(attempt.code));
    SetText(entry, "message", attempt.message);
    attempts.Append(Val(entry));
  }
  KVMap object;
  SetText(object, "code", cryptcli_status_name(failure.code));
  SetText(object, "message", failure.message);
  object.Put("retryable", Val(failure.retryable));
  object.Put("httpStatus", Val(std::int64_t{failure.httpStatus}));
  SetText(object, "url", failure.url);
  object.Put("attempts", Val(attempts));
  return ToJson(object);
}

}  // namespace

// Names and messages can come from a server or a certificate, in any encoding. Without memory for the object
// the caller gets null, which every getter below reads as an allocation failure.
cryptcli_error* MakeError(Failure failure) noexcept {
  try {
    failure.message = MakeUtf8(failure.message);
    failure.url = MakeUtf8(failure.url);
    for (Attempt& attempt : failure.attempts) {
      attempt.server = MakeUtf8(attempt.server);
      attempt.message = MakeUtf8(attempt.message);
    }
    std::string json = DescribeAsJson(failure);
    return new cryptcli_error{std::move(failure), std::move(json)};
  } catch (...) {
    return nullptr;
  }
}

}  // namespace CryptCliC

namespace {

// Null if the index is not below the count.
const CryptCliC::Attempt* AttemptAt(const cryptcli_error* error, size_t index) {
  return error != nullptr && index < error->failure.attempts.size() ? &error->failure.attempts[index]
                                                                    : nullptr;
}

}  // namespace

void cryptcli_error_free(cryptcli_error* error) {
  delete error;
}

cryptcli_status cryptcli_error_code(const cryptcli_error* error) {
  return error != nullptr ? error->failure.code : CRYPTCLI_INTERNAL;
}

const char* cryptcli_error_message(const cryptcli_error* error) {
  return error != nullptr ? error->failure.message.c_str() : "no memory";
}

int32_t cryptcli_error_is_retryable(const cryptcli_error* error) {
  return error != nullptr && error->failure.retryable ? 1 : 0;
}

uint32_t cryptcli_error_http_status(const cryptcli_error* error) {
  return error != nullptr ? error->failure.httpStatus : 0;
}

const char* cryptcli_error_url(const cryptcli_error* error) {
  return error != nullptr ? error->failure.url.c_str() : "";
}

size_t cryptcli_error_attempt_count(const cryptcli_error* error) {
  return error != nullptr ? error->failure.attempts.size() : 0;
}

const char* cryptcli_error_attempt_server(const cryptcli_error* error, size_t index) {
  const CryptCliC::Attempt* attempt = AttemptAt(error, index);
  return attempt != nullptr ? attempt->server.c_str() : nullptr;
}

cryptcli_status cryptcli_error_attempt_code(const cryptcli_error* error, size_t index) {
  const CryptCliC::Attempt* attempt = AttemptAt(error, index);
  return attempt != nullptr ? attempt->code : CRYPTCLI_OK;
}

const char* cryptcli_error_attempt_message(const cryptcli_error* error, size_t index) {
  const CryptCliC::Attempt* attempt = AttemptAt(error, index);
  return attempt != nullptr ? attempt->message.c_str() : nullptr;
}

const char* cryptcli_error_json(const cryptcli_error* error) {
  // With every member of the JSON of an error, so that its readers need no special case.
  static constexpr const char* kNoMemory =
      R"({"code":"internal","message":"no memory","retryable":false,"httpStatus":0,"url":"","attempts":[]})";
  return error != nullptr ? error->json.c_str() : kNoMemory;
}
