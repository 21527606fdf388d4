#pragma once

// How an operation begins, and how it fails with a reason in the error state.
namespace OruOssSec {

/// Begins a public operation: clears the thread's last error and OpenSSL's error queue, and the queue again
/// at the end. So a reason is always one of this operation, and no entry is left for the application to
/// stumble over. The application's own entries in the queue are lost.
class OpenSSLScope {
 public:
  OpenSSLScope() noexcept;
  ~OpenSSLScope();
  OpenSSLScope(const OpenSSLScope&) = delete;
  OpenSSLScope& operator=(const OpenSSLScope&) = delete;
};

/// Records `reason` for the failure in progress and returns false. A reason recorded earlier is kept: the
/// innermost cause is the one that the user reads.
bool FailWith(const char* reason) noexcept;
/// The same for a failed allocation, with the system's code ENOMEM.
bool FailWithoutMemory() noexcept;
/// The same with the most useful reason in OpenSSL's queue, in words; with `fallback` when the queue has
/// none.
bool FailWithOpenSSL(const char* fallback) noexcept;
/// The same for bytes that OpenSSL parsed. `refused` becomes true when the bytes are to blame: the queue has
/// a reason, and it is not one of the system or the allocator.
bool FailWithOpenSSL(const char* fallback, bool& refused) noexcept;

}  // namespace OruOssSec
