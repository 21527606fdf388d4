#pragma once

#include <string_view>

namespace CryptCli {

/// Writes one message to standard error, with the local time in milliseconds before it. For any thread.
void WriteTrace(std::string_view message);

}  // namespace CryptCli
