// Turns failures into a reason in the thread's error state. Every source of security/ fails through it, so
// that users never read OpenSSL's numbers, and the same cause reads the same everywhere.
#include "security/failure.h"

#include <cerrno>
#include <openssl/err.h>

#include "foundation/ansistr.h"
#include "foundation/errorstate.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;

// An entry of OpenSSL's queue. `data` is owned by the queue and valid until it is cleared.
struct QueuedError {
  unsigned long code = 0;
  const char* data = "";
  int flags = 0;
};

// Whether the entry only names the library that passed a failure on, or says that there is a nested one.
bool IsPassedOn(unsigned long code) {
  const int reason = ERR_GET_REASON(code);
  return reason == ERR_R_NESTED_ASN1_ERROR ||
         ((reason & ERR_RFLAG_COMMON) != 0 && (reason & 0xFF) == reason - ERR_RFLAG_COMMON);
}

// How much an entry says; higher is more. First what the system or the allocator refused, then reasons of one
// library, then those that all libraries share, such as "unsupported". 0 says nothing.
constexpr int kSystemRank = 3;
int Rank(unsigned long code) {
  if (ERR_SYSTEM_ERROR(code) || ERR_GET_REASON(code) == ERR_R_MALLOC_FAILURE) return kSystemRank;
  if (ERR_reason_error_string(code) == nullptr || IsPassedOn(code)) return 0;
  return (ERR_GET_REASON(code) & ERR_RFLAG_COMMON) != 0 ? 1 : 2;
}

// The innermost error comes first in the queue. Among entries of equal rank it is the cause, so it is kept.
QueuedError TakeMostUseful() {
  QueuedError best;
  QueuedError next;
  while ((next.code = ERR_get_error_all(nullptr, nullptr, nullptr, &next.data, &next.flags)) != 0) {
    const int least = best.code != 0 ? Rank(best.code) : 0;
    if (Rank(next.code) > least) best = next;
  }
  return best;
}

// A shared reason says nothing without OpenSSL's remark, such as the name of an algorithm.
AnsiStr Describe(const QueuedError& error) {
  AnsiStr reason(ERR_reason_error_string(error.code));
  if (Rank(error.code) == 1 && (error.flags & ERR_TXT_STRING) != 0 && error.data[0] != '\0') {
    reason += ": ";
    reason += error.data;
  }
  return reason;
}

}  // namespace

OpenSSLScope::OpenSSLScope() noexcept {
  OruGuiBase::ClearLastError();
  ERR_clear_error();
}

OpenSSLScope::~OpenSSLScope() {
  ERR_clear_error();
}

bool FailWith(const char* reason) noexcept {
  if (OruGuiBase::GetLastError() == 0) OruGuiBase::SetErrorMessage(reason);
  return false;
}

bool FailWithoutMemory() noexcept {
  if (OruGuiBase::GetLastError() == 0) OruGuiBase::SetLastError(ENOMEM);
  return false;
}

bool FailWithOpenSSL(const char* fallback) noexcept {
  bool refused = false;
  return FailWithOpenSSL(fallback, refused);
}

bool FailWithOpenSSL(const char* fallback, bool& refused) noexcept {
  const QueuedError error = TakeMostUseful();
  refused = error.code != 0 && Rank(error.code) < kSystemRank;
  if (OruGuiBase::GetLastError() != 0) return false;
  if (error.code == 0) return FailWith(fallback);
  if (ERR_GET_REASON(error.code) == ERR_R_MALLOC_FAILURE) return FailWithoutMemory();
  if (ERR_SYSTEM_ERROR(error.code)) {
    OruGuiBase::SetLastError(static_cast<std::uint32_t>(ERR_GET_REASON(error.code)));
  } else {
    OruGuiBase::SetErrorMessage(Describe(error));
  }
  return false;
}

}  // namespace OruOssSec
