// Audit records in the store. Numbers only grow, so a reader can continue after the last one that it saw.
#include "stand/store.h"

namespace CryptStand {

bool Store::AddAudit(const AuditRecord& record) {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto insert = database_.Prepare(
      "INSERT INTO audit (server, group_id, time, operation, room, key, outcome) VALUES (?, ?, ?, ?, ?, ?, "
      "?)");
  insert.Bind(std::int64_t{record.server}).Bind(record.group).Bind(record.time).Bind(record.operation);
  return insert.Bind(record.room).Bind(record.key).Bind(record.outcome).Run();
}

std::int64_t Store::GetLastAudit() {
  const std::lock_guard<std::mutex> lock(mutex_);
  auto find = database_.Prepare("SELECT max(number) FROM audit");
  return find.Next() ? find.Number(0) : 0;
}

std::vector<AuditRecord> Store::GetAudit(int server, const std::string& group, std::int64_t after,
                                         std::int64_t last, std::int64_t count) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<AuditRecord> records;
  auto list = database_.Prepare(
      "SELECT number, time, operation, room, key, outcome FROM audit WHERE server = ? AND group_id = ? AND "
      "number > ? AND number <= ? ORDER BY number LIMIT ?");
  list.Bind(std::int64_t{server}).Bind(group).Bind(after).Bind(last).Bind(count);
  while (list.Next()) {
    records.push_back({list.Number(0), server, group, list.Text(1), list.Text(2), list.Text(3), list.Text(4),
                       list.Text(5)});
  }
  return records;
}

}  // namespace CryptStand
