#include "foundation/report.h"

#include <cstdarg>
#include <cstdio>

#include "foundation/trace.h"

namespace OruGuiBase {

// Formats on the stack, without InitTraceContext, which would allocate.
void ReportError(std::uint32_t line, const char* format, ...) noexcept {
  constexpr std::uint32_t kErrorLevel = 4;  // the level that trace.h gives to errors
  if (!OruGuiTrace::IsTraced(kErrorLevel)) return;
  char message[256];
  std::va_list list;
  va_start(list, format);
  std::vsnprintf(message, sizeof message, format, list);
  va_end(list);
  OruGuiTrace::TraceMsg(kTraceCategory, kErrorLevel, kTraceSource, line, message);
}

}  // namespace OruGuiBase
