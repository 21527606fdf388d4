#include "tools/suggestion.h"

#include <gtest/gtest.h>

namespace CryptCli {
namespace {

TEST(EditDistance, CountsTheFewestChanges) {
  EXPECT_EQ(EditDistance("", ""), 0U);
  EXPECT_EQ(EditDistance("", "abc"), 3U);
  EXPECT_EQ(EditDistance("decrypt", "decrypt"), 0U);
  EXPECT_EQ(EditDistance("decrpt", "decrypt"), 1U);
  EXPECT_EQ(EditDistance("decyrpt", "decrypt"), 1U) << "an exchange is one change";
  EXPECT_EQ(EditDistance("kitten", "sitting"), 3U);
}

TEST(FindSimilar, FindsTheNearestWord) {
  EXPECT_EQ(FindSimilar("--romo", {"--service", "--room", "--force"}), "--room");
  EXPECT_EQ(FindSimilar("decrpyt", {"encrypt", "decrypt"}), "decrypt");
}

TEST(FindSimilar, FindsAWordByItsBeginning) {
  EXPECT_EQ(FindSimilar("--require", {"--room", "--require-verified"}), "--require-verified");
}

TEST(FindSimilar, PrefersTheSameFirstLetterAtTheSameDistance) {
  EXPECT_EQ(EditDistance("dncrypt", "encrypt"), 1U);
  EXPECT_EQ(FindSimilar("dncrypt", {"encrypt", "decrypt"}), "decrypt");
  EXPECT_EQ(FindSimilar("--noom", {"--room", "--noon"}), "--noon");
  EXPECT_EQ(FindSimilar("encrpt", {"decrpt", "encrypt"}), "encrypt");
}

TEST(FindSimilar, IgnoresTheCaseOfLetters) {
  EXPECT_EQ(FindSimilar("GETAUDITLOG", {"Update", "GetAuditLog"}), "GetAuditLog");
}

TEST(FindSimilar, SuggestsNothingThatHasLittleInCommon) {
  EXPECT_EQ(FindSimilar("protect", {"encrypt", "decrypt", "sign"}), "");
  EXPECT_EQ(FindSimilar("x", {"sign", "call"}), "");
}

}  // namespace
}  // namespace CryptCli
