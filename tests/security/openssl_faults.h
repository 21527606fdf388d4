#pragma once

/// Some functions of OpenSSL that the program's own objects call come by here, so that a test can let one
/// fail.
namespace SecurityTest {

/// While it lives, one call of a function fails without any entry in OpenSSL's queue.
class OpenSSLFault {
 public:
  /// The call with this number, from 1; `function` outlives the fault.
  explicit OpenSSLFault(const char* function, int number = 1);
  ~OpenSSLFault();
  OpenSSLFault(const OpenSSLFault&) = delete;
  OpenSSLFault& operator=(const OpenSSLFault&) = delete;

  /// Whether that call came; a fault that was never met proves nothing.
  bool WasMet() const;
};

}  // namespace SecurityTest
