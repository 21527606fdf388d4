#pragma once

#include <string>

#include "stand/stand.h"

namespace CryptStand {

/// Says on standard output that the program starts, before anything that takes long.
void PrintStart(const Options& options);
/// Warns on standard error if other machines may reach the servers.
void WarnOfOthers(const Options& options);
/// Prints the addresses, and how to use them with the command. Once the servers are up. Under a service
/// manager the token is not printed.
void PrintBanner(const Stand& stand, const Options& options);
/// Addresses, rooms, token and paths as a JSON object on one line.
std::string DescribeUrls(const Stand& stand, const Options& options);

}  // namespace CryptStand
