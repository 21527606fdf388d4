// The error messages of CryptClientCurl, and the responses that it refuses.
#include <cstdlib>

#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// A server that reads one request, sends bytes and closes.
RawServer::Handler SendAndClose(std::string bytes) {
  return [bytes = std::move(bytes)](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send(bytes);
    connection.Close();
  };
}

TEST(CurlFailures, ReportsHostAndReasonOfARefusedConnection) {
  const std::string authority = "127.0.0.1:" + std::to_string(UnusedPort());
  const Outcome outcome = Send(*MakeCurl(), "http://" + authority + "/status");
  EXPECT_LT(outcome.result, 0);
  EXPECT_EQ(outcome.errorText, "Could not connect to " + authority + ": Connection refused");
}

TEST(CurlFailures, AServerThatClosesAtOnceGaveNoResponse) {
  RawServer server(SendAndClose(""));
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Got no complete response from " + server.Authority()));
}

TEST(CurlFailures, ABodyCutShortIsNoResponse) {
  RawServer server(SendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf"));
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, StartsWith("Got no complete response from " + server.Authority()));
  EXPECT_THAT(outcome.body, IsEmpty());
  EXPECT_THAT(outcome.headers, IsEmpty());
}

TEST(CurlFailures, AChunkedBodyCutShortIsNoResponse) {
  RawServer server(SendAndClose("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhel"));
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.body, IsEmpty());
}

TEST(CurlFailures, AHeadCutAtAnyByteIsNoResponse) {
  const std::string whole = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX: y\r\n\r\n";
  const auto http = MakeCurl();
  for (std::size_t length = 0; length < whole.size() - 1; ++length) {
    RawServer server(SendAndClose(whole.substr(0, length)));
    EXPECT_LT(Send(*http, server.Url("/")).result, 0) << whole.substr(0, length);
  }
}

// libcurl reports success with an empty body; the transport reports what was missing.
TEST(CurlFailures, ReportsAHeadCutBetweenItsLines) {
  for (const char* head : {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nX: y\r\n"}) {
    RawServer server(SendAndClose(head));
    const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
    EXPECT_LT(outcome.result, 0);
    EXPECT_EQ(outcome.errorText,
              "Could not receive the response from " + server.Authority() + ": its headers are cut short");
  }
}

TEST(CurlFailures, AnInterimResponseAloneIsAFailure) {
  RawServer server(SendAndClose("HTTP/1.1 100 Continue\r\n\r\n"));
  EXPECT_LT(Send(*MakeCurl(), server.Url("/")).result, 0);
}

TEST(CurlFailures, WhatIsNotHttpIsNoResponse) {
  RawServer server(SendAndClose("SSH-2.0-OpenSSH_9.2\r\n"));
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr(server.Authority()));
}

TEST(CurlFailures, ABodyOfTheLimitIsTaken) {
  RawServer server(SendAndClose("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\n12345678"));
  OruKalvix::CryptClientCurlOptions options;
  options.maxBody = 8;
  EXPECT_EQ(Send(*MakeCurl(options), server.Url("/")).body, "12345678");
}

TEST(CurlFailures, ABodyAboveTheLimitIsRefusedWithTheLimit) {
  for (const char* response :
       {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n123456789",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\n123456789\r\n0\r\n\r\n",
        "HTTP/1.1 200 OK\r\n\r\n123456789"}) {
    RawServer server(SendAndClose(response));
    OruKalvix::CryptClientCurlOptions options;
    options.maxBody = 8;
    const Outcome outcome = Send(*MakeCurl(options), server.Url("/"));
    EXPECT_LT(outcome.result, 0);
    EXPECT_EQ(outcome.errorText,
              "Could not receive the response from " + server.Authority() +
                  ": the response is longer than 8 bytes, the limit for a response in memory");
    EXPECT_THAT(outcome.body, IsEmpty());
  }
}

TEST(CurlFailures, AnEndlessBodyEndsAtTheDefaultLimit) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send("HTTP/1.1 200 OK\r\n\r\n");
    const std::string chunk(std::size_t{1} << 20U, 'x');
    while (connection.Send(chunk)) {
    }
  });
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("longer than 67108864 bytes"));
}

TEST(CurlFailures, EndlessHeadersAreGivenUp) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    connection.Send("HTTP/1.1 200 OK\r\n");
    while (connection.Send("X: " + std::string(1000, 'x') + "\r\n")) {
    }
  });
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("headers"));
}

// libcurl walks all headers for each one that it returns, so their number is limited as well as their size.
TEST(CurlFailures, TooManyHeadersAreGivenUp) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n";
    for (int i = 0; i < 25'000; ++i) head += "H" + std::to_string(i) + ":\r\n";
    connection.Send(head + "\r\n");
  });
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("its headers are more than 1000"));
}

TEST(CurlFailures, AThousandHeadersAreTaken) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n";
    for (int i = 0; i < 999; ++i) head += "H" + std::to_string(i) + ": value\r\n";
    connection.Send(head + "\r\n");
  });
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_GE(outcome.result, 0) << outcome.errorText;
  EXPECT_EQ(outcome.status, 200U);
}

TEST(CurlFailures, EndlessInterimResponsesAreGivenUp) {
  RawServer server([](RawConnection& connection) {
    RecordedRequest request;
    connection.ReadRequest(request);
    while (connection.Send("HTTP/1.1 103 Early Hints\r\nX: y\r\n\r\n")) {
    }
  });
  const Outcome outcome = Send(*MakeCurl(), server.Url("/"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("headers"));
}

TEST(CurlFailures, ReportsAProxyThatIsDown) {
  OruKalvix::CryptClientCurlOptions options;
  options.proxy = Ansi("http://127.0.0.1:" + std::to_string(UnusedPort()));
  const Outcome outcome = Send(*MakeCurl(options), "http://service.example/crypt");
  EXPECT_LT(outcome.result, 0);
  EXPECT_EQ(outcome.errorText,
            "Could not connect to service.example:80 through the proxy: Connection refused");
}

TEST(CurlFailures, AProxyGetsTheWholeUrl) {
  Guarded<std::string> url;
  RawServer proxy(RespondToAll([&](RawConnection& connection, const RecordedRequest& request) {
    url.Set(request.url);
    connection.Respond(200, "by proxy");
  }));
  OruKalvix::CryptClientCurlOptions options;
  options.proxy = Ansi(proxy.Url(""));
  EXPECT_EQ(Send(*MakeCurl(options), "http://service.example/crypt").body, "by proxy");
  EXPECT_EQ(url.Get(), "http://service.example/crypt");
}

/// Sets an environment variable for one test.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) { setenv(name, value.c_str(), 1); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() { unsetenv(name_); }

 private:
  const char* name_;
};

TEST(CurlFailures, ProxiesOfTheEnvironmentHaveNoEffect) {
  const std::string down = "http://127.0.0.1:" + std::to_string(UnusedPort());
  const Environment one("http_proxy", down);
  const Environment two("ALL_PROXY", down);
  RawServer server(RespondToAll([](RawConnection& c, const RecordedRequest&) { c.Respond(200, "direct"); }));
  EXPECT_EQ(Send(*MakeCurl(), server.Url("/")).body, "direct");
}

TEST(CurlFailures, ExceptionsToTheProxyInTheEnvironmentHaveNoEffect) {
  const Environment all("no_proxy", "*");
  RawServer proxy(RespondToAll([](RawConnection& c, const RecordedRequest&) { c.Respond(200, "by proxy"); }));
  OruKalvix::CryptClientCurlOptions options;
  options.proxy = Ansi(proxy.Url(""));
  EXPECT_EQ(Send(*MakeCurl(options), "http://service.example/").body, "by proxy");
}

}  // namespace
}  // namespace TestSupport
