#include "stand/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class PageTest : public StandTest {
 protected:
  Reply Visit(const std::string& path = "", const std::string& host = "127.0.0.1") const {
    return Peer().Send("GET", Service(path), {},
                       {{"Host", host}, {"Accept", "text/html,application/xhtml+xml,*/*;q=0.8"}});
  }
};

TEST_F(PageTest, IsAtTheRootOfTheCryptService) {
  for (const char* path : {"", "?anything"}) {
    const Reply reply = Visit(path);
    EXPECT_EQ(reply.status, 200) << path;
    EXPECT_EQ(reply.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_THAT(reply.body, ContainsRegex("^<!doctype html>(.|\n)*</html>\n$"));
  }
}

// A name of a file would lead to a server that the program does not run.
TEST_F(PageTest, NeedsNothingFromOutside) {
  EXPECT_THAT(Visit().body, Not(ContainsRegex("(src|href|url)[ =(]+[\"']?(https?:|//|[a-z/]+\\.)")));
}

TEST_F(PageTest, AllowsNothingButItsOwnScriptAndStyle) {
  const std::string policy = Visit().Header("Content-Security-Policy");
  EXPECT_THAT(policy, ContainsRegex("^default-src 'none'; script-src 'sha256-[A-Za-z0-9+/]{43}='; "
                                    "style-src 'sha256-[A-Za-z0-9+/]{43}='; connect-src 'self'; "));
  EXPECT_THAT(policy, Not(HasSubstr("unsafe")));
  EXPECT_THAT(policy, HasSubstr("; frame-ancestors 'none'"));
}

TEST_F(PageTest, IsNeitherStoredNorGuessedNorReferredTo) {
  const Reply reply = Visit();
  EXPECT_EQ(reply.Header("Cache-Control"), "no-store");
  EXPECT_EQ(reply.Header("X-Content-Type-Options"), "nosniff");
  EXPECT_EQ(reply.Header("Referrer-Policy"), "no-referrer");
}

// A client that is not a browser gets what the crypt service has there, faults included.
TEST_F(PageTest, IsForBrowsersAlone) {
  EXPECT_EQ(Get(Service("")).status, 404);
  EXPECT_EQ(Post(Service(""), "{}", {{"Accept", "text/html"}}).status, 404);
  EXPECT_EQ(Get(Service("page.html")).status, 404);
}

// A page of another site that has our address by a name of its own.
TEST_F(PageTest, IsNotServedUnderAForeignName) {
  EXPECT_EQ(Visit("", "elsewhere.example").status, 403);
  EXPECT_EQ(Visit("", "localhost:1").status, 200);
}

// Faults are for clients; who clears them on the page must reach it.
TEST_F(PageTest, IsServedDespiteFaultsAndOutsideOfTheLog) {
  ASSERT_TRUE(stand_.SetFault(kCryptService, {FaultType::Status}));
  stand_.ClearEvents();
  EXPECT_EQ(Visit().status, 200);
  EXPECT_THAT(stand_.GetEvents(), testing::IsEmpty());
}

}  // namespace
}  // namespace CryptStand
