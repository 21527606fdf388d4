// Changes to strings and JSON values, chosen by the input itself and not by the fuzzer, so that a change can
// happen in the middle of an operation.
#include "fuzz/support/mutation.h"

#include <cstdint>
#include <limits>

#include "fuzz/support/text.h"

namespace Fuzz {
namespace {

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

// Few and small changes, so that the string still gets past the first checks.
constexpr std::uint32_t kMostChanges = 4;
constexpr std::uint32_t kMostPlaces = 65536;  // the largest bound that Input::Below takes
constexpr std::uint32_t kLongestChunk = 64;

void ChangePlace(std::string& text, Input& input) {
  const std::uint32_t change = input.Below(7);
  const std::size_t at = text.empty() ? 0 : input.Below(kMostPlaces) % text.size();
  switch (change) {
    case 0:
      if (!text.empty()) text[at] = static_cast<char>(input.Byte());
      break;
    case 1:
      if (!text.empty()) text[at] = static_cast<char>(text[at] ^ (1 << input.Below(8)));
      break;
    case 2:
      text.erase(at, input.Below(kLongestChunk) + 1);
      break;
    case 3:
      text.insert(at, text.substr(at, input.Below(kLongestChunk) + 1));
      break;
    case 4:
      text.insert(at, input.Text());
      break;
    case 5:
      text.resize(at);
      break;
    default:
      if (!text.empty()) text[at] = static_cast<char>(input.Flag() ? 0x7F : 0xFF);
      break;
  }
}

}  // namespace

void Mutate(std::string& text, Input& input) {
  const std::uint32_t changes = input.Below(kMostChanges) + 1;
  for (std::uint32_t i = 0; i < changes; ++i) ChangePlace(text, input);
}

Val MakeJson(Input& input) {
  switch (input.Below(9)) {
    case 0:
      return Val();
    case 1:
      return Val(Ansi(input.Text()));
    case 2:
      return Val(input.Flag());
    case 3:
      return Val(static_cast<std::int64_t>(input.Below(1000)));
    case 4:
      return Val(std::numeric_limits<std::int64_t>::min() + input.Byte());
    case 5:
      return Val(Array<Val>());
    case 6:
      return Val(Strings({input.Text()}));
    case 7:
      return Val(KVMap());
    default:
      return ParseJson(input.Text());
  }
}

// Goes into a map or an array three times out of four, since most values are deep inside.
Val MutateJson(const Val& value, Input& input) {
  const bool here = input.Below(4) == 0;
  if (value.GetType() == OruGuiBase::ValType::Map && !here && !value.AsMap().IsEmpty()) {
    KVMap map = value.AsMap();
    const std::uint32_t at = input.Below(map.GetCount());
    map.Set(map.GetKeys()[at], MutateJson(map.GetValues()[at], input));
    return Val(map);
  }
  if (value.GetType() == OruGuiBase::ValType::Array && !here && !value.AsArray().IsEmpty()) {
    Array<Val> array = value.AsArray();
    const std::uint32_t at = input.Below(array.GetCount());
    array.At(at) = MutateJson(array[at], input);
    return Val(array);
  }
  if (value.GetType() == OruGuiBase::ValType::String && !here) {
    std::string text = Str(value.AsString());
    Mutate(text, input);
    return Val(Ansi(text));
  }
  return MakeJson(input);
}

}  // namespace Fuzz
