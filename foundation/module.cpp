// The life of modules: the init section under which the client's entry point attaches and detaches, and the
// hooks that an application with a main loop would have. What happens is only traced.

#include "foundation/module.h"

#include <atomic>
#include <mutex>
#include <new>

#include "foundation/report.h"
#include "foundation/trace.h"

namespace OruGuiBase {

namespace {

std::atomic<unsigned int> initializers = 0;

// Never destroyed, because modules may be unloaded after the static objects of this library are. Not on the
// heap, so that nothing leaks when the library itself is unloaded.
std::recursive_mutex& InitSection() {
  alignas(std::recursive_mutex) static unsigned char place[sizeof(std::recursive_mutex)];
  static auto* const section = new (place) std::recursive_mutex;
  return *section;
}

}  // namespace

// Makes the section before any module needs it from several threads at once.
BaseInitializer::BaseInitializer() noexcept {
  InitSection();
  initializers.fetch_add(1, std::memory_order_relaxed);
}

BaseInitializer::~BaseInitializer() {
  initializers.fetch_sub(1, std::memory_order_relaxed);
}

unsigned int BaseInitializer::GetCount() noexcept {
  return initializers.load(std::memory_order_relaxed);
}

void EnterInitSection() noexcept {
  InitSection().lock();
}

void LeaveInitSection() noexcept {
  InitSection().unlock();
}

}  // namespace OruGuiBase

namespace OruGuiTrace {

void TraceStartup() noexcept {
  TraceMsg(OruGuiBase::kTraceCategory, 1, OruGuiBase::kTraceSource, __LINE__, "Trace startup");
}

}  // namespace OruGuiTrace

namespace OruGuiGui {

namespace {

constexpr std::uint32_t kLevel = 1;

// For whoever has to find out in which order modules were loaded.
void TraceModule(const char* what, const void* module, std::uint32_t line) noexcept {
  if (!OruGuiTrace::IsTraced(kLevel)) return;
  OruGuiTrace::TraceMsg(OruGuiBase::kTraceCategory, kLevel, OruGuiBase::kTraceSource, line,
                        OruGuiTrace::InitTraceContext("Module %p: %s", module, what));
  OruGuiTrace::FreeTraceContext();
}

}  // namespace

void GuiApp::Start() noexcept {}

void GuiApp::Idle() noexcept {}

bool GuiApp::Open(const OruGuiBase::AnsiStr&) noexcept {
  return false;
}

DllContext::DllContext(StartHook start, IdleHook idle, OpenHook open, void* module) noexcept
    : start_(start), idle_(idle), open_(open), module_(module) {
  TraceModule("context made", module_, __LINE__);
}

DllContext::~DllContext() {
  TraceModule("context ended", module_, __LINE__);
}

void ProcessAttach(void* module) noexcept {
  TraceModule("process attach", module, __LINE__);
}

void ProcessDetach(void* module) noexcept {
  TraceModule("process detach", module, __LINE__);
}

void ThreadAttach(void* module) noexcept {
  TraceModule("thread attach", module, __LINE__);
}

void ThreadDetach(void* module) noexcept {
  TraceModule("thread detach", module, __LINE__);
}

}  // namespace OruGuiGui
