#include "bindings/c/call.h"

#include <new>

#include "bindings/c/boundary.h"

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
    const bool isKnown = policy >= CRYPTCLI_ACCEPT_PROVEN && policy <= CRYPTCLI_ACCEPT_ANYTHING;
    if (call == nullptr || !isKnown) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "Unknown policy");
    call->accept = policy;
    return CRYPTCLI_OK;
  });
}

void cryptcli_call_set_progress(cryptcli_call* call, cryptcli_progress_callback callback, void* context) {
  if (call == nullptr) return;
  call->progress = callback;
  call->progressContext = context;
}

void cryptcli_call_cancel(cryptcli_call* call) {
  if (call != nullptr) call->cancelled.store(true, std::memory_order_relaxed);
}
