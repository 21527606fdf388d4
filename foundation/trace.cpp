#include "foundation/trace.h"

#include <atomic>
#include <cstdarg>
#include <new>
#include <utility>

#include "foundation/ansistr.h"
#include "foundation/error_state_saver.h"
#include "foundation/format.h"
#include "foundation/thread_value.h"

namespace OruGuiTrace {

namespace {

using OruGuiBase::AnsiStr;

std::atomic<ITraceSink*> installedSink{nullptr};
std::atomic<std::uint32_t> installedLevel{0};

// The text of a trace that is not ended yet, on top of those before it: a sink may itself call what traces.
struct Context {
  Context* before;
  AnsiStr text;
};

// Without a destructor, so that traces work for as long as the thread runs.
constinit thread_local Context* latest = nullptr;

const char* PushContext(AnsiStr text) noexcept {
  void* const memory = OruGuiBase::AllocParticle(sizeof(Context));
  if (memory == nullptr) OruGuiBase::DebugAbort("Could not allocate trace context");
  latest = new (memory) Context{latest, std::move(text)};
  return latest->text.GetText();
}

void PopContext() noexcept {
  Context* const context = std::exchange(latest, latest->before);
  context->~Context();
  OruGuiBase::FreeParticle(sizeof(Context), context);
}

// Ends with the thread what its traces left open.
struct Leftovers {
  Leftovers() noexcept = default;
  Leftovers(const Leftovers&) = delete;
  Leftovers& operator=(const Leftovers&) = delete;
  ~Leftovers() {
    while (latest != nullptr) PopContext();
  }
};

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
  // Made before the first context is, so that the thread ends it.
  OruGuiBase::ThreadValue<Context, Leftovers>::Get();
  return PushContext(std::move(text));
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
  if (latest != nullptr) PopContext();
}

}  // namespace OruGuiTrace
