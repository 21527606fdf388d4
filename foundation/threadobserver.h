#pragma once

#include <cstdint>

#include "foundation/export.h"

namespace OruGuiBase {

/// Watches and steers what this library does on one thread, for as long as it is installed there. So an
/// interface above the classes can report progress, cancel an operation, and learn from its traces what it
/// found, without any of that in the operation's own signature.
///
/// All members are called on the thread that installed the observer. They may not throw. An observer may
/// install another one while it is called (for an operation of its own) if it puts itself back afterwards.
class IThreadObserver {
 public:
  /// The least level of traces that OnTrace gets (see OruGuiTrace::SetTraceSink); 0 for none at all.
  virtual std::uint32_t GetTraceLevel() const noexcept = 0;
  /// Whether it wants the bodies of requests and responses, which are of level 2 and long. If not, they are
  /// formatted only for a sink of the process, and then this observer gets them as well.
  virtual bool WantsBodies() const noexcept = 0;
  /// One trace event, with the meaning and the lifetime of OruGuiTrace::ITraceSink::OnTrace.
  virtual void OnTrace(std::uint32_t category, std::uint32_t level, const char* source, std::uint32_t line,
                       const char* text) noexcept = 0;
  /// So many bytes of a file have just been read.
  virtual void OnRead(std::uint64_t bytes) noexcept = 0;
  /// Asked before each chunk of a file is read or written, and about once a second during an exchange by
  /// CryptClientCurl. True makes that step fail with ECANCELED, and so the operation.
  virtual bool IsCancelled() noexcept = 0;
  /// The directory for temporary files; null for the system's. Asked each time that one is made.
  virtual const char* GetTemporaryDirectory() const noexcept = 0;

 protected:
  ~IThreadObserver() = default;
};

/// Installs an observer for the calling thread, or none with null, and returns the one before. It must stay
/// alive until another takes its place.
ORUGUI_EXPORT IThreadObserver* SetThreadObserver(IThreadObserver* observer) noexcept;
/// The observer of the calling thread, or null.
ORUGUI_EXPORT IThreadObserver* GetThreadObserver() noexcept;

}  // namespace OruGuiBase
