#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace OruKalvix {

/// Reads the members of a server's response. A member that is missing or of another type is reported to the
/// trace and reads as the empty value of its type: what that means is for the operation's own tests to
/// decide.
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
