// A key server's audit log as CSV, produced in chunks while it is sent: tests ask for logs of gigabytes.
// Called by the command getAuditLogRequest.
#include "stand/audit_log.h"

#include <algorithm>

#include "stand/csv.h"

namespace CryptStand {
namespace {

constexpr std::int64_t kChunk = 500;                 // records in one chunk of the body
constexpr std::time_t kFirstGenerated = 1704067200;  // 2024-01-01: made-up records are always the same

std::string GeneratedRecord(std::uint64_t number, const std::string& server, const std::string& group) {
  constexpr const char* kOperations[] = {"generateWrappedKeyRequest", "getKeyRequest", "signRequest",
                                         "decryptRequest"};
  const std::string digits = std::to_string(number);
  // Now and then a name that CSV has to quote.
  const std::string room = number % 100 == 0 ? "Room \"" + digits + "\", generated" : "room-" + digits;
  const auto seconds = static_cast<std::time_t>(number % (3650ULL * 86400));
  return CsvRecord({AuditTime(kFirstGenerated + seconds), server, group, kOperations[number % 4], room, "",
                    number % 17 == 0 ? "607 no such key" : "ok"});
}

// One pass over a log: the header line, the stored records, then the made-up ones. Records after `last` are
// ignored, so that each pass over an opened log gives the same bytes.
class AuditLogSource {
 public:
  AuditLogSource(Store& store, const AuditLogSpec& spec, std::int64_t last)
      : store_(&store), spec_(spec), server_(std::to_string(spec.server)), last_(last) {}

  std::string operator()() {
    if (!begun_) {
      begun_ = true;
      return CsvRecord({"time", "server", "group", "operation", "room", "key", "outcome"});
    }
    std::string chunk = KeptRecords();
    return chunk.empty() ? GeneratedRecords() : chunk;
  }

 private:
  std::string KeptRecords() {
    std::string chunk;
    if (after_ >= last_) return chunk;
    const auto records = store_->GetAudit(spec_.server, spec_.group, after_, last_, kChunk);
    for (const AuditRecord& record : records) {
      chunk += CsvRecord(
          {record.time, server_, record.group, record.operation, record.room, record.key, record.outcome});
    }
    after_ = records.empty() ? last_ : records.back().number;
    return chunk;
  }
  std::string GeneratedRecords() {
    std::string chunk;
    const std::uint64_t end = std::min(generated_ + std::uint64_t{kChunk}, spec_.generated);
    while (generated_ < end) chunk += GeneratedRecord(++generated_, server_, spec_.group);
    return chunk;
  }

  Store* store_;
  AuditLogSpec spec_;
  std::string server_;
  std::int64_t last_;
  std::int64_t after_ = 0;
  std::uint64_t generated_ = 0;
  bool begun_ = false;
};

}  // namespace

std::function<BodySource()> OpenAuditLog(Store& store, const AuditLogSpec& spec) {
  return [&store, spec, last = store.GetLastAudit()] { return AuditLogSource(store, spec, last); };
}

std::string AuditTime(std::time_t time) {
  std::tm fields = {};
  gmtime_r(&time, &fields);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields)};
}

}  // namespace CryptStand
