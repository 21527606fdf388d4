// Parses the input as JSON. A valid value is written and parsed again: both values must be equal, and both
// strings.
#include <bit>
#include <cstdint>
#include <string>

#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;

bool IsEqual(const Val& a, const Val& b);

// By index, since the order of members belongs to the value. A lookup of each key shows that the buckets,
// which the parser fills by a way of its own, agree with the arrays.
bool IsEqualMap(const KVMap& a, const KVMap& b) {
  if (a.GetCount() != b.GetCount()) return false;
  for (std::uint32_t i = 0; i < a.GetCount(); ++i) {
    if (a.GetKeys()[i] != b.GetKeys()[i] || !IsEqual(a.GetValues()[i], b.GetValues()[i])) return false;
    Fuzz::Require(a.Find(a.GetKeys()[i]) == i, "a key is found at its one place");
  }
  return true;
}

bool IsEqualArray(const Array<Val>& a, const Array<Val>& b) {
  if (a.GetCount() != b.GetCount()) return false;
  for (std::uint32_t i = 0; i < a.GetCount(); ++i) {
    if (!IsEqual(a[i], b[i])) return false;
  }
  return true;
}

bool IsEqual(const Val& a, const Val& b) {
  if (a.GetType() != b.GetType()) return false;
  switch (a.GetType()) {
    case ValType::Nil:
      return true;
    case ValType::Bool:
      return a.AsBool() == b.AsBool();
    case ValType::Integer:
      return a.AsInteger() == b.AsInteger();
    case ValType::Number:
      // By bits, since -0 and 0 compare as equal but are written differently.
      return std::bit_cast<std::uint64_t>(a.AsNumber()) == std::bit_cast<std::uint64_t>(b.AsNumber());
    case ValType::String:
      return a.AsString() == b.AsString();
    case ValType::Map:
      return IsEqualMap(a.AsMap(), b.AsMap());
    case ValType::Array:
      return IsEqualArray(a.AsArray(), b.AsArray());
    default:
      Fuzz::Require(false, "JSON has only the types above");
      return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Val value("untouched");
  AnsiStr error;
  if (!OruGuiBase::JSON2Val(Fuzz::Ansi(Fuzz::View(data, size)), value, error)) {
    Fuzz::Require(!error.IsEmpty(), "input that is refused has a reason");
    Fuzz::Require(value.GetType() == ValType::String && value.AsString() == "untouched",
                  "a failure leaves the value alone");
    return 0;
  }
  AnsiStr text;
  Fuzz::Require(OruGuiBase::Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true),
                "what loads can be written");
  Val again;
  Fuzz::Require(OruGuiBase::JSON2Val(text, again, error), "what was written can be loaded");
  Fuzz::Require(IsEqual(value, again), "what was written loads as the same value");
  AnsiStr second;
  Fuzz::Require(
      OruGuiBase::Val2JSON(again, second, error, /*pretty=*/false, /*strict=*/true) && second == text,
      "the same value is written the same");
  return 0;
}
