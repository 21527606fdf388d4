#pragma once

/// The one function that the caller hands out, under this name.
inline constexpr const char* kCallName = "LoadCallAndUnload";

extern "C" {

/// Loads the library of the path, performs operations through the members that it exports, unloads it, and
/// looks at what came of it. Null when all was well, else the reason, which lives as long as the caller is
/// loaded. `leak` keeps a block of memory in a static of the caller and never frees it.
using LoadCallAndUnloadFunction = const char* (*)(const char* library, bool leak);
}
