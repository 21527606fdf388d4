#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "tests/support/text.h"
#include "tests/transport/raw_server.h"
#include "transport/curlhttp.h"

namespace TestSupport {

/// The result of one exchange.
struct Outcome {
  std::int32_t result = 0;
  std::uint32_t status = 0;
  std::string body;
  std::string errorText;
  Headers headers;
};

/// One request, with defaults for what a test does not care about.
struct Ask {
  std::string method = "GET";
  std::string body{};
  Headers headers{};
  std::uint32_t connectTimeout = 0;
  std::uint32_t totalTimeout = 0;
  std::string targetFile{};
};

inline Outcome Send(OruKalvix::ICryptClientHttp& http, const std::string& url, const Ask& ask = {}) {
  OruGuiBase::KVMap headers;
  for (const auto& [name, value] : ask.headers) headers.Set(Ansi(name), Ansi(value));
  OruKalvix::HttpOptions options;
  options.useTimeouts = ask.connectTimeout != 0 || ask.totalTimeout != 0;
  options.timeouts[0] = ask.connectTimeout;
  options.timeouts[2] = ask.totalTimeout;
  OruKalvix::HttpResponse response;
  response.targetFile = Ansi(ask.targetFile);
  Outcome outcome;
  outcome.result = http.SendRequest(Ansi(ask.method), Ansi(url), headers, Ansi(ask.body), options, response);
  outcome.status = response.status;
  outcome.body = Str(response.body);
  outcome.errorText = Str(response.errorText);
  for (const auto& [name, value] : response.headers) {
    outcome.headers.emplace_back(Str(name), Str(value.AsString()));
  }
  return outcome;
}

/// A transport with these options; fails the test if it cannot be created.
inline OruKalvix::CryptClientCurl::Ptr MakeCurl(const OruKalvix::CryptClientCurlOptions& options = {}) {
  OruGuiBase::AnsiStr errorText;
  auto http = OruKalvix::CryptClientCurl::Create(options, errorText);
  EXPECT_NE(http, nullptr) << Str(errorText);
  return http;
}

inline Ask Post(std::string body) {
  Ask ask;
  ask.method = "POST";
  ask.body = std::move(body);
  return ask;
}

}  // namespace TestSupport
