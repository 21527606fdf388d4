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

// Formatted before anything is dropped: the present message may be one of the arguments.
void Record(AnsiStr& message, const char* format, std::va_list arguments) noexcept {
  const AnsiStr text = OruGuiBase::FmtList(format, arguments);
  message = text;
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
  statusTimeout = value * 1000U;  // Wraps from 4294968 seconds on; nobody waits for 50 days.
}

void CryptClient::SetTransaction(const AnsiStr& text) noexcept {
  transaction = text;
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

bool CryptClient::FailWithSystemError(const char* what) noexcept {
  return Fail("%s: %s", what, OruGuiBase::GetSystemErrorText().GetText());
}

}  // namespace OruKalvix
