// Tracing: one sink for the process, which the application installs. The client traces its exchanges and
// failures, this library its allocation failures and misuse of values (report.h). Threads share the sink;
// contexts belong to a thread.

#include "foundation/trace.h"

#include <atomic>
#include <cstdarg>
#include <new>
#include <utility>

#include "foundation/ansistr.h"
#include "foundation/error_state_saver.h"
#include "foundation/format.h"
#include "foundation/thread_value.h"
#include "foundation/threadobserver.h"

namespace OruGuiTrace {

namespace {

using OruGuiBase::AnsiStr;

std::atomic<ITraceSink*> installedSink{nullptr};
std::atomic<std::uint32_t> installedLevel{0};

// A message between InitTraceContext and FreeTraceContext. Contexts are a stack, because a sink may call code
// that traces. Owned by its thread.
struct Context {
  Context* before;
  AnsiStr text;
};

// Has no destructor, so that tracing works as long as the thread runs.
constinit thread_local Context* latest = nullptr;

// Aborts on allocation failure: the caller passes the result on as the message.
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

// Frees the contexts that a thread left open, when it ends.
struct Leftovers {
  Leftovers() noexcept = default;
  Leftovers(const Leftovers&) = delete;
  Leftovers& operator=(const Leftovers&) = delete;
  ~Leftovers() {
    while (latest != nullptr) PopContext();
  }
};

// The process's sink, if it takes events of the level.
ITraceSink* SinkFor(std::uint32_t level) noexcept {
  ITraceSink* const sink = installedSink.load(std::memory_order_acquire);
  return sink != nullptr && level >= installedLevel.load(std::memory_order_relaxed) ? sink : nullptr;
}

// The same for the observer of this thread.
OruGuiBase::IThreadObserver* ObserverFor(std::uint32_t level) noexcept {
  OruGuiBase::IThreadObserver* const observer = OruGuiBase::GetThreadObserver();
  const std::uint32_t least = observer != nullptr ? observer->GetTraceLevel() : 0;
  return least != 0 && level >= least ? observer : nullptr;
}

// If the sink throws, only this event is lost. The saver keeps the traced operation's reason of failure.
void Emit(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
          const char* text) noexcept {
  ITraceSink* const sink = SinkFor(level);
  OruGuiBase::IThreadObserver* const observer = ObserverFor(level);
  if (sink == nullptr && observer == nullptr) return;
  const OruGuiBase::ErrorStateSaver saver;
  if (text == nullptr) text = "";
  if (observer != nullptr) observer->OnTrace(category, level, source, line, text);
  if (sink == nullptr) return;
  try {
    sink->OnTrace(category, level, source, line, text);
  } catch (...) {
  }
}

}  // namespace

// The level first: an event that sees the new sink also sees its level.
void SetTraceSink(ITraceSink* sink, std::uint32_t leastLevel) noexcept {
  installedLevel.store(leastLevel, std::memory_order_relaxed);
  installedSink.store(sink, std::memory_order_release);
}

bool IsTraced(std::uint32_t level) noexcept {
  return SinkFor(level) != nullptr || ObserverFor(level) != nullptr;
}

bool IsBodyTraced() noexcept {
  constexpr std::uint32_t kBodyLevel = 2;
  const OruGuiBase::IThreadObserver* const observer = ObserverFor(kBodyLevel);
  return SinkFor(kBodyLevel) != nullptr || (observer != nullptr && observer->WantsBodies());
}

// Opens a context even without a sink, because FreeTraceContext follows in any case.
const char* InitTraceContext(const char* format, ...) noexcept {
  AnsiStr text;
  const bool isHeard =
      installedSink.load(std::memory_order_acquire) != nullptr || OruGuiBase::GetThreadObserver() != nullptr;
  if (isHeard) {
    std::va_list list;
    va_start(list, format);
    text = OruGuiBase::FmtList(format, list);
    va_end(list);
  }
  // Made before the first context, so that its destructor runs after the last one.
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
