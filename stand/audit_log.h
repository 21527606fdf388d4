#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

#include "stand/http.h"
#include "stand/store.h"

namespace CryptStand {

/// Which audit log to produce.
struct AuditLogSpec {
  int server = 0;
  std::string group;
  /// Number of made-up records after the real ones, so that a log can be as large as a test needs.
  std::uint64_t generated = 0;
};

/// The audit log of one key server for one group as CSV: a header line and a record for each command that the
/// server carried out or refused before now. Each source reads the store chunk by chunk; `store` must outlive
/// it.
std::function<BodySource()> OpenAuditLog(Store& store, const AuditLogSpec& spec);

/// ISO 8601 in UTC, to the second.
std::string AuditTime(std::time_t time);

}  // namespace CryptStand
