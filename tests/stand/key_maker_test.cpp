#include "stand/key_maker.h"

#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace CryptStand {
namespace {

TEST(KeyMakerTest, GivesEachKeyOnce) {
  KeyMaker maker;
  maker.Start(2);
  std::set<std::string> keys;
  // One more than was ordered.
  for (int i = 0; i < 3; ++i) keys.insert(maker.Take().ToPublicPEM());
  EXPECT_EQ(keys.size(), 3U);
  EXPECT_EQ(keys.count(""), 0U);
}

TEST(KeyMakerTest, GivesKeysToManyCallersAtOnce) {
  KeyMaker maker;
  maker.Start(2);
  std::vector<KeyPair> keys(4);
  std::vector<std::thread> callers;
  for (KeyPair& key : keys) callers.emplace_back([&] { key = maker.Take(); });
  for (std::thread& caller : callers) caller.join();
  for (const KeyPair& key : keys) EXPECT_FALSE(key.IsEmpty());
}

TEST(KeyMakerTest, EndsWhileKeysAreGenerated) {
  KeyMaker maker;
  maker.Start(100);
  EXPECT_FALSE(maker.Take().IsEmpty());
}

TEST(KeyMakerTest, TakesFurtherOrders) {
  KeyMaker maker;
  maker.Start(1);
  EXPECT_FALSE(maker.Take().IsEmpty());
  maker.Start(1);
  EXPECT_FALSE(maker.Take().IsEmpty());
}

}  // namespace
}  // namespace CryptStand
