#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/scripted_http.h"

namespace TestSupport {

/// A value shared by a test and its server's threads. The exchange over the network orders their accesses,
/// but a race detector does not see that.
template <class T>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(T value) : value_(std::move(value)) {}
  void Set(T value) {
    const std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }
  T Get() const {
    const std::lock_guard lock(mutex_);
    return value_;
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

/// One accepted connection of a RawServer, seen from the server.
class RawConnection {
 public:
  RawConnection(int socket, std::size_t index) noexcept : socket_(socket), index_(index) {}
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;
  ~RawConnection() { Close(); }

  /// How many connections the server had accepted before this one.
  std::size_t GetIndex() const noexcept { return index_; }
  /// Reads a request with its body; `url` is the target of the request line. False at the end of the
  /// connection.
  bool ReadRequest(RecordedRequest& request);
  /// Reads up to the end of the header section only.
  bool ReadHead(RecordedRequest& request);
  /// Sends bytes unchanged. False if the client has closed the connection.
  bool Send(std::string_view bytes);
  /// Sends a complete response with its length.
  bool Respond(std::uint32_t status, std::string_view body, std::string_view headers = "");
  /// Waits until the client closes.
  void WaitForEnd();
  void Close();
  /// Closes so that the client sees a reset.
  void Reset();
  /// Ends reading and writing from another thread.
  void Interrupt() noexcept;

 private:
  bool Fill();

  std::mutex mutex_;  // closing and interrupting come from two threads
  std::atomic<int> socket_;
  std::size_t index_;
  std::string buffer_;
};

/// A server on a loopback port that leaves every byte to its handler. The handler runs on a thread of its own
/// for each connection, which ends with it.
class RawServer {
 public:
  using Handler = std::function<void(RawConnection& connection)>;

  explicit RawServer(Handler handler);
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;
  ~RawServer();

  std::string Url(std::string_view path) const;
  /// "127.0.0.1:port".
  std::string Authority() const;
  std::size_t GetConnectionCount() const;

 private:
  void Accept();

  Handler handler_;
  int port_ = 0;
  int listener_ = -1;
  std::atomic<bool> stopped_{false};
  mutable std::mutex mutex_;
  std::vector<std::unique_ptr<RawConnection>> connections_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

/// A handler that responds to every request on a connection with the same function.
RawServer::Handler RespondToAll(std::function<void(RawConnection&, const RecordedRequest&)> response);

/// A socket that listens on a loopback port of its own. The caller closes it.
int ListenOnLoopback(int& port);

/// A loopback port on which nobody listens.
int UnusedPort();

}  // namespace TestSupport
