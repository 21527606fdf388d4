#include "foundation/errorstate.h"

#include <cerrno>
#include <cstring>

#include "foundation/errorstate_saver.h"

namespace OruGuiBase {

namespace {

struct State {
  std::uint32_t code = 0;
  AnsiStr text;  // of kTextError
};

State& ThisThread() {
  thread_local State state;
  return state;
}

}  // namespace

std::uint32_t GetLastError() noexcept {
  return ThisThread().code;
}

void SetLastError(std::uint32_t code) noexcept {
  State& state = ThisThread();
  state.code = code;
  if (code != kTextError) state.text.Clear();
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
  State& state = ThisThread();
  state.text = text;
  state.code = kTextError;
}

AnsiStr GetErrorMessage(std::uint32_t code, [[maybe_unused]] std::uint32_t language,
                        [[maybe_unused]] std::uint32_t flags) noexcept {
  if (code == kTextError) return ThisThread().text;
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

ErrorStateSaver::ErrorStateSaver() noexcept
    : code_(GetLastError()), errno_(errno), text_(ThisThread().text) {}

ErrorStateSaver::~ErrorStateSaver() {
  State& state = ThisThread();
  state.code = code_;
  state.text = text_;
  errno = errno_;
}

}  // namespace OruGuiBase
