#include "foundation/unfinished.h"

#include "foundation/unfinished_list.h"

namespace OruGuiBase {

// The list, which only the foundation uses, has a header of its own: unfinished.h is installed.
void RemoveUnfinishedFiles() noexcept {
  CloseUnfinishedList();
}

}  // namespace OruGuiBase
