#pragma once

#include <string>

#include "stand/stand.h"

namespace CryptStand {

/// Says on standard output that the program starts, before anything that takes long.
void PrintStart(const Options& options);
/// Warns on standard error if other machines may reach the servers.
void WarnOfOthers(const Options& options);
/// Prints the addresses, and how to use them with the command. Once the servers are up.
void PrintBanner(const Stand& stand, const Options& options);
/// Writes addresses, rooms, token and paths as a JSON object that only the owner can read. The file appears
/// as a whole, so that a waiting script never reads half of it. False if it cannot be written.
bool WriteUrls(const Stand& stand, const Options& options, const std::string& path);

}  // namespace CryptStand
