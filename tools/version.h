#pragma once

#include <string>

namespace CryptCli {

/// The versions of the library and of what is below it, a line for each: "cryptcli 1.0.0", "libcurl 7.88.1".
std::string DescribeVersion();
/// The same as a JSON object.
std::string DescribeVersionAsJSON();

}  // namespace CryptCli
