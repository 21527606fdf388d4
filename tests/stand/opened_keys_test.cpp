#include "stand/opened_keys.h"

#include <gtest/gtest.h>

namespace CryptStand {
namespace {

class OpenedKeysTest : public testing::Test {
 protected:
  static Identity Make(const char* name, const KeyPair& key) {
    return Identity::MakeRoot(CertSpec::EndEntity(name), key);
  }
  std::string Wrap(const char* room) const {
    return WrapRoomKey({Make(room, key_).certificate, key_}, signer_, wrapping_.certificate, {});
  }

  const KeyPair key_ = KeyPair::MakeRSA();
  const Identity signer_ = Make("signer", key_);
  const Identity wrapping_ = Make("wrapping", key_);
  OpenedKeys keys_;
};

TEST_F(OpenedKeysTest, OpensAKeyOnce) {
  const std::string wrapped = Wrap("room");
  const auto first = keys_.Open(wrapped, signer_.certificate, wrapping_);
  const auto second = keys_.Open(wrapped, signer_.certificate, wrapping_);
  ASSERT_TRUE(first.has_value() && second.has_value());
  EXPECT_EQ(first->key.Get0(), second->key.Get0());
  EXPECT_EQ(second->certificate.GetSubject(), "CN=room");
}

TEST_F(OpenedKeysTest, KeepsKeysApart) {
  const std::string one = Wrap("one");
  const std::string two = Wrap("two");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(keys_.Open(one, signer_.certificate, wrapping_)->certificate.GetSubject(), "CN=one");
    EXPECT_EQ(keys_.Open(two, signer_.certificate, wrapping_)->certificate.GetSubject(), "CN=two");
  }
}

TEST_F(OpenedKeysTest, OpensNothingForOthersThatWasOpenedBefore) {
  const std::string wrapped = Wrap("room");
  ASSERT_TRUE(keys_.Open(wrapped, signer_.certificate, wrapping_).has_value());
  const Identity other = Make("other", KeyPair::MakeRSA());
  EXPECT_FALSE(keys_.Open(wrapped, other.certificate, wrapping_).has_value());
  EXPECT_FALSE(keys_.Open(wrapped, signer_.certificate, other).has_value());
  EXPECT_TRUE(keys_.Open(wrapped, signer_.certificate, wrapping_).has_value());
}

TEST_F(OpenedKeysTest, OpensNoDamagedKey) {
  std::string wrapped = Wrap("room");
  ASSERT_TRUE(keys_.Open(wrapped, signer_.certificate, wrapping_).has_value());
  wrapped[wrapped.size() / 2] = wrapped[wrapped.size() / 2] == 'A' ? 'B' : 'A';
  EXPECT_FALSE(keys_.Open(wrapped, signer_.certificate, wrapping_).has_value());
}

}  // namespace
}  // namespace CryptStand
