#pragma once

// Private to this folder: how an operation begins, and how it fails with a reason in the error state.
namespace OruOssSec {

/// Opens an operation: the thread's last error and OpenSSL's queue are clear inside it, and the queue is
/// clear after it, whatever happened. The application's own entries of the queue do not survive.
class OpenSSLScope {
 public:
  OpenSSLScope() noexcept;
  ~OpenSSLScope();
  OpenSSLScope(const OpenSSLScope&) = delete;
  OpenSSLScope& operator=(const OpenSSLScope&) = delete;
};

/// Records `reason` as the reason of the present failure and returns false. A reason recorded before
/// stands: the innermost cause is the one that the user reads.
bool FailWith(const char* reason) noexcept;
/// The same for memory that is not available: the system's code for it, ENOMEM.
bool FailWithoutMemory() noexcept;
/// The same with OpenSSL's own most useful reason, in words; `fallback` when its queue says nothing.
bool FailWithOpenSSL(const char* fallback) noexcept;
/// The same for something that was read. `refused` becomes true when the bytes are to blame: the queue has a
/// reason, which is not that of the system or the allocator.
bool FailWithOpenSSL(const char* fallback, bool& refused) noexcept;

}  // namespace OruOssSec
