#include "stand/wrapped_key.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stand/wire.h"

namespace CryptStand {
namespace {

Identity MakeOne(const char* name) {
  return Identity::MakeRoot(CertSpec::EndEntity(name));
}

class WrappedKeyTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    signer_ = new Identity(MakeOne("signer"));
    wrapping_ = new Identity(MakeOne("wrapping"));
    const Identity room = MakeOne("room");
    roomKey_ = new RoomKeyPair{room.certificate, room.key};
  }
  static void TearDownTestSuite() {
    delete signer_;
    delete wrapping_;
    delete roomKey_;
  }
  static std::string Wrap(const std::vector<Cert>& readers = {}) {
    return WrapRoomKey(*roomKey_, *signer_, wrapping_->certificate, readers);
  }
  static bool Opens(const std::string& text) {
    return OpenRoomKey(text, signer_->certificate, *wrapping_).has_value();
  }

  static Identity* signer_;
  static Identity* wrapping_;
  static RoomKeyPair* roomKey_;
};

Identity* WrappedKeyTest::signer_ = nullptr;
Identity* WrappedKeyTest::wrapping_ = nullptr;
RoomKeyPair* WrappedKeyTest::roomKey_ = nullptr;

TEST_F(WrappedKeyTest, OpensWhatItWrapped) {
  const auto opened = OpenRoomKey(Wrap(), signer_->certificate, *wrapping_);
  ASSERT_TRUE(opened.has_value());
  EXPECT_EQ(opened->certificate.ToPEM(), roomKey_->certificate.ToPEM());
  EXPECT_EQ(opened->key.ToPEM(), roomKey_->key.ToPEM());
}

TEST_F(WrappedKeyTest, OpensWithFurtherReaders) {
  EXPECT_TRUE(Opens(Wrap({signer_->certificate})));
}

TEST_F(WrappedKeyTest, RefusesAnotherSigner) {
  EXPECT_FALSE(OpenRoomKey(Wrap(), wrapping_->certificate, *wrapping_).has_value());
}

TEST_F(WrappedKeyTest, RefusesAnotherWrapping) {
  EXPECT_FALSE(OpenRoomKey(Wrap(), signer_->certificate, *signer_).has_value());
}

TEST_F(WrappedKeyTest, CannotWrapForNothing) {
  EXPECT_EQ(WrapRoomKey(*roomKey_, *signer_, Cert(), {}), "");
}

TEST_F(WrappedKeyTest, RefusesWhatIsNotAWrappedKey) {
  for (const char* text : {"", "x", "AAAA", "MIIB", "{}"}) EXPECT_FALSE(Opens(text)) << text;
}

TEST_F(WrappedKeyTest, RefusesATruncatedKey) {
  const std::string whole = *FromBase64(Wrap());
  for (std::size_t size = 0; size < whole.size(); size += 13) {
    EXPECT_FALSE(Opens(ToBase64(std::string_view(whole).substr(0, size)))) << size;
  }
}

// Some bytes are not covered by the signature, so a changed wrapped key may still open. Then it must give the
// same key.
TEST_F(WrappedKeyTest, NeverGivesAnotherKeyWhenAByteIsFlipped) {
  std::string bytes = *FromBase64(Wrap());
  const std::string expected = roomKey_->key.ToDER();
  for (std::size_t i = 0; i < bytes.size(); i += 7) {
    bytes[i] = static_cast<char>(bytes[i] ^ 0x41);
    const auto opened = OpenRoomKey(ToBase64(bytes), signer_->certificate, *wrapping_);
    EXPECT_EQ(opened.has_value() ? opened->key.ToDER() : expected, expected) << i;
    bytes[i] = static_cast<char>(bytes[i] ^ 0x41);
  }
}

}  // namespace
}  // namespace CryptStand
