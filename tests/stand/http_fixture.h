#pragma once

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "stand/http.h"
#include "tests/stand/raw_peer.h"
#include "tests/stand/stand_peer.h"

namespace CryptStand {

/// A server that describes the request in its response, unless a test sets another handler.
class HttpServerTest : public testing::Test {
 protected:
  explicit HttpServerTest(HttpTimeouts timeouts = {})
      : server_([this](const HttpRequest& request,
                       const std::stop_token& stop) { return handler_(request, stop); },
                timeouts) {}

  void SetUp() override {
    std::string error;
    ASSERT_TRUE(server_.Bind("127.0.0.1", 0, error) && server_.Up(error)) << error;
  }
  std::string Url(const std::string& path = "/") const {
    return "http://127.0.0.1:" + std::to_string(server_.GetPort()) + path;
  }

  HttpHandler handler_ = [](const HttpRequest& request, const std::stop_token&) {
    HttpReply reply;
    reply.body = request.method + " " + request.target + " " + request.body;
    return reply;
  };
  HttpServer server_;
};

/// Sends and receives plain bytes, which an HTTP client library would hide.
class HttpWireTest : public HttpServerTest {
 protected:
  using HttpServerTest::HttpServerTest;

  /// The response to these bytes until the server closes.
  std::string Exchange(const std::string& bytes) const {
    RawPeer peer(server_.GetPort());
    peer.Send(bytes);
    std::string response = peer.ReadAll();
    EXPECT_TRUE(peer.HasEnded()) << response;
    return response;
  }
  /// The same, but closes the client's side after sending.
  std::string ExchangeAll(const std::string& bytes) const {
    RawPeer peer(server_.GetPort());
    peer.Send(bytes);
    peer.EndWriting();
    return peer.ReadAll();
  }
  void RespondWith(HttpReply reply) {
    handler_ = [reply = std::move(reply)](const HttpRequest&, const std::stop_token&) { return reply; };
  }
  /// A body of `count` chunks of `size` bytes.
  static HttpReply Streamed(std::size_t count, std::size_t size) {
    HttpReply reply;
    reply.openBody = [count, size] {
      return [left = count, size]() mutable {
        return left == 0 ? std::string() : (--left, std::string(size, 'x'));
      };
    };
    return reply;
  }
};

inline constexpr const char* kGet = "GET / HTTP/1.1\r\nHost: x\r\n\r\n";
inline constexpr const char* kLastGet = "GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";

inline std::string BodyOf(const std::string& response) {
  return response.substr(std::min(response.find("\r\n\r\n"), response.size() - 4) + 4);
}

}  // namespace CryptStand
