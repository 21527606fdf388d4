#pragma once

#include <cstdint>

namespace OruGuiBase {

/// Category and source name of the foundation's own trace events.
inline constexpr std::uint32_t kTraceCategory = 4096;
inline constexpr const char* kTraceSource = "orugui";

/// Traces an error of the foundation itself. Allocates nothing, because a failed allocation is one of the
/// errors; a message is cut after 255 bytes.
void ReportError(std::uint32_t line, const char* format, ...) noexcept __attribute__((format(printf, 2, 3)));

}  // namespace OruGuiBase
