#pragma once

#include <cryptcli/cryptcli.hpp>

#include "tools/report.h"

namespace CryptCli {

/// The origin in a few words: "origin proven", "signed for another room".
const char* NameOrigin(cryptcli::Origin origin);

/// Adds to the report who signed the content and for which room and group, and a warning if the origin is not
/// proven. `all` adds what is of interest to somebody who looks closer: the signer's chain, the room's URL,
/// and what the crypt service named.
void ShowOrigin(Report& report, const cryptcli::Report& found, bool all);

/// Adds the room that content was protected for, and its size.
void ShowRoom(Report& report, const cryptcli::Report& made);

/// The same as ShowOrigin, with everything, as the explanation of an error.
void ExplainOrigin(Report& report, const cryptcli::Report& found);

}  // namespace CryptCli
