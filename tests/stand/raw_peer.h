#pragma once

#include <string>
#include <string_view>

namespace CryptStand {

/// A connection to a server of the stand whose bytes a test writes and reads itself.
class RawPeer {
 public:
  explicit RawPeer(int port, const char* address = "127.0.0.1");
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;
  ~RawPeer() { Close(); }

  bool IsConnected() const { return socket_ >= 0; }
  /// False when the other side is gone.
  bool Send(std::string_view bytes) const;
  /// The server sees the end; reading goes on.
  void EndWriting() const;
  void Close();

  /// What comes up to `end` and with it; less when the connection ends or is silent for 20 seconds.
  std::string ReadUntil(std::string_view end);
  /// What comes up to the end of the connection.
  std::string ReadAll() { return ReadUntil({}); }
  /// Whether the last reading ended with an orderly end of the connection.
  bool HasEnded() const { return hasEnded_; }

 private:
  int socket_;
  std::string ahead_;
  bool hasEnded_ = false;
};

}  // namespace CryptStand
