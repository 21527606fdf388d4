#include <stdexcept>

#include "tests/transport/transport_fixture.h"

namespace TestSupport {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using ::testing::HasSubstr;

class CurlCredentials : public ::testing::Test {
 protected:
  CurlCredentials() { options_.serviceUrl = Ansi(server_.Url("/app")); }

  Guarded<RecordedRequest> request_;
  int asked_ = 0;
  RawServer server_{RespondToAll([this](RawConnection& connection, const RecordedRequest& request) {
    request_.Set(request);
    connection.Respond(200, "");
  })};
  OruKalvix::CryptClientCurlOptions options_;
};

TEST_F(CurlCredentials, AreSentWithRequestsToTheService) {
  options_.credentials = [this](const AnsiStr& method, const AnsiStr& url, KVMap& headers, AnsiStr&) {
    ++asked_;
    EXPECT_EQ(Str(method), "POST");
    EXPECT_EQ(Str(url), server_.Url("/app/crypt/key"));
    return headers.Set("Authorization", "Bearer 1");
  };
  Send(*MakeCurl(options_), server_.Url("/app/crypt/key"), Post("{}"));
  EXPECT_EQ(HeaderOf(request_.Get(), "Authorization"), "Bearer 1");
  EXPECT_EQ(asked_, 1);
}

TEST_F(CurlCredentials, AreAskedForAgainWithEachRequest) {
  options_.credentials = [this](const AnsiStr&, const AnsiStr&, KVMap& headers, AnsiStr&) {
    return headers.Set("Authorization", Ansi("Bearer " + std::to_string(++asked_)));
  };
  const auto http = MakeCurl(options_);
  Send(*http, server_.Url("/app"));
  Send(*http, server_.Url("/app"));
  EXPECT_EQ(HeaderOf(request_.Get(), "Authorization"), "Bearer 2");
}

TEST_F(CurlCredentials, StayAwayFromEveryOtherServer) {
  options_.credentials = [this](const AnsiStr&, const AnsiStr&, KVMap& headers, AnsiStr&) {
    ++asked_;
    return headers.Set("Authorization", "Bearer 1");
  };
  const auto http = MakeCurl(options_);
  for (const char* path : {"/", "/application", "/app/../rest/json"}) {
    Send(*http, server_.Url(path));
    EXPECT_EQ(HeaderOf(request_.Get(), "Authorization"), "(none)") << path;
  }
  EXPECT_EQ(asked_, 0);
}

TEST_F(CurlCredentials, TakePrecedenceOverTheOptionsAndGiveWayToTheRequest) {
  options_.headers = Map(R"({"X-A":"options","X-B":"options"})");
  options_.credentials = [](const AnsiStr&, const AnsiStr&, KVMap& headers, AnsiStr&) {
    return headers.Set("x-a", "credentials") && headers.Set("X-Sec", "credentials");
  };
  Ask ask;
  ask.headers = {{"X-SEC", "request"}};
  Send(*MakeCurl(options_), server_.Url("/app"), ask);
  EXPECT_EQ(HeaderOf(request_.Get(), "x-a"), "credentials");
  EXPECT_EQ(HeaderOf(request_.Get(), "X-B"), "options");
  EXPECT_EQ(HeaderOf(request_.Get(), "X-SEC"), "request");
  EXPECT_EQ(HeaderOf(request_.Get(), "X-Sec"), "(none)");
}

TEST_F(CurlCredentials, FailTheExchangeUnsentWhenUnavailable) {
  options_.credentials = [](const AnsiStr&, const AnsiStr&, KVMap&, AnsiStr& errorText) {
    errorText = "the token has expired";
    return false;
  };
  const Outcome outcome = Send(*MakeCurl(options_), server_.Url("/app"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_EQ(outcome.errorText,
            "Could not get credentials for " + server_.Authority() + ": the token has expired");
  EXPECT_EQ(server_.GetConnectionCount(), 0U);
}

TEST_F(CurlCredentials, AnExceptionOfTheCallbackGoesNoFurther) {
  options_.credentials = [](const AnsiStr&, const AnsiStr&, KVMap&, AnsiStr&) -> bool {
    throw std::runtime_error("no wallet");
  };
  const Outcome outcome = Send(*MakeCurl(options_), server_.Url("/app"));
  EXPECT_LT(outcome.result, 0);
  EXPECT_THAT(outcome.errorText, HasSubstr("no wallet"));
}

TEST_F(CurlCredentials, SomethingElseThrownGoesNoFurther) {
  options_.credentials = [](const AnsiStr&, const AnsiStr&, KVMap&, AnsiStr&) -> bool { throw 1; };
  EXPECT_LT(Send(*MakeCurl(options_), server_.Url("/app")).result, 0);
}

TEST_F(CurlCredentials, AreRefusedWithALineBreak) {
  options_.credentials = [](const AnsiStr&, const AnsiStr&, KVMap& headers, AnsiStr&) {
    return headers.Set("Authorization", "Bearer 1\r\nX-Admin: 1");
  };
  EXPECT_LT(Send(*MakeCurl(options_), server_.Url("/app")).result, 0);
  EXPECT_EQ(server_.GetConnectionCount(), 0U);
}

}  // namespace
}  // namespace TestSupport
