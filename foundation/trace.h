#pragma once

#include <cstdint>

#include "foundation/export.h"

namespace OruGuiTrace {

/// Receives trace events. Called on the thread that traces, so it must be safe for use by many threads.
///
/// Bodies of requests and responses are traced whole at level 2, passwords, tokens and plain keys included:
/// what a sink stores of that level is as secret as the keys themselves. An exception of a sink loses the
/// event and no more; what it does to the error state is undone.
class ITraceSink {
 public:
  /// One event. `source` and `text` are valid during the call. Of a traced line that holds a NUL byte, `text`
  /// has what stands before it.
  virtual void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
                       const char* text) = 0;

 protected:
  ~ITraceSink() = default;
};

/// Installs the sink of the process; null takes it away. Events below `leastLevel` are not even formatted.
/// Levels: 1 an HTTP request line, 2 bodies and other long texts, 4 errors. The sink must outlive its
/// installation and any event in progress. A sink that is still installed when the process exits gets events
/// until the last static object is gone, those of the library's own unloading among them.
ORUGUI_EXPORT void SetTraceSink(ITraceSink* sink, std::uint32_t leastLevel) noexcept;

/// Whether an event of the level would reach a sink. Ask before formatting.
ORUGUI_EXPORT bool IsTraced(std::uint32_t level) noexcept;

/// Formats a text for the TraceMsg or TraceStr call that follows and returns it. It is valid until
/// FreeTraceContext(), which is to be called after each trace. What a thread leaves open ends with the
/// thread.
ORUGUI_EXPORT const char* InitTraceContext(const char* format, ...) noexcept
    __attribute__((format(printf, 1, 2)));
/// Records an event.
ORUGUI_EXPORT void TraceMsg(std::uint32_t category, std::uint32_t level, const char* source,
                            std::uint32_t line, const char* text) noexcept;
/// Records a text.
ORUGUI_EXPORT void TraceStr(std::uint32_t category, std::uint32_t level, const char* source,
                            std::uint32_t line, const char* text) noexcept;
/// Ends the context of this thread's latest InitTraceContext().
ORUGUI_EXPORT void FreeTraceContext() noexcept;

}  // namespace OruGuiTrace
