#include "stand/database.h"

#include <chrono>
#include <gtest/gtest.h>

#include "stand/cert_maker.h"
#include "stand/parsed_texts.h"
#include "stand/stand.h"
#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

class DatabaseTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(database_.Open(folder_.Path("file"), error)) << error;
    ASSERT_TRUE(database_.Execute("CREATE TABLE t (a, b); INSERT INTO t VALUES ('x', 1), ('y', 2)", error))
        << error;
  }
  std::int64_t Count() {
    auto count = database_.Prepare("SELECT count(*) FROM t");
    return count.Next() ? count.Number(0) : -1;
  }

  Folder folder_;
  Database database_;
};

// In this mode of the file a reader keeps writers out. The other connection waits for seconds and then fails.
TEST_F(DatabaseTest, EndsAStatementThatWasNotReadToItsEnd) {
  EXPECT_TRUE(database_.Prepare("SELECT a FROM t").Next());
  Database other;
  std::string error;
  ASSERT_TRUE(other.Open(folder_.Path("file"), error)) << error;
  EXPECT_TRUE(other.Execute("INSERT INTO t VALUES ('z', 3)", error)) << error;
}

TEST_F(DatabaseTest, ForgetsTheValuesOfTheUseBefore) {
  const char* sql = "INSERT INTO t VALUES (?, ?)";
  ASSERT_TRUE(database_.Prepare(sql).Bind("w").Bind(4).Run());
  ASSERT_TRUE(database_.Prepare(sql).Bind("v").Run());
  auto find = database_.Prepare("SELECT count(*) FROM t WHERE a = 'v' AND b IS NULL");
  ASSERT_TRUE(find.Next());
  EXPECT_EQ(find.Number(0), 1);
}

TEST_F(DatabaseTest, RunsTheSameSQLTwiceAtATime) {
  const char* sql = "SELECT a FROM t ORDER BY a";
  for (int round = 0; round < 2; ++round) {
    auto outer = database_.Prepare(sql);
    ASSERT_TRUE(outer.Next());
    auto inner = database_.Prepare(sql);
    ASSERT_TRUE(inner.Next() && inner.Next());
    EXPECT_EQ(outer.Text(0), "x");
    EXPECT_EQ(inner.Text(0), "y");
    EXPECT_TRUE(outer.Next());
  }
}

TEST_F(DatabaseTest, RecoversAfterAFailedUse) {
  std::string error;
  ASSERT_TRUE(database_.Execute("CREATE UNIQUE INDEX i ON t (a)", error)) << error;
  const char* sql = "INSERT INTO t VALUES (?, 5)";
  EXPECT_FALSE(database_.Prepare(sql).Bind("x").Run());
  EXPECT_TRUE(database_.Prepare(sql).Bind("u").Run());
  EXPECT_FALSE(database_.Prepare("SELECT none FROM t").Bind("x").Next());
}

TEST_F(DatabaseTest, UndoesAChangeThatFails) {
  const auto insert = [&] { return database_.Prepare("INSERT INTO t VALUES ('z', 3)").Run(); };
  EXPECT_FALSE(database_.Transact([&] { return insert() && false; }));
  EXPECT_EQ(Count(), 2);
  EXPECT_TRUE(database_.Transact(insert));
  EXPECT_EQ(Count(), 3);
}

TEST(ParsedTextsTest, ParsesATextOnce) {
  const std::string pem = KeyPair::MakeEC().ToPEM();
  ParsedTexts<KeyPair> keys;
  EXPECT_EQ(keys.Get(pem).Get0(), keys.Get(pem).Get0());
  EXPECT_EQ(keys.Get(pem).ToPEM(), pem);
  EXPECT_TRUE(keys.Get("no key").IsEmpty());
}

TEST(ParsedTextsTest, LimitsWhatItKeeps) {
  const std::string pem = KeyPair::MakeEC().ToPEM();
  ParsedTexts<KeyPair> keys;
  const EVP_PKEY* first = keys.Get(pem).Get0();
  const KeyPair kept = keys.Get(pem);
  for (std::size_t i = 0; i < ParsedTexts<KeyPair>::kCapacity; ++i) keys.Get(std::to_string(i));
  EXPECT_NE(keys.Get(pem).Get0(), first);
  EXPECT_EQ(kept.ToPEM(), pem);
}

}  // namespace
}  // namespace CryptStand
