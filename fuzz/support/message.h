#pragma once

#include "security/cmsmsg.h"

namespace Fuzz {

/// The reason of the failure that was just met; fails when there is none.
void RequireReason();

/// Asks a loaded message for all that it can tell and give, and checks what has to hold whatever it is. The
/// message is used up: keys are set.
void ExerciseMessage(OruOssSec::CMSMsg& message);

}  // namespace Fuzz
