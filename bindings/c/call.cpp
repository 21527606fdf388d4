// The setters of a call. An operation reads a call while it runs; only cryptcli_call_cancel may then change
// it.
#include "bindings/c/call.h"

#include <new>

#include "bindings/c/boundary.h"
#include "bindings/c/text.h"

using CryptCliC::Fail;
using CryptCliC::Guarded;

cryptcli_call* cryptcli_call_new(void) {
  return new (std::nothrow) cryptcli_call;
}

void cryptcli_call_free(cryptcli_call* call) {
  delete call;
}

cryptcli_status cryptcli_call_set_accept(cryptcli_call* call, cryptcli_policy policy,
                                         cryptcli_error** error) {
  return Guarded(error, [&]() -> cryptcli_status {
    if (call == nullptr) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No call");
    const bool isKnown = policy >= CRYPTCLI_ACCEPT_PROVEN && policy <= CRYPTCLI_ACCEPT_ANYTHING;
    if (!isKnown) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "Unknown policy");
    call->accept = policy;
    return CRYPTCLI_OK;
  });
}

// Nobody signs for a room with an empty name: an empty string is more likely a setting that is missing.
cryptcli_status cryptcli_call_set_expected_room(cryptcli_call* call, const char* room,
                                                cryptcli_error** error) {
  return Guarded(error, [&]() -> cryptcli_status {
    if (call == nullptr) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No call");
    if (room == nullptr) {
      call->expectedRoom.reset();
      return CRYPTCLI_OK;
    }
    if (*room == '\0' || !CryptCliC::IsUtf8(room))
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "The expected room is empty or not UTF-8");
    call->expectedRoom = room;
    return CRYPTCLI_OK;
  });
}

void cryptcli_call_set_progress(cryptcli_call* call, cryptcli_progress_callback callback, void* context) {
  if (call == nullptr) return;
  call->progress = callback;
  call->progressContext = context;
}

// A signal handler may call this, so it only stores to a lock-free atomic.
void cryptcli_call_cancel(cryptcli_call* call) {
  if (call != nullptr) call->cancelled.store(true, std::memory_order_relaxed);
}
