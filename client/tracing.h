#pragma once

#include <cstdint>

#include "foundation/trace.h"

// Private to the client: its trace points. Arguments are evaluated and formatted only while a listener is
// installed that wants the level.
namespace OruKalvix {

inline constexpr std::uint32_t kTraceCategory = 4096;
inline constexpr const char* kTraceSource = "cryptcli";

// NOLINTBEGIN(cppcoreguidelines-macro-usage): the line of the trace point, and arguments that stay
// unevaluated
#define CRYPTCLI_TRACE_WITH(operation, level, ...)                                          \
  do {                                                                                      \
    if (OruGuiTrace::IsTraced(level)) {                                                     \
      OruGuiTrace::operation(::OruKalvix::kTraceCategory, level, ::OruKalvix::kTraceSource, \
                             static_cast<std::uint32_t>(__LINE__),                          \
                             OruGuiTrace::InitTraceContext(__VA_ARGS__));                   \
      OruGuiTrace::FreeTraceContext();                                                      \
    }                                                                                       \
  } while (false)
/// An event: an error (level 4).
#define CRYPTCLI_TRACE_MSG(level, ...) CRYPTCLI_TRACE_WITH(TraceMsg, level, __VA_ARGS__)
/// A string: a request line (level 1), a line of a body or the name of a certificate (level 2).
#define CRYPTCLI_TRACE_STR(level, ...) CRYPTCLI_TRACE_WITH(TraceStr, level, __VA_ARGS__)
// NOLINTEND(cppcoreguidelines-macro-usage)

}  // namespace OruKalvix
