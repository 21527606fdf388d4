#pragma once

#include "foundation/export.h"

namespace OruGuiBase {

/// Removes every temporary and every staging file that this process has on the disk, and from then on refuses
/// to make another: attempts fail with ECANCELED. For a program that is about to end while operations run,
/// for instance because of a signal: they fail, and what they had written is gone. Call it from a thread, not
/// from a signal handler. It waits at most about a second for a file system that does not answer.
///
/// What is written in place, such as a target that cannot be replaced, stays as it is at that moment.
ORUGUI_EXPORT void RemoveUnfinishedFiles() noexcept;

}  // namespace OruGuiBase
