#pragma once

#include <string_view>

namespace OruGuiBase {

/// Searches each block that is freed from here on, until StopWatching(), for `text`.
void WatchFreedMemory(std::string_view text);
/// How many blocks contained `text` when they were freed.
int StopWatching();
/// How many blocks were searched. A watch that saw none proves nothing.
int GetWatchedBlocks();

}  // namespace OruGuiBase
