#pragma once

#include <string>

namespace CryptStand {

/// The version of cryptstand, which is that of the project.
std::string GetVersion();
/// The same and those of the libraries that it runs with, a line for each: "cryptstand 1.0.0",
/// "OpenSSL 3.0.17".
std::string DescribeVersion();

}  // namespace CryptStand
