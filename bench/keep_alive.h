#pragma once

#include <string>

namespace Bench {

/// One connection to an HTTP server on 127.0.0.1 that serves one request after another. As little work as
/// possible, since it shares the processors with the server that is measured: responses must have a
/// "Content-Length".
class KeepAlive {
 public:
  /// `url` is "http://127.0.0.1:PORT", whatever follows.
  explicit KeepAlive(const std::string& url);
  KeepAlive(const KeepAlive&) = delete;
  KeepAlive& operator=(const KeepAlive&) = delete;
  ~KeepAlive();

  /// The body of the response; empty on failure.
  std::string Get(const std::string& path);
  /// Posts JSON; the token goes into a header unless it is empty.
  std::string Post(const std::string& path, const std::string& body, const std::string& token);

 private:
  std::string Exchange(const std::string& request);

  int socket_;
};

}  // namespace Bench
