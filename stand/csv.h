#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace CryptStand {

/// One record of comma-separated values (RFC 4180), but with a line feed alone at its end. Fields that
/// contain a comma, a quote or a line break are quoted.
std::string CsvRecord(std::initializer_list<std::string_view> fields);

}  // namespace CryptStand
