#pragma once

#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/blob.h"
#include "foundation/datetime.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"

namespace TestSupport {

inline std::string Str(const OruGuiBase::AnsiStr& text) {
  return std::string(text.View());
}
inline OruGuiBase::AnsiStr Ansi(std::string_view text) {
  return OruGuiBase::AnsiStr(text);
}

/// A map or value as JSON, which shows members in their order. Fails the test if it has no such form.
std::string JsonText(const OruGuiBase::Val& value);
std::string JsonText(const OruGuiBase::KVMap& map);

/// The map in a JSON document. Fails the test if it is none.
OruGuiBase::KVMap Map(std::string_view json);

/// An array of string values.
OruGuiBase::Array<OruGuiBase::Val> Strings(std::initializer_list<std::string_view> texts);

/// A JSON string literal with its quotes.
std::string Quoted(std::string_view text);

OruGuiBase::Blob Bytes(std::string_view bytes);
std::string Str(const OruGuiBase::Blob& bytes);

std::string ToBase64(std::string_view bytes);
/// The bytes of a base64 string. Fails the test if it is none.
std::string FromBase64(std::string_view text);

}  // namespace TestSupport

namespace OruGuiBase {

// How GoogleTest prints these when a comparison fails.
inline void PrintTo(const AnsiStr& text, std::ostream* out) {
  *out << '"' << text.View() << '"';
}
inline void PrintTo(const datetime& value, std::ostream* out) {
  *out << value.year << '-' << value.month << '-' << value.day << ' ' << value.hour << ':' << value.minute
       << ':' << value.second;
}

}  // namespace OruGuiBase
