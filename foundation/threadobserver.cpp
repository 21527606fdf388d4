#include "foundation/threadobserver.h"

#include <utility>

namespace OruGuiBase {

namespace {

// Without a destructor, so that it can be read for as long as the thread runs.
constinit thread_local IThreadObserver* installed = nullptr;

}  // namespace

IThreadObserver* SetThreadObserver(IThreadObserver* observer) noexcept {
  return std::exchange(installed, observer);
}

IThreadObserver* GetThreadObserver() noexcept {
  return installed;
}

}  // namespace OruGuiBase
