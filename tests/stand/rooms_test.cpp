#include "stand/rooms.h"

#include <gtest/gtest.h>
#include <openssl/x509_vfy.h>

namespace CryptStand {
namespace {

// Whether a chain leads from `leaf` through `middle` to the roots.
bool Chains(const Cert& leaf, const std::vector<Cert>& middle, const std::vector<Cert>& roots) {
  X509_STORE* store = X509_STORE_new();
  for (const Cert& root : roots) X509_STORE_add_cert(store, root.Get0());
  STACK_OF(X509)* untrusted = sk_X509_new_null();
  for (const Cert& certificate : middle) sk_X509_push(untrusted, certificate.Get0());
  X509_STORE_CTX* context = X509_STORE_CTX_new();
  const bool good =
      X509_STORE_CTX_init(context, store, leaf.Get0(), untrusted) == 1 && X509_verify_cert(context) == 1;
  X509_STORE_CTX_free(context);
  sk_X509_free(untrusted);
  X509_STORE_free(store);
  return good;
}

class RoomsTest : public testing::Test {
 protected:
  RoomsTest() : authority_(store_, /*shareKeys=*/true), rooms_(store_, authority_) {}
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(store_.Open("", error)) << error;
    ASSERT_TRUE(store_.AddGroup("g", "Group") && store_.AddRoom("r", "g"));
  }
  Cert CertificateOf(Role role) { return authority_.Get(role).certificate; }

  Store store_;
  Authority authority_;
  Rooms rooms_;
};

TEST_F(RoomsTest, FindsTheGroupOfARoomAndOfAGroup) {
  EXPECT_EQ(rooms_.FindGroup("r"), "g");
  EXPECT_EQ(rooms_.FindGroup("g"), "g");
  EXPECT_EQ(rooms_.FindGroup("x"), std::nullopt);
}

TEST_F(RoomsTest, KeepsAuthoritiesOnceMade) {
  EXPECT_EQ(CertificateOf(Role::Root).ToPEM(), CertificateOf(Role::Root).ToPEM());
  Authority again(store_, /*shareKeys=*/false);
  EXPECT_EQ(again.Get(Role::InnerSigning).certificate.ToPEM(), CertificateOf(Role::InnerSigning).ToPEM());
}

TEST_F(RoomsTest, ChainsTheInnerSigningCertificateToTheLists) {
  const Cert inner = CertificateOf(Role::InnerSigning);
  const Cert issuing = CertificateOf(Role::Issuing);
  const Cert intermediate = CertificateOf(Role::Intermediate);
  EXPECT_TRUE(Chains(inner, {issuing, intermediate}, {CertificateOf(Role::Root)}));
  EXPECT_FALSE(Chains(inner, {intermediate}, {CertificateOf(Role::Root)}));
  EXPECT_FALSE(Chains(inner, {issuing, intermediate}, {CertificateOf(Role::Foreign)}));
}

TEST_F(RoomsTest, IssuesIntegrityKeysFromTheTrustedAuthority) {
  const auto keys = rooms_.GetIntegrityKeys("g");
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_TRUE(Chains(keys[0].identity.certificate,
                     {CertificateOf(Role::Issuing), CertificateOf(Role::Intermediate)},
                     {CertificateOf(Role::Root)}));
  EXPECT_EQ(keys[0].identity.certificate.GetIssuer(), CertificateOf(Role::Issuing).GetSubject());
  EXPECT_EQ(rooms_.GetIntegrityKeys("g")[0].identity.certificate.ToPEM(),
            keys[0].identity.certificate.ToPEM());
}

TEST_F(RoomsTest, PutsANewIntegrityKeyBehindTheOthers) {
  rooms_.GetIntegrityKeys("g");
  ASSERT_TRUE(rooms_.RenewIntegrityKey("g"));
  const auto keys = rooms_.GetIntegrityKeys("g");
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[1].subId, "2");
}

TEST_F(RoomsTest, KeepsAMemberForEachRoom) {
  const Identity member = rooms_.GetMember("r");
  EXPECT_FALSE(member.certificate.IsEmpty());
  EXPECT_EQ(rooms_.GetMember("r").certificate.ToPEM(), member.certificate.ToPEM());
  EXPECT_NE(rooms_.GetMember("other").certificate.ToPEM(), member.certificate.ToPEM());
}

TEST_F(RoomsTest, CannotShowAKeyThatIsNotThere) {
  EXPECT_FALSE(rooms_.SetRoomCertificate("r", RoomCertificate::Expired));
  EXPECT_FALSE(rooms_.SetRoomCertificate("x", RoomCertificate::Good));
}

}  // namespace
}  // namespace CryptStand
