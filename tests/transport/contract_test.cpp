// The contract of every transport: ours, and the test double that other tests use.
#include <functional>
#include <memory>

#include "tests/support/files.h"
#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

/// A transport together with the server that it talks to.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual OruKalvix::ICryptClientHttp& GetHttp() = 0;
  virtual std::string Url(std::string_view path) = 0;
  /// Prepares the response to the next request; a negative result means a server that sends none.
  virtual void Prepare(const CannedResponse& response) = 0;
  virtual RecordedRequest GetRequest() = 0;
};

class ScriptedPeer final : public Peer {
 public:
  OruKalvix::ICryptClientHttp& GetHttp() override { return http_; }
  std::string Url(std::string_view path) override { return "http://127.0.0.1" + std::string(path); }
  void Prepare(const CannedResponse& response) override { http_.Then(response); }
  RecordedRequest GetRequest() override {
    RecordedRequest request = http_.GetRequest(http_.GetRequestCount() - 1);
    request.url.erase(0, std::string_view("http://127.0.0.1").size());
    return request;
  }

 private:
  ScriptedHttp http_;
};

class CurlPeer final : public Peer {
 public:
  OruKalvix::ICryptClientHttp& GetHttp() override { return *http_; }
  std::string Url(std::string_view path) override { return server_.Url(path); }
  void Prepare(const CannedResponse& response) override { response_.Set(response); }
  RecordedRequest GetRequest() override { return request_.Get(); }

 private:
  void Serve(RawConnection& connection, const RecordedRequest& request) {
    request_.Set(request);
    const CannedResponse response = response_.Get();
    if (response.result < 0) return connection.Close();
    std::string headers;
    for (const auto& [name, value] : response.headers) headers += name + ": " + value + "\r\n";
    connection.Respond(response.status, response.body, headers);
  }

  Guarded<CannedResponse> response_;
  Guarded<RecordedRequest> request_;
  RawServer server_{RespondToAll([this](RawConnection& c, const RecordedRequest& r) { Serve(c, r); })};
  OruKalvix::CryptClientCurl::Ptr http_ = MakeCurl();
};

struct Implementation {
  const char* name;
  std::unique_ptr<Peer> (*make)();
};

class HttpContract : public ::testing::TestWithParam<Implementation> {
 protected:
  Outcome Run(const CannedResponse& response, const Ask& ask = {}) {
    peer_->Prepare(response);
    return Send(peer_->GetHttp(), peer_->Url("/crypt/key?x=1"), ask);
  }

  std::unique_ptr<Peer> peer_ = GetParam().make();
};

INSTANTIATE_TEST_SUITE_P(
    Transports, HttpContract,
    ::testing::Values(Implementation{"Curl", [] { return std::unique_ptr<Peer>(new CurlPeer); }},
                      Implementation{"Scripted", [] { return std::unique_ptr<Peer>(new ScriptedPeer); }}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_P(HttpContract, DeliversStatusAndBody) {
  const Outcome outcome = Run(Status(200, "{\"a\":1}"));
  EXPECT_GE(outcome.result, 0);
  EXPECT_EQ(outcome.status, 200U);
  EXPECT_EQ(outcome.body, "{\"a\":1}");
}

TEST_P(HttpContract, DeliversHeadersWithTheirNamesAsSent) {
  CannedResponse response = Status(200);
  response.headers = {{"X-Sec-Status", "0"}, {"date", "Tue, 15 Nov 1994 08:12:31 GMT"}};
  const Outcome outcome = Run(response);
  EXPECT_THAT(outcome.headers, Contains(Pair("X-Sec-Status", "0")));
  EXPECT_THAT(outcome.headers, Contains(Pair("date", "Tue, 15 Nov 1994 08:12:31 GMT")));
}

TEST_P(HttpContract, AnyStatusIsAnExchange) {
  for (const std::uint32_t status : {201U, 204U, 302U, 304U, 401U, 404U, 500U, 503U}) {
    const Outcome outcome = Run(Status(status));
    EXPECT_GE(outcome.result, 0) << status;
    EXPECT_EQ(outcome.status, status);
  }
}

TEST_P(HttpContract, ReplacesAStatusThatWasThereBefore) {
  peer_->Prepare(Status(404));
  OruKalvix::HttpResponse response;
  response.status = 200;
  peer_->GetHttp().SendRequest("GET", Ansi(peer_->Url("/x")), {}, "", {}, response);
  EXPECT_EQ(response.status, 404U);
}

TEST_P(HttpContract, PassesMethodUrlAndHeadersOn) {
  Ask ask;
  ask.headers = {{"X-SEC-AUTHZTOKEN", "token 1"}};
  Run(Status(200), ask);
  EXPECT_EQ(peer_->GetRequest().method, "GET");
  EXPECT_EQ(peer_->GetRequest().url, "/crypt/key?x=1");
  EXPECT_EQ(HeaderOf(peer_->GetRequest(), "X-SEC-AUTHZTOKEN"), "token 1");
}

TEST_P(HttpContract, PassesABodyOnByteByByte) {
  const std::string body("{\"a\":\"\0\xC3\xA4\r\n\"}", 13);
  Ask ask = Post(body);
  ask.headers = {{"Content-Type", "text/json"}};
  Run(Status(200), ask);
  EXPECT_EQ(peer_->GetRequest().method, "POST");
  EXPECT_EQ(peer_->GetRequest().body, body);
  EXPECT_EQ(HeaderOf(peer_->GetRequest(), "Content-Type"), "text/json");
}

TEST_P(HttpContract, PostsAnEmptyBody) {
  EXPECT_EQ(Run(Status(200, "{}"), Post("")).body, "{}");
  EXPECT_EQ(peer_->GetRequest().method, "POST");
  EXPECT_THAT(peer_->GetRequest().body, IsEmpty());
}

TEST_P(HttpContract, KeepsNulBytesOfAResponse) {
  const std::string body("a\0b", 3);
  EXPECT_EQ(Run(Status(200, body)).body, body);
}

TEST_P(HttpContract, PutsTheBodyIntoTheTargetFileAlone) {
  const ScratchDirectory scratch;
  Ask ask = Post("{}");
  ask.targetFile = scratch.Path("log.csv").string();
  const Outcome outcome = Run(Status(200, "a;b\n"), ask);
  EXPECT_GE(outcome.result, 0);
  EXPECT_EQ(outcome.status, 200U);
  EXPECT_EQ(scratch.Read("log.csv"), "a;b\n");
  EXPECT_THAT(outcome.body, IsEmpty());
}

TEST_P(HttpContract, GivesAReasonWhenThereIsNoExchange) {
  const Outcome outcome = Run(NoExchange("the far side is gone"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, Not(IsEmpty()));
}

TEST_P(HttpContract, GoesOnAfterAFailedExchange) {
  Run(NoExchange("the far side is gone"));
  EXPECT_EQ(Run(Status(200, "again")).body, "again");
}

TEST_P(HttpContract, CountsReferencesWithoutEndingWhileOneIsHeld) {
  peer_->GetHttp().AddRef();
  peer_->GetHttp().Release();
  EXPECT_EQ(Run(Status(200, "still here")).body, "still here");
}

}  // namespace
}  // namespace TestSupport
