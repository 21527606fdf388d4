#pragma once

/// The name of the one function that the caller exports.
inline constexpr const char* kCallName = "LoadCallAndUnload";

extern "C" {

/// Loads the library from the path, performs operations through the members that it exports, unloads it, and
/// checks the results. Returns null on success, else the reason, which is valid as long as the caller is
/// loaded. `leak` keeps a block of memory in a static variable of the caller and never frees it.
using LoadCallAndUnloadFunction = const char* (*)(const char* library, bool leak);
}
