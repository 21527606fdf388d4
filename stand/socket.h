#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <sys/types.h>
#include <sys/uio.h>
#include <utility>

#include "stand/tls.h"

namespace CryptStand {

/// Whether it is an IP address, and whether one that only programs of this machine reach.
bool IsIpAddress(const std::string& address);
bool IsLoopbackAddress(const std::string& address);

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

  /// A socket bound to a port of an IP address, 0 for any. Other sockets that do not listen may be bound to
  /// the same port. Not open on failure, with the reason in `error`.
  static Socket Bind(const std::string& address, int port, std::string& error);
  /// A socket that is connected to a port of an IP address. Not open on failure, with the reason in `error`.
  static Socket Connect(const std::string& address, int port, std::string& error);
  /// The local port, or 0.
  int GetPort() const;

 private:
  int handle_ = -1;
};

/// Reads from and writes to one accepted connection, plain or with TLS, with a limit on each wait. Used by
/// one thread. Does not own the socket.
class ConnectionStream {
 public:
  /// `timeoutMs` is the longest silence of the client inside a request or a response.
  ConnectionStream(int handle, int timeoutMs) : handle_(handle), timeoutMs_(timeoutMs) {}

  /// Shakes hands; all further bytes go through TLS. False with the reason in `error`.
  bool Secure(const TlsContext& context, std::string& error);
  /// The subject of the client's certificate; empty without one.
  std::string GetPeerSubject() const { return tls_ != nullptr ? tls_->GetPeerSubject() : ""; }

  /// Reads at least one byte. 0 at the end of the connection; -1 with the reason in `errno`, ETIMEDOUT after
  /// a silence.
  ssize_t Read(void* data, std::size_t size);
  /// Writes at least one byte of the parts (at most IOV_MAX). -1 as for reading.
  ssize_t Write(iovec* parts, std::size_t count);
  /// Whether the client sends a byte, which stays unread, before it leaves. Before Secure().
  bool WaitForFirstByte() const;
  /// Whether bytes, or the end of the connection, can be read within the time.
  bool WaitForData(int timeoutMs) const;
  /// Waits for that time; false as soon as the connection has ended.
  bool Pause(int milliseconds) const;
  /// The same, and false also when the client will not send anything more.
  bool PauseForClient(int milliseconds) const;
  /// Ends writing; the client sees the end and may still send.
  void EndWriting();
  /// Reads and drops what the client still sends, up to `limit` bytes and for no longer than a silence may
  /// last, after EndWriting(). Closing with unread bytes would send a reset, and the client might lose the
  /// response.
  void Drain(std::size_t limit);

 private:
  ssize_t WriteSecured(const iovec* parts, std::size_t count);

  int handle_;
  int timeoutMs_;
  std::unique_ptr<TlsSession> tls_;
};

}  // namespace CryptStand
