#include "foundation/errorstate.h"

#include <cerrno>
#include <cstring>

#include "foundation/error_state_saver.h"
#include "foundation/thread_value.h"

namespace OruGuiBase {

namespace {

// The code has no destructor and so lasts as long as its thread; the text goes with the thread's objects.
constinit thread_local std::uint32_t lastError = 0;

// The text of kTextError; null once it is gone.
AnsiStr* GetText() {
  return ThreadValue<ErrorStateSaver, AnsiStr>::Get();
}

AnsiStr CopyText() {
  const AnsiStr* const text = GetText();
  return text != nullptr ? *text : AnsiStr();
}

void ReplaceText(const AnsiStr& text) {
  AnsiStr* const own = GetText();
  if (own != nullptr) *own = text;
}

}  // namespace

std::uint32_t GetLastError() noexcept {
  return lastError;
}

void SetLastError(std::uint32_t code) noexcept {
  lastError = code;
  if (code != kTextError) ReplaceText(AnsiStr());
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
  ReplaceText(text);
  lastError = kTextError;
}

AnsiStr GetErrorMessage(std::uint32_t code, [[maybe_unused]] std::uint32_t language,
                        [[maybe_unused]] std::uint32_t flags) noexcept {
  if (code == kTextError) return CopyText();
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

ErrorStateSaver::ErrorStateSaver() noexcept : code_(lastError), errno_(errno), text_(CopyText()) {}

ErrorStateSaver::~ErrorStateSaver() {
  lastError = code_;
  ReplaceText(text_);
  errno = errno_;
}

}  // namespace OruGuiBase
