#include "foundation/errorstate.h"

#include <cerrno>
#include <cstring>

#include "foundation/thread_value.h"

namespace OruGuiBase {

namespace {

// The code has no destructor and so lasts as long as its thread; the text goes with the thread's objects.
constinit thread_local std::uint32_t lastError = 0;

struct MessageOwner;  // tells this AnsiStr of a thread from others

// The message of kTextError; null once it is destroyed.
AnsiStr* GetMessage() {
  return ThreadValue<MessageOwner, AnsiStr>::Get();
}

AnsiStr CopyMessage() {
  const AnsiStr* const message = GetMessage();
  return message != nullptr ? *message : AnsiStr();
}

void ReplaceMessage(const AnsiStr& message) {
  AnsiStr* const own = GetMessage();
  if (own != nullptr) *own = message;
}

}  // namespace

std::uint32_t GetLastError() noexcept {
  return lastError;
}

void SetLastError(std::uint32_t code) noexcept {
  lastError = code;
  if (code != kTextError) ReplaceMessage(AnsiStr());
}

void ClearLastError() noexcept {
  SetLastError(0);
  errno = 0;
}

// A failure without a code would read as a success.
void SetLastErrorFromErrno() noexcept {
  SetLastError(static_cast<std::uint32_t>(errno != 0 ? errno : EIO));
}

void SetErrorMessage(const AnsiStr& text) noexcept {
  ReplaceMessage(text);
  lastError = kTextError;
}

AnsiStr GetErrorMessage(std::uint32_t code, [[maybe_unused]] std::uint32_t language,
                        [[maybe_unused]] std::uint32_t flags) noexcept {
  if (code == kTextError) return CopyMessage();
  char buffer[256];
  return {strerror_r(static_cast<int>(code), buffer, sizeof buffer)};
}

AnsiStr GetSystemErrorText() noexcept {
  std::uint32_t code = GetLastError();
  if (code == 0) code = static_cast<std::uint32_t>(errno);
  // Asked for after a failure: neither "Success" nor silence would be the truth.
  const AnsiStr text = code != 0 ? GetErrorMessage(code, 0, 1) : AnsiStr();
  return text.IsEmpty() ? AnsiStr("Unknown error") : text;
}

}  // namespace OruGuiBase
