#include "foundation/trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <utility>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/errorstate_saver.h"
#include "foundation/format.h"
#include "foundation/module.h"
#include "foundation/report.h"

namespace OruGuiTrace {

namespace {

using OruGuiBase::AnsiStr;

std::atomic<ITraceSink*> installedSink{nullptr};
std::atomic<std::uint32_t> installedLevel{0};

// The contexts of this thread that are not ended yet: a sink may itself call what traces.
std::vector<AnsiStr>& Contexts() {
  thread_local std::vector<AnsiStr> contexts;
  return contexts;
}

// A sink that throws loses the event, and the traced operation's reason of failure stays as it was.
void Emit(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
          const char* text) noexcept {
  ITraceSink* const sink = installedSink.load(std::memory_order_acquire);
  if (sink == nullptr || level < installedLevel.load(std::memory_order_relaxed)) return;
  const OruGuiBase::ErrorStateSaver saver;
  try {
    sink->OnTrace(category, level, source, line, text != nullptr ? text : "");
  } catch (...) {
  }
}

}  // namespace

void SetTraceSink(ITraceSink* sink, std::uint32_t leastLevel) noexcept {
  installedLevel.store(leastLevel, std::memory_order_relaxed);
  installedSink.store(sink, std::memory_order_release);
}

bool IsTraced(std::uint32_t level) noexcept {
  return installedSink.load(std::memory_order_acquire) != nullptr &&
         level >= installedLevel.load(std::memory_order_relaxed);
}

const char* InitTraceContext(const char* format, ...) noexcept {
  AnsiStr text;
  if (installedSink.load(std::memory_order_acquire) != nullptr) {
    std::va_list list;
    va_start(list, format);
    text = OruGuiBase::FmtList(format, list);
    va_end(list);
  }
  try {
    return Contexts().emplace_back(std::move(text)).GetText();
  } catch (...) {
    OruGuiBase::DebugAbort("Could not allocate trace context");
  }
}

void TraceMsg(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
              const char* text) noexcept {
  Emit(category, level, source, line, text);
}

void TraceStr(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
              const char* text) noexcept {
  Emit(category, level, source, line, text);
}

void FreeTraceContext() noexcept {
  if (!Contexts().empty()) Contexts().pop_back();
}

// The thread's contexts are made here, so that they are there when a failure is to be told.
void TraceStartup() noexcept {
  Contexts();
  TraceMsg(OruGuiBase::kTraceCategory, 1, OruGuiBase::kTraceSource, __LINE__, "Trace startup");
}

}  // namespace OruGuiTrace

namespace OruGuiBase {

void ReportError(std::uint32_t line, const char* format, ...) noexcept {
  constexpr std::uint32_t kErrorLevel = 4;
  if (!OruGuiTrace::IsTraced(kErrorLevel)) return;
  char text[256];
  std::va_list list;
  va_start(list, format);
  std::vsnprintf(text, sizeof text, format, list);
  va_end(list);
  OruGuiTrace::TraceMsg(kTraceCategory, kErrorLevel, kTraceSource, line, text);
}

}  // namespace OruGuiBase
