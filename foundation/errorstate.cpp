// The error state of a thread: a code and, for kTextError, a message. Operations of this library and of those
// above it set it when they fail (SetErrorMessage, FailWithErrno); the class that reports the failure reads
// it once.

#include "foundation/errorstate.h"

#include <cerrno>
#include <cstring>

#include "foundation/thread_value.h"

namespace OruGuiBase {

namespace {

// The code has no destructor, so it lasts as long as its thread; the message is destroyed with the thread's
// objects.
constinit thread_local std::uint32_t lastError = 0;

struct MessageOwner;  // distinguishes this AnsiStr of a thread from others

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

// Not 0, even if errno is: the code 0 means no error.
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
  // Callers ask after a failure, so neither "Success" nor an empty string would be true.
  const AnsiStr text = code != 0 ? GetErrorMessage(code, 0, 1) : AnsiStr();
  return text.IsEmpty() ? AnsiStr("Unknown error") : text;
}

}  // namespace OruGuiBase
