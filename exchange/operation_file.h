#pragma once

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace OruKalvix {

/// Makes the temporary file of an operation and gives it to `tempFile`, which deletes it when it is
/// destroyed; a file of another path that it had before is deleted now. With `isPrivate` the file lies in a
/// directory of its own that only the owner may enter. False, with the reason in the error state, when it
/// cannot be made.
bool CreateTempFile(OruGuiBase::TempFile& tempFile, const OruGuiBase::AnsiStr& name, bool isPrivate) noexcept;

}  // namespace OruKalvix
