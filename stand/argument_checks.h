#pragma once

#include <string>

namespace CryptStand {

/// Checks of the program's arguments before anything is tried. Each returns why the value cannot be used, or
/// an empty string. A reason never has the value of what may be a secret.
std::string CheckFolder(const std::string& path);
std::string CheckListen(const std::string& address);
std::string CheckAnnounce(const std::string& host);
std::string CheckAllowedHost(const std::string& host);
std::string CheckRequiredHeader(const std::string& line);
std::string CheckRoom(const std::string& id);
std::string CheckClientCa(const std::string& path);
std::string CheckControlToken(const std::string& token);
std::string CheckSeed(const std::string& number);

}  // namespace CryptStand
