#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace OruKalvix {

/// Reads the members of a JSON object that somebody else made: a response, its headers, the arguments of an
/// operation. A member that is missing or has another type is reported to the trace and reads as the empty
/// value of its type. What an empty value means is decided by the operation that asked. Keeps the object
/// alive by sharing it.
class MemberReader {
 public:
  explicit MemberReader(const OruGuiBase::KVMap& object) noexcept : object_(object) {}

  OruGuiBase::AnsiStr String(const char* name) const noexcept { return object_.Get(name).AsString(); }
  OruGuiBase::Array<OruGuiBase::Val> List(const char* name) const noexcept {
    return object_.Get(name).AsArray();
  }
  OruGuiBase::KVMap Object(const char* name) const noexcept { return object_.Get(name).AsMap(); }
  std::int64_t Integer(const char* name) const noexcept { return object_.Get(name).AsInteger(); }
  bool Flag(const char* name) const noexcept { return object_.Get(name).AsBool(); }
  /// The first element of a list of strings.
  OruGuiBase::AnsiStr FirstString(const char* name) const noexcept {
    const OruGuiBase::Array<OruGuiBase::Val> list = List(name);
    return list[0].AsString();
  }

 private:
  OruGuiBase::KVMap object_;
};

}  // namespace OruKalvix
