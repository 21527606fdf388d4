#pragma once

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace CryptCli {

/// The string member of a JSON object that the library made; empty if the object does not have it.
inline OruGuiBase::AnsiStr StringOf(const OruGuiBase::KVMap& object, const char* name) {
  return object.Contains(name) ? object.Get(name).AsString() : OruGuiBase::AnsiStr();
}

}  // namespace CryptCli
