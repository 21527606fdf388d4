#include "foundation/error_state_saver.h"

#include "foundation/errorstate.h"

namespace OruGuiBase {

ErrorStateSaver::ErrorStateSaver() noexcept : code_(GetLastError()) {
  if (code_ == kTextError) message_ = GetErrorMessage(code_, 0, 1);
}

// Only the code and the message: the member errno_ puts errno back after this body.
ErrorStateSaver::~ErrorStateSaver() {
  if (code_ == kTextError) {
    SetErrorMessage(message_);
  } else {
    SetLastError(code_);
  }
}

}  // namespace OruGuiBase
