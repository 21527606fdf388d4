#pragma once

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Keeps the foundation up while its owner lives. A module holds one in a static of its own, made before
/// anything else of it and ended after everything else; any number may exist.
class ORUGUI_EXPORT BaseInitializer {
 public:
  BaseInitializer() noexcept;
  BaseInitializer(const BaseInitializer&) = delete;
  BaseInitializer& operator=(const BaseInitializer&) = delete;
  ~BaseInitializer();

  /// How many there are now.
  static unsigned int GetCount() noexcept;
};

/// The lock under which modules come and go. It may be entered again by the thread that is in it, since a
/// module that is being loaded may load another.
ORUGUI_EXPORT void EnterInitSection() noexcept;
ORUGUI_EXPORT void LeaveInitSection() noexcept;

}  // namespace OruGuiBase

namespace OruGuiTrace {

/// Readies tracing for a module or thread that is about to come. May be called any number of times.
ORUGUI_EXPORT void TraceStartup() noexcept;

}  // namespace OruGuiTrace

namespace OruGuiGui {

/// The hooks of an application that has a main loop and documents. A library has neither, so these do
/// nothing.
class ORUGUI_EXPORT GuiApp {
 public:
  GuiApp() = delete;
  static void Start() noexcept;
  static void Idle() noexcept;
  /// False: nothing was opened.
  static bool Open(const OruGuiBase::AnsiStr& name) noexcept;
};

/// A module's place among the application's: it hands the hooks over while it lives.
class ORUGUI_EXPORT DllContext {
 public:
  using StartHook = void (*)() noexcept;
  using IdleHook = void (*)() noexcept;
  using OpenHook = bool (*)(const OruGuiBase::AnsiStr& name) noexcept;

  DllContext(StartHook start, IdleHook idle, OpenHook open, void* module) noexcept;
  DllContext(const DllContext&) = delete;
  DllContext& operator=(const DllContext&) = delete;
  ~DllContext();

  void Start() const noexcept { start_(); }
  void Idle() const noexcept { idle_(); }
  bool Open(const OruGuiBase::AnsiStr& name) const noexcept { return open_(name); }

 private:
  StartHook start_;
  IdleHook idle_;
  OpenHook open_;
  void* module_;
};

/// A module came or went, or a thread did while the module was there. `module` names it and is not looked
/// into.
ORUGUI_EXPORT void ProcessAttach(void* module) noexcept;
ORUGUI_EXPORT void ProcessDetach(void* module) noexcept;
ORUGUI_EXPORT void ThreadAttach(void* module) noexcept;
ORUGUI_EXPORT void ThreadDetach(void* module) noexcept;

}  // namespace OruGuiGui
