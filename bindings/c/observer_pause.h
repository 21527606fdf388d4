#pragma once

#include "foundation/threadobserver.h"

namespace CryptCliC {

/// Takes the observer of this thread away while code of the application runs. What that code does with this
/// library is no part of the operation that called it: its traces must not become facts of that operation,
/// nor its reading that operation's progress. For the stack.
class ObserverPause {
 public:
  ObserverPause() : before_(OruGuiBase::SetThreadObserver(nullptr)) {}
  ObserverPause(const ObserverPause&) = delete;
  ObserverPause& operator=(const ObserverPause&) = delete;
  ~ObserverPause() { OruGuiBase::SetThreadObserver(before_); }

 private:
  OruGuiBase::IThreadObserver* before_;
};

}  // namespace CryptCliC
