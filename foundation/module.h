#pragma once

#include "foundation/ansistr.h"
#include "foundation/export.h"

namespace OruGuiBase {

/// Keeps the foundation initialised while its owner lives. A module has one in a static object that is
/// constructed before and destroyed after everything else of the module. Any number may exist.
class ORUGUI_EXPORT BaseInitializer {
 public:
  BaseInitializer() noexcept;
  BaseInitializer(const BaseInitializer&) = delete;
  BaseInitializer& operator=(const BaseInitializer&) = delete;
  ~BaseInitializer();

  /// How many exist now. For tests of loading and unloading; nothing else calls it.
  static unsigned int GetCount() noexcept;
};

/// The lock under which modules are loaded and unloaded. A thread that holds it may enter again, since a
/// module that is being loaded may load another.
ORUGUI_EXPORT void EnterInitSection() noexcept;
ORUGUI_EXPORT void LeaveInitSection() noexcept;

}  // namespace OruGuiBase

namespace OruGuiTrace {

/// Prepares tracing for a module or thread that is being attached. May be called any number of times.
ORUGUI_EXPORT void TraceStartup() noexcept;

}  // namespace OruGuiTrace

namespace OruGuiGui {

/// The hooks of an application with a main loop and documents. A library has neither, so these do nothing.
class ORUGUI_EXPORT GuiApp {
 public:
  GuiApp() = delete;
  static void Start() noexcept;
  static void Idle() noexcept;
  /// False: nothing was opened.
  static bool Open(const OruGuiBase::AnsiStr& name) noexcept;
};

/// A module in its application: passes calls on to the hooks while it lives. Does not own `module`.
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

/// Report that a module was loaded or unloaded, or that a thread started or ended while it was loaded.
/// `module` identifies it and is never dereferenced.
ORUGUI_EXPORT void ProcessAttach(void* module) noexcept;
ORUGUI_EXPORT void ProcessDetach(void* module) noexcept;
ORUGUI_EXPORT void ThreadAttach(void* module) noexcept;
ORUGUI_EXPORT void ThreadDetach(void* module) noexcept;

}  // namespace OruGuiGui
