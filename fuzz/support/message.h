#pragma once

#include "security/cmsmsg.h"

namespace Fuzz {

/// Fails unless the error state has a reason for the latest failure.
void RequireReason();

/// Calls every reading function of a loaded message and checks what must hold for any message. It sets keys,
/// so the message cannot be used for anything else.
void ExerciseMessage(OruOssSec::CMSMsg& message);

}  // namespace Fuzz
