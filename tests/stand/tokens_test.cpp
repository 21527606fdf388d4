#include "stand/tokens.h"

#include <gtest/gtest.h>
#include <set>

namespace CryptStand {
namespace {

const TokenClaim kClaim{"http://server", "signRequest", "room", "integrity", "1"};

TEST(TokensTest, GivesTheClaimBackOnce) {
  Tokens tokens;
  const std::string token = tokens.Issue(kClaim);
  std::string reason;
  const auto claim = tokens.Redeem(token, "http://server", "signRequest", reason);
  ASSERT_TRUE(claim.has_value()) << reason;
  EXPECT_EQ(claim->id, "room");
  EXPECT_EQ(claim->keyId, "integrity");
  EXPECT_EQ(claim->keySubId, "1");
  EXPECT_FALSE(tokens.Redeem(token, "http://server", "signRequest", reason).has_value());
  EXPECT_EQ(reason, "token unknown or used");
}

TEST(TokensTest, RefusesATokenOutsideItsBinding) {
  Tokens tokens;
  std::string reason;
  EXPECT_FALSE(tokens.Redeem(tokens.Issue(kClaim), "http://other", "signRequest", reason).has_value());
  EXPECT_EQ(reason, "token for another key server");
  EXPECT_FALSE(tokens.Redeem(tokens.Issue(kClaim), "http://server", "decryptRequest", reason).has_value());
  EXPECT_EQ(reason, "token for another operation");
}

TEST(TokensTest, UsesATokenUpWhenItIsPresentedWrongly) {
  Tokens tokens;
  std::string reason;
  const std::string token = tokens.Issue(kClaim);
  EXPECT_FALSE(tokens.Redeem(token, "http://other", "signRequest", reason).has_value());
  EXPECT_FALSE(tokens.Redeem(token, "http://server", "signRequest", reason).has_value());
}

TEST(TokensTest, RefusesAnExpiredToken) {
  Tokens tokens;
  tokens.SetLifetime(std::chrono::milliseconds(0));
  std::string reason;
  EXPECT_FALSE(tokens.Redeem(tokens.Issue(kClaim), "http://server", "signRequest", reason).has_value());
  EXPECT_EQ(reason, "token expired");
}

TEST(TokensTest, RefusesUnknownTokens) {
  Tokens tokens;
  tokens.Issue(kClaim);
  std::string reason;
  for (const char* text : {"", "x", "AAAA"}) {
    EXPECT_FALSE(tokens.Redeem(text, "http://server", "signRequest", reason).has_value()) << text;
  }
}

TEST(TokensTest, NeverIssuesATokenTwice) {
  Tokens tokens;
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(seen.insert(tokens.Issue(kClaim)).second);
}

TEST(TokensTest, KeepsGoodTokensWhenItDropsExpiredOnes) {
  Tokens tokens;
  const std::string good = tokens.Issue(kClaim);
  tokens.SetLifetime(std::chrono::milliseconds(0));
  for (int i = 0; i < 5000; ++i) tokens.Issue(kClaim);
  std::string reason;
  EXPECT_TRUE(tokens.Redeem(good, "http://server", "signRequest", reason).has_value()) << reason;
}

}  // namespace
}  // namespace CryptStand
