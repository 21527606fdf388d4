#include "tests/end_to_end/end_to_end_fixture.h"

using ::testing::HasSubstr;

namespace TestSupport {
namespace {

// The room hands out its plain key, so that each of many openings costs one exchange and no decision is left
// to a key server.
class Tampering : public EndToEndTest {
 protected:
  static constexpr const char* kBytes = "bytes that nobody may change";

  void SetUp() override {
    EndToEndTest::SetUp();
    Protect(kBytes);
    ASSERT_TRUE(stand.SetRoomOptions(kRoom, CryptStand::RoomOptions{.plainKey = true}));
    secret = scratch.Read("secret");
    ASSERT_TRUE(Decrypt("secret", "opened").isVerified);  // Unchanged, the file is proven.
  }

  // A changed file yields a proven origin with the true bytes alone.
  void ExpectNoFalseProof(const std::string& changed) {
    std::filesystem::remove(scratch.Path("opened"));
    scratch.Make("changed", changed);
    const Opened opened = Decrypt("changed", "opened");
    if (opened.isVerified) {
      EXPECT_EQ(scratch.Read("opened"), kBytes);
    }
    if (!opened.done) {
      EXPECT_FALSE(opened.error.empty());
    }
    EXPECT_EQ(scratch.Exists("opened"), opened.done) << opened.error;
  }

  std::string secret;
};

TEST_F(Tampering, FlippedByteNeverYieldsAFalseProof) {
  for (std::size_t i = 0; i < secret.size(); i += 7) {
    SCOPED_TRACE(i);
    std::string changed = secret;
    changed[i] = static_cast<char>(changed[i] ^ (1 << (i % 8)));
    ExpectNoFalseProof(changed);
  }
}

TEST_F(Tampering, TruncatedFileIsRefused) {
  for (std::size_t size = 0; size < secret.size(); size += 11) {
    SCOPED_TRACE(size);
    scratch.Make("changed", secret.substr(0, size));
    const Opened opened = Decrypt("changed", "opened");
    EXPECT_FALSE(opened.done);
    EXPECT_THAT(opened.error, HasSubstr("Could not parse encrypted file: "));
  }
}

TEST_F(Tampering, BytesAfterTheEndAreRefused) {
  for (const std::string& tail : {std::string("x"), std::string("\0\0", 2), secret}) {
    scratch.Make("changed", secret + tail);
    const Opened opened = Decrypt("changed", "opened");
    EXPECT_FALSE(opened.done);
    EXPECT_THAT(opened.error, HasSubstr("Could not parse encrypted file: "));
  }
}

TEST_F(Tampering, FileThatIsNoMessageIsRefused) {
  scratch.Make("changed", "plain text");
  const Opened opened = Decrypt("changed", "opened");
  EXPECT_FALSE(opened.done);
  EXPECT_FALSE(opened.isSigned);
  EXPECT_THAT(opened.error, HasSubstr("Could not parse encrypted file: "));
}

}  // namespace
}  // namespace TestSupport
