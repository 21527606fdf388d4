#pragma once

#include "foundation/ansistr.h"
#include "foundation/file.h"

namespace OruKalvix {

/// Makes the temporary file of an operation, for its owner alone, and drops what `tempFile` held before.
/// False, with the reason in the error state, when it cannot be made.
bool CreateTempFile(OruGuiBase::TempFile& tempFile, const OruGuiBase::AnsiStr& name, bool isPrivate) noexcept;

}  // namespace OruKalvix
