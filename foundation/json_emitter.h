#pragma once

#include "foundation/ansistr.h"
#include "foundation/val.h"

namespace OruGuiBase {

/// Writes a value as compact JSON to `text`. False with the reason in `error`; `text` then stays as it is.
bool EmitJSON(const Val& value, AnsiStr& text, AnsiStr& error) noexcept;

}  // namespace OruGuiBase
