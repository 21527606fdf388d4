#pragma once

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

// Headers of a request, a map from names to strings. Names that differ in case alone are one header
// (RFC 9110, section 5.1), while the map compares bytes.
namespace CryptCliC {

/// Whether a header of that name is there.
bool HasHeader(const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& name);
/// The value of the header of that name; empty if it is not there.
OruGuiBase::AnsiStr GetHeader(const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& name);
/// Adds a header, or replaces the value of the one of that name, which keeps its spelling.
void PutHeader(OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& name, const OruGuiBase::AnsiStr& value);

}  // namespace CryptCliC
