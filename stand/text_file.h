#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace CryptStand {

/// Writes a file that other programs may read at any time: under another name first, with `mode` from its
/// first byte, then renamed. False with the reason in `error`.
bool WriteTextFile(const std::string& path, const std::string& text, mode_t mode, std::string& error);
/// The contents of a file; none, with the reason in `error`, if it cannot be read.
std::optional<std::string> ReadTextFile(const std::string& path, std::string& error);

}  // namespace CryptStand
