// The client object itself: construction, settings, and the record of the latest failure. Every other source
// of the class reports through SetError, Fail or FailWithSystemError here, so each failure is traced once and
// in one form.
#include <cstdarg>

#include "client/cryptcli.h"
#include "client/tracing.h"
#include "foundation/errorstate.h"
#include "foundation/format.h"
#include "foundation/numbers.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace OruKalvix {

namespace {

// Formats before it replaces the message: callers wrap the present message by passing it as an argument.
void Record(AnsiStr& message, const char* format, std::va_list arguments) noexcept {
  const AnsiStr formatted = OruGuiBase::FmtList(format, arguments);
  message = formatted;
  CRYPTCLI_TRACE_MSG(4, "CryptClient: Error: %s", message.GetText());
}

}  // namespace

CryptClient::CryptClient(ICryptClientHttp* transport, const AnsiStr& service, const AnsiStr& auxiliary,
                         const AnsiStr& roomName) noexcept
    : http(transport),
      serviceUrl(service),
      auxiliaryName(auxiliary),
      room(roomName),
      keyServerCursor(MakeCursor({})) {
  if (http != nullptr) http->AddRef();
}

// The transport is referenced after all other fields are set and released before any of them is destroyed.
CryptClient::~CryptClient() {
  if (http != nullptr) http->Release();
}

void CryptClient::SetKeyServer(const Array<Val>& servers) noexcept {
  keyServerCursor = MakeCursor(servers);
}

void CryptClient::SetStatusTimeout(const AnsiStr& seconds) noexcept {
  if (seconds.IsEmpty()) {
    statusTimeout = 0;
    return;
  }
  std::uint32_t value = 0;
  if (OruGuiBase::Str2ULong(seconds, nullptr, value, /*sign=*/false, /*limit=*/10) != 0) {
    SetError("Invalid timeout value [%s]", seconds.GetText());
    return;
  }
  statusTimeout = value * 1000U;  // Milliseconds. Wraps from 4294968 seconds on, which is 50 days.
}

void CryptClient::SetTransaction(const AnsiStr& newTransaction) noexcept {
  transaction = newTransaction;
}

bool CryptClient::GetCertAuth() const noexcept {
  return certAuth;
}

const AnsiStr& CryptClient::GetErrorMessage() const noexcept {
  return errorMessage;
}

KVMap CryptClient::GetKeyHandle(const AnsiStr& id, const AnsiStr& subId) noexcept {
  KVMap handle;
  handle.Put("type", "handle");
  handle.Put("id", id);
  handle.Put("subId", subId);
  return handle;
}

void CryptClient::SetError(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  Record(errorMessage, format, arguments);
  va_end(arguments);
}

bool CryptClient::Fail(const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  Record(errorMessage, format, arguments);
  va_end(arguments);
  return false;
}

void CryptClient::SetHttpError(const char* method, const AnsiStr& url, const AnsiStr& message) noexcept {
  errorMessage = message;
  CRYPTCLI_TRACE_MSG(4, "CryptClient: %s %s", method, url.GetText());
  CRYPTCLI_TRACE_MSG(4, "CryptClient: Error: %s", errorMessage.GetText());
}

// The system error text is the innermost reason: file and security operations leave it in the error state,
// and so does SignHash when the security library has called back.
bool CryptClient::FailWithSystemError(const char* what) noexcept {
  return Fail("%s: %s", what, OruGuiBase::GetSystemErrorText().GetText());
}

}  // namespace OruKalvix
