// What happens when the library is loaded and unloaded. The loader runs the constructors and destructors of
// the statics at the end of this file, and nothing else calls ModuleEntry but the tests.
#include "client/module.h"

#include "foundation/module.h"
#include "foundation/trace.h"

using OruGuiBase::BaseInitializer;
using OruGuiGui::DllContext;
using OruGuiGui::GuiApp;

// The address that identifies this shared object.
extern "C" void*
    __dso_handle;  // NOLINT(bugprone-reserved-identifier): the linker's own name for a shared object

namespace OruKalvix {
namespace {

void* moduleHandle = nullptr;
std::int32_t attachState = 0;

void AttachProcess(void* module) noexcept {
  moduleHandle = module;
  attachState = 1;
  // One context for the life of the library: a later attach finds it in place.
  static const DllContext context(&GuiApp::Start, &GuiApp::Idle, &GuiApp::Open, module);
  OruGuiGui::ProcessAttach(module);
}

void DetachProcess(void* module) noexcept {
  attachState = 2;
  OruGuiGui::ProcessDetach(module);
}

}  // namespace

bool ModuleEntry(void* module, ModuleReason reason, void*) noexcept {
  OruGuiBase::EnterInitSection();
  if (reason == ModuleReason::ProcessAttach || reason == ModuleReason::ThreadAttach)
    OruGuiTrace::TraceStartup();
  switch (reason) {
    case ModuleReason::ProcessDetach:
      DetachProcess(module);
      break;
    case ModuleReason::ProcessAttach:
      AttachProcess(module);
      break;
    case ModuleReason::ThreadAttach:
      OruGuiGui::ThreadAttach(module);
      break;
    case ModuleReason::ThreadDetach:
      OruGuiGui::ThreadDetach(module);
      break;
  }
  OruGuiBase::LeaveInitSection();
  return module != nullptr;
}

std::int32_t GetAttachState() noexcept {
  return attachState;
}

void* GetModuleHandle() noexcept {
  return moduleHandle;
}

namespace {

// The platform has no notification of a load and an unload, so statics take its place. Their order matters:
// the foundation is ready before the entry point is called for the load, and the entry point is called for
// the unload before the context and the foundation are destroyed.
const BaseInitializer foundationInitializer;
const BaseInitializer guiInitializer;

class Presence {
 public:
  Presence() noexcept { ModuleEntry(&__dso_handle, ModuleReason::ProcessAttach, nullptr); }
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;
  ~Presence() { ModuleEntry(&__dso_handle, ModuleReason::ProcessDetach, nullptr); }
};

const Presence presence;

}  // namespace
}  // namespace OruKalvix
