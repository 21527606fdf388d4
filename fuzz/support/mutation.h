#pragma once

#include <string>

#include "foundation/val.h"
#include "fuzz/support/input.h"

// Changes that fuzz data makes to good values.
namespace Fuzz {

/// Changes a few places of a text: bytes set, flipped, taken out, doubled or put in, or the text cut.
void Mutate(std::string& text, Input& input);
/// Replaces one place of a JSON value, at any depth, by a value that the input chooses.
OruGuiBase::Val MutateJson(const OruGuiBase::Val& value, Input& input);
/// A JSON value that the input chooses.
OruGuiBase::Val MakeJson(Input& input);

}  // namespace Fuzz
