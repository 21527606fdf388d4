#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "bindings/c/include/cryptcli/cryptcli.h"

/// The settings of one operation. Owned by the application; only `cancelled` may be changed while an
/// operation runs.
struct cryptcli_call {
  cryptcli_policy accept = CRYPTCLI_ACCEPT_PROVEN;
  std::optional<std::string> expectedRoom;  ///< never empty
  cryptcli_progress_callback progress = nullptr;
  void* progressContext = nullptr;
  std::atomic<bool> cancelled{false};
  static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may cancel");
};
