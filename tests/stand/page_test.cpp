#include "stand/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

using PageTest = StandTest;

TEST_F(PageTest, IsAtTheRootOfTheCryptService) {
  for (const char* path : {"", "?anything"}) {
    const Reply reply = Get(Service(path));
    EXPECT_EQ(reply.status, 200) << path;
    EXPECT_EQ(reply.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_THAT(reply.body, ContainsRegex("^<!doctype html>(.|\n)*</html>\n$"));
  }
}

// A name of a file would lead to a server that the program does not run.
TEST_F(PageTest, NeedsNothingFromOutside) {
  EXPECT_THAT(Get(Service("")).body, Not(ContainsRegex("(src|href|url)[ =(]+[\"']?(https?:|//|[a-z/]+\\.)")));
}

TEST_F(PageTest, AllowsNothingButItsOwnScriptAndStyle) {
  const std::string policy = Get(Service("")).Header("Content-Security-Policy");
  EXPECT_THAT(policy, ContainsRegex("^default-src 'none'; script-src 'sha256-[A-Za-z0-9+/]{43}='; "
                                    "style-src 'sha256-[A-Za-z0-9+/]{43}='; connect-src 'self'; "));
  EXPECT_THAT(policy, Not(HasSubstr("unsafe")));
  EXPECT_THAT(policy, HasSubstr("; frame-ancestors 'none'"));
}

TEST_F(PageTest, IsNeitherStoredNorGuessedNorReferredTo) {
  const Reply reply = Get(Service(""));
  EXPECT_EQ(reply.Header("Cache-Control"), "no-store");
  EXPECT_EQ(reply.Header("X-Content-Type-Options"), "nosniff");
  EXPECT_EQ(reply.Header("Referrer-Policy"), "no-referrer");
}

TEST_F(PageTest, IsOnlyRead) {
  EXPECT_EQ(Post(Service(""), "{}").status, 405);
  EXPECT_EQ(Get(Service("page.html")).status, 404);
}

// A page of another site that has our address by a name of its own.
TEST_F(PageTest, IsNotServedUnderAForeignName) {
  Peer peer;
  EXPECT_EQ(peer.Send("GET", Service(""), {}, {{"Host", "elsewhere.example"}}).status, 403);
  EXPECT_EQ(peer.Send("GET", Service(""), {}, {{"Host", "localhost:1"}}).status, 200);
}

// Faults are for clients; who clears them on the page must reach it.
TEST_F(PageTest, IsServedDespiteFaultsAndOutsideOfTheLog) {
  ASSERT_TRUE(stand_.SetFault(kCryptService, {FaultType::Status}));
  stand_.ClearEvents();
  EXPECT_EQ(Get(Service("")).status, 200);
  EXPECT_THAT(stand_.GetEvents(), testing::IsEmpty());
}

}  // namespace
}  // namespace CryptStand
