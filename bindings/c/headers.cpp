#include "bindings/c/headers.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

// The name as the map spells it; null if it does not have it.
const AnsiStr* FindHeader(const KVMap& headers, const AnsiStr& name) {
  for (const AnsiStr& known : headers.GetKeys()) {
    if (AnsiStr::Compare(known, name, /*ignoreCase=*/true) == 0) return &known;
  }
  return nullptr;
}

}  // namespace

bool HasHeader(const KVMap& headers, const AnsiStr& name) {
  return FindHeader(headers, name) != nullptr;
}

AnsiStr GetHeader(const KVMap& headers, const AnsiStr& name) {
  const AnsiStr* const known = FindHeader(headers, name);
  return known != nullptr ? headers.Get(*known).AsString() : AnsiStr();
}

void PutHeader(KVMap& headers, const AnsiStr& name, const AnsiStr& value) {
  const AnsiStr* const known = FindHeader(headers, name);
  // A copy: the map may move its keys.
  const AnsiStr spelling = known != nullptr ? *known : name;
  headers.Put(spelling, value);
}

}  // namespace CryptCliC
