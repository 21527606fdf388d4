#pragma once

#include <string>
#include <string_view>

namespace CryptStand {

/// The port of a URL that names one.
inline int PortOf(const std::string& url) {
  return std::stoi(url.substr(url.rfind(':') + 1));
}

/// A connection to a server whose bytes the test writes and reads itself. Owns the socket.
class RawPeer {
 public:
  explicit RawPeer(int port, const char* address = "127.0.0.1");
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;
  ~RawPeer() { Close(); }

  bool IsConnected() const { return socket_ >= 0; }
  /// False if the server has closed the connection.
  bool Send(std::string_view bytes) const;
  /// Ends writing; reading is still possible.
  void EndWriting() const;
  void Close();

  /// Reads up to and including `end`; less if the connection ends or is silent for 20 seconds.
  std::string ReadUntil(std::string_view end);
  /// Reads up to the end of the connection.
  std::string ReadAll() { return ReadUntil({}); }
  /// Whether the last read ended because the server closed the connection in order.
  bool HasEnded() const { return hasEnded_; }

 private:
  int socket_;
  std::string ahead_;
  bool hasEnded_ = false;
};

}  // namespace CryptStand
