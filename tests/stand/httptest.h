#pragma once

#include <gtest/gtest.h>
#include <string>

#include "stand/http.h"
#include "tests/stand/standpeer.h"

namespace CryptStand {

/// A server that says what it was asked, unless a test sets another handler.
class HttpServerTest : public testing::Test {
 protected:
  HttpServerTest()
      : server_([this](const HttpRequest& request, const std::stop_token& stop) {
          return handler_(request, stop);
        }) {}

  void SetUp() override {
    std::string error;
    ASSERT_TRUE(server_.Bind(0, error) && server_.Up(error)) << error;
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

}  // namespace CryptStand
