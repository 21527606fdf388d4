#pragma once

#include <string_view>

namespace OruGuiBase {

/// Looks through each block that is freed from here on, until StopWatching(), for the text.
void WatchFreedMemory(std::string_view text);
/// How many blocks held the text when they were freed.
int StopWatching();
/// How many blocks were looked through; a watch that saw none proves nothing.
int GetWatchedBlocks();

}  // namespace OruGuiBase
