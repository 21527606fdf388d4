#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

#include "stand/http.h"
#include "stand/store.h"

namespace CryptStand {

/// Which audit log is wanted.
struct AuditLogSpec {
  int server = 0;
  std::string group;
  /// Records that are made up and put behind the real ones, so that a log can be as large as a test needs.
  std::uint64_t generated = 0;
};

/// The audit log of one key server for one group as CSV: a header line and a record for each command that the
/// server carried out or refused before now. Sources read the store chunk by chunk and never hold the log.
std::function<BodySource()> OpenAuditLog(Store& store, const AuditLogSpec& spec);

/// ISO 8601 in universal time, to the second.
std::string AuditTime(std::time_t time);

}  // namespace CryptStand
