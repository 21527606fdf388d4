#include "tools/trace.h"

#include <cstdio>
#include <ctime>

#include "tools/report.h"

namespace CryptCli {

void WriteTrace(std::string_view message) {
  timespec now{};
  std::timespec_get(&now, TIME_UTC);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const OruGuiBase::AnsiStr line = ToLine(OruGuiBase::AnsiStr(message));
  // One call for the whole line: several threads may trace at the same time.
  std::fprintf(stderr, "%02d:%02d:%02d.%03ld %s\n", local.tm_hour, local.tm_min, local.tm_sec,
               now.tv_nsec / 1'000'000, line.GetText());
}

}  // namespace CryptCli
