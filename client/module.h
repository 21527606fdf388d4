#pragma once

#include <cstdint>

// Private to the client: the library's entry point, called when it is loaded and unloaded.
namespace OruKalvix {

/// Why the platform calls a module's entry point.
enum class ModuleReason : std::uint32_t {
  ProcessDetach = 0,
  ProcessAttach = 1,
  ThreadAttach = 2,
  ThreadDetach = 3,
};

/// The library's entry point. `module` identifies the library, `reserved` is not used. Works inside the
/// foundation's init section. Returns true whenever there is a module: a load is never refused.
bool ModuleEntry(void* module, ModuleReason reason, void* reserved) noexcept;

/// 0 before the first process attach, 1 after one, 2 after a process detach.
std::int32_t GetAttachState() noexcept;
/// The module of the latest process attach.
void* GetModuleHandle() noexcept;

}  // namespace OruKalvix
