#pragma once

#include "foundation/export.h"

namespace OruGuiBase {

/// Removes every temporary and every staging file that this process has on the disk, and from then on refuses
/// to make another: attempts fail with ECANCELED. For a program that is about to end while operations run,
/// for instance because of a signal: they fail, and what they had written is gone. Call it from a thread, not
/// from a signal handler. It waits at most about a second for threads that are making a file; a file system
/// that hangs while a file is removed makes it wait for as long as that takes.
///
/// A child of fork() inherits the list but not the files: it removes only those that it made itself. A child
/// that is forked while other threads make or remove files may wait forever for them when it does the same.
///
/// What is written in place, such as a target that cannot be replaced, stays as it is at that moment.
ORUGUI_EXPORT void RemoveUnfinishedFiles() noexcept;

}  // namespace OruGuiBase
