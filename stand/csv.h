#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace CryptStand {

/// One record of comma-separated values (RFC 4180), but ended by a line feed alone. A field is quoted where a
/// comma, a quote or a line break in it asks for that.
std::string CsvRecord(std::initializer_list<std::string_view> fields);

}  // namespace CryptStand
