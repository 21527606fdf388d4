// A TLS server of OpenSSL for the tests of trust and client certificates.
#include "tests/transport/secure_server.h"

#include <csignal>
#include <gtest/gtest.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "tests/transport/raw_server.h"

namespace TestSupport {
namespace {

constexpr std::string_view kResponse =
    "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\nsecure";

// A client that refuses the server closes the connection in the middle of the handshake.
void BlockPipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

bool ReadHead(SSL* connection) {
  std::string head;
  char bytes[4096];
  while (head.find("\r\n\r\n") == std::string::npos) {
    const int count = SSL_read(connection, bytes, sizeof bytes);
    if (count <= 0) return false;
    head.append(bytes, static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

SecureServer::SecureServer(const std::filesystem::path& certificate, const std::filesystem::path& key,
                           const std::filesystem::path& clientAuthority)
    : context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free), listener_(ListenOnLoopback(port_)) {
  EXPECT_EQ(SSL_CTX_use_certificate_chain_file(context_.get(), certificate.c_str()), 1);
  EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context_.get(), key.c_str(), SSL_FILETYPE_PEM), 1);
  if (!clientAuthority.empty()) {
    EXPECT_EQ(SSL_CTX_load_verify_locations(context_.get(), clientAuthority.c_str(), nullptr), 1);
    SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
  }
  thread_ = std::thread([this] { AcceptAll(); });
}

SecureServer::~SecureServer() {
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  close(listener_);
}

void SecureServer::AcceptAll() {
  BlockPipeSignal();
  for (int socket = 0; (socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(socket)) {
    Serve(socket);
  }
}

void SecureServer::Serve(int socket) {
  const timeval patience = {20, 0};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const std::unique_ptr<SSL, decltype(&SSL_free)> connection(SSL_new(context_.get()), &SSL_free);
  SSL_set_fd(connection.get(), socket);
  if (SSL_accept(connection.get()) != 1) return Refuse(socket);
  if (!ReadHead(connection.get())) return;
  SSL_write(connection.get(), kResponse.data(), static_cast<int>(kResponse.size()));
  SSL_shutdown(connection.get());
}

// With bytes of the client in its buffer, a socket that is closed resets the connection.
void SecureServer::Refuse(int socket) const {
  char bytes[4096];
  if (resetsRefused_) {
    recv(socket, bytes, 1, MSG_PEEK);
    return;
  }
  shutdown(socket, SHUT_WR);
  while (recv(socket, bytes, sizeof bytes, 0) > 0) continue;
}

}  // namespace TestSupport
