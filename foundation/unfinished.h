#pragma once

#include "foundation/export.h"

namespace OruGuiBase {

/// Removes all temporary and staging files of this process. From then on it refuses to make others: attempts
/// fail with ECANCELED. For a program that must end while operations run, for example because of a signal:
/// the operations fail, and what they wrote so far is removed. Call it from a thread, not from a signal
/// handler. It waits at most about one second for threads that are making a file. If a file system hangs
/// while a file is removed, it waits until that ends.
///
/// A child of fork() inherits the list but does not own the files: it removes only those that it made itself.
/// A child that is forked while other threads make or remove files may wait forever when it makes or removes
/// files itself.
///
/// A file that is being written in place, such as a target that cannot be replaced, stays as it is at that
/// moment.
ORUGUI_EXPORT void RemoveUnfinishedFiles() noexcept;

}  // namespace OruGuiBase
