#pragma once

#include <string>

namespace CryptStand {

/// Writes a file that only its owner can read and write, mode 0600 whatever it was before. It appears as a
/// whole: under another name first, which is then changed. False with the reason in `error`.
bool WritePrivateFile(const std::string& path, const std::string& content, std::string& error);

}  // namespace CryptStand
