#include "tools/trace_sink.h"

#include <cstdio>

#include "tools/report.h"

namespace CryptCli {

namespace {

constexpr std::uint32_t kBodyLevel = 2;

}  // namespace

TraceSink::TraceSink(int depth) noexcept : depth_(depth) {
  if (depth_ > 0) OruGuiTrace::SetTraceSink(this, 1);
}

TraceSink::~TraceSink() {
  if (depth_ > 0) OruGuiTrace::SetTraceSink(nullptr, 0);
}

void TraceSink::OnTrace(std::uint32_t, std::uint32_t level, const char* source, std::uint32_t,
                        const char* text) {
  // Errors have the highest level, so a minimum level could not leave out the bodies alone.
  if (level == kBodyLevel && depth_ < 2) return;
  // One call for the whole line: several threads may trace at the same time.
  std::fprintf(stderr, "[%s %u] %s\n", source, level, ToLine(text).GetText());
}

}  // namespace CryptCli
