#pragma once

#include <httplib.h>
#include <string>
#include <utility>

namespace CryptStand {

/// A socket that is closed with its owner.
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

  /// A socket bound to a port of 127.0.0.1, 0 for any, that shares the port with others that do not listen.
  /// Not open on failure, with the reason in `error`.
  static Socket BindLoopback(int port, std::string& error);
  /// The local port, or 0.
  int GetPort() const;

 private:
  int handle_ = -1;
};

/// The HTTP engine's view of one accepted connection. The socket belongs to somebody else.
class ConnectionStream : public httplib::Stream {
 public:
  explicit ConnectionStream(int handle) : handle_(handle) {}

  bool is_readable() const override;
  bool is_writable() const override;
  ssize_t read(char* buffer, size_t size) override;
  ssize_t write(const char* data, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return handle_; }

  /// Whether the next request begins within the time that an idle connection is kept.
  bool WaitForRequest() const;

 private:
  int handle_;
};

}  // namespace CryptStand
