#pragma once

#include <ostream>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/dates.h"

namespace OruGuiBase {

// Used by the test framework to print an unexpected value.
inline void PrintTo(const AnsiStr& text, std::ostream* out) {
  *out << '"' << text.View() << '"';
}

inline void PrintTo(const datetime& value, std::ostream* out) {
  *out << DateTime2ISOStr(value, nullptr, nullptr).View();
}

// The elements in a container that the test framework's matchers know.
template <class T>
std::vector<T> ElementsOf(const Array<T>& array) {
  return {array.begin(), array.end()};
}

// The elements that fit the block of an array; 0 without a block.
template <class T>
std::uint32_t CapacityOf(const Array<T>& array) {
  return array.GetImp() != nullptr ? array.GetImp()->capacity : 0;
}

}  // namespace OruGuiBase
