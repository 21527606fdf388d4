#pragma once

#include <string>

#include "foundation/val.h"
#include "fuzz/support/input.h"

// Changes to good values, as fuzz data chooses them.
namespace Fuzz {

/// Changes a few places of a string: sets, flips, removes, repeats or inserts bytes, or truncates it.
void Mutate(std::string& text, Input& input);
/// Replaces one value inside a JSON value, at any depth, by one that the input chooses.
OruGuiBase::Val MutateJson(const OruGuiBase::Val& value, Input& input);
/// A JSON value that the input chooses.
OruGuiBase::Val MakeJson(Input& input);

}  // namespace Fuzz
