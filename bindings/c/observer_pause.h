#pragma once

#include "foundation/threadobserver.h"

namespace CryptCliC {

/// Removes the observer of this thread while code of the application runs, and puts it back at the end of its
/// scope. A callback may use this library for something else: its traces must not become facts of the
/// operation that called it, and the bytes that it reads must not count as that operation's progress.
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
