// CSV for the audit logs, the only place where the servers write it.
#include "stand/csv.h"

namespace CryptStand {
namespace {

void AppendField(std::string& record, std::string_view field) {
  if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
    record += field;
    return;
  }
  record += '"';
  for (const char character : field) record.append(character == '"' ? 2 : 1, character);
  record += '"';
}

}  // namespace

std::string CsvRecord(std::initializer_list<std::string_view> fields) {
  std::string record;
  bool isFirst = true;
  for (const std::string_view field : fields) {
    if (!isFirst) record += ',';
    isFirst = false;
    AppendField(record, field);
  }
  return record + '\n';
}

}  // namespace CryptStand
