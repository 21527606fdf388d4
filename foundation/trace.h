#pragma once

#include <cstdint>

#include "foundation/export.h"

namespace OruGuiTrace {

/// Receives trace events. Called on the thread that traces, so it must be safe for use by many threads.
///
/// Level 2 has the whole bodies of requests and responses, with passwords, tokens and plain keys: what a sink
/// stores of it is as secret as the keys themselves. If a sink throws, only this event is lost. What it does
/// to the error state is undone.
class ITraceSink {
 public:
  /// One event. `source` and `text` are valid during the call. If a traced line contains a NUL byte, `text`
  /// is the part before it.
  virtual void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
                       const char* text) = 0;

 protected:
  ~ITraceSink() = default;
};

/// Installs the sink of the process, which stays the caller's; null removes it. Events below `leastLevel` are
/// not even formatted. Levels: 1 the line of an HTTP request, 2 bodies and other long content, 4 errors. The
/// sink must live until it is removed and no event is in progress. A sink that is still installed when the
/// process exits gets events until the last static object is destroyed, including those of the library's own
/// unloading.
ORUGUI_EXPORT void SetTraceSink(ITraceSink* sink, std::uint32_t leastLevel) noexcept;

/// Whether an event of the level would reach a sink. Check it before formatting.
ORUGUI_EXPORT bool IsTraced(std::uint32_t level) noexcept;

/// Whether the body of a request or response would reach somebody who wants bodies. Check it before splitting
/// one into lines; its events are of level 2.
ORUGUI_EXPORT bool IsBodyTraced() noexcept;

/// Formats the message for the next TraceMsg or TraceStr and returns it. It is valid until
/// FreeTraceContext(), which must follow each trace. Contexts that a thread leaves open are freed when it
/// ends.
ORUGUI_EXPORT const char* InitTraceContext(const char* format, ...) noexcept
    __attribute__((format(printf, 1, 2)));
/// Records an event.
ORUGUI_EXPORT void TraceMsg(std::uint32_t category, std::uint32_t level, const char* source,
                            std::uint32_t line, const char* text) noexcept;
/// Records an event whose message is a long content, such as a body.
ORUGUI_EXPORT void TraceStr(std::uint32_t category, std::uint32_t level, const char* source,
                            std::uint32_t line, const char* text) noexcept;
/// Frees the context of this thread's latest InitTraceContext().
ORUGUI_EXPORT void FreeTraceContext() noexcept;

}  // namespace OruGuiTrace
