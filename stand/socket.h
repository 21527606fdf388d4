#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <sys/uio.h>
#include <utility>

namespace CryptStand {

/// Waits until bytes can be read, or written, or the connection has ended. False with the reason in `errno`,
/// ETIMEDOUT after the time.
bool WaitForSocket(int handle, bool forReading, int timeoutMs);

/// Owns a socket and closes it on destruction.
class Socket {
 public:
  Socket() = default;
  explicit Socket(int handle) : handle_(handle) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  Socket(Socket&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
  Socket& operator=(Socket&& other) noexcept;
  ~Socket() { Close(); }

  bool IsOpen() const { return handle_ >= 0; }
  int Get() const { return handle_; }
  void Close();

  /// A socket bound to a port of 127.0.0.1, 0 for any. Other sockets that do not listen may be bound to the
  /// same port. Not open on failure, with the reason in `error`.
  static Socket BindLoopback(int port, std::string& error);
  /// The local port, or 0.
  int GetPort() const;

 private:
  int handle_ = -1;
};

/// Reads from and writes to one accepted connection with a limit on each wait. Does not own the socket.
class ConnectionStream {
 public:
  /// `timeoutMs` is the longest silence of the client inside a request or a response.
  ConnectionStream(int handle, int timeoutMs) : handle_(handle), timeoutMs_(timeoutMs) {}

  /// Reads at least one byte. 0 at the end of the connection; -1 with the reason in `errno`, ETIMEDOUT after
  /// a silence.
  ssize_t Read(void* data, std::size_t size) const;
  /// Writes at least one byte of the parts (at most IOV_MAX). -1 as for reading.
  ssize_t Write(iovec* parts, std::size_t count) const;
  /// Whether bytes, or the end of the connection, can be read within the time.
  bool WaitForData(int timeoutMs) const;
  /// Ends writing; the client sees the end and may still send.
  void EndWriting() const;

 private:
  int handle_;
  int timeoutMs_;
};

}  // namespace CryptStand
