#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stand/store.h"

namespace CryptStand {
namespace {

using testing::ElementsAre;

Cert SelfSigned(const char* name) {
  static const KeyPair kKey = KeyPair::MakeRSA();
  return Identity::MakeRoot(CertSpec::Authority(name), kKey).certificate;
}

// A store whose start had a room with a key, and an imported key of its group.
class StoreResetTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(store_.Open("", error)) << error;
    ASSERT_TRUE(store_.AddGroup("g", "Group") && store_.AddRoom("r", "g"));
    MakeKey("r", "first", "data 1");
    ASSERT_TRUE(store_.AddImportedKey("g", "seal", "1", KeyPair::MakeEC()));
    ASSERT_TRUE(store_.MarkStart());
  }
  void MakeKey(const char* room, const char* name, const char* data) {
    const auto sequence = store_.HandOutSequence(room, /*renew=*/false);
    ASSERT_TRUE(sequence.has_value());
    ASSERT_EQ(store_.UploadRoomKey(room, *sequence, SelfSigned(name), data), Upload::Done);
  }
  std::string CurrentSubject(const char* room) {
    const auto key = store_.GetCurrentRoomKey(room);
    return key.has_value() ? Cert::FromPEM(key->certificate).GetSubject() : "(none)";
  }
  Store store_;
};

TEST_F(StoreResetTest, RemovesKeysOfThisRunAlone) {
  MakeKey("r", "second", "data 2");
  EXPECT_EQ(CurrentSubject("r"), "CN=second");
  ASSERT_TRUE(store_.Reset());
  EXPECT_EQ(CurrentSubject("r"), "CN=first");
  EXPECT_EQ(store_.ListRooms("r").at(0).keys, 1);
}

TEST_F(StoreResetTest, RestoresKeysThatWereChanged) {
  ASSERT_TRUE(store_.ReplaceRoomCertificate("r", SelfSigned("shown").ToPEM()));
  auto keys = store_.GetWrappedKeys("g");
  ASSERT_EQ(keys.size(), 1U);
  keys[0].data = "wrapped again";
  ASSERT_TRUE(store_.SetEncryptionCertificate("g", SelfSigned("reader").ToPEM(), keys));
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(store_.Reset());
    EXPECT_EQ(CurrentSubject("r"), "CN=first");
    EXPECT_EQ(store_.GetCurrentRoomKey("r")->data, "data 1");
    EXPECT_EQ(store_.GetGroup("g")->encryptionCertificate, "");
    ASSERT_TRUE(store_.ReplaceRoomCertificate("r", SelfSigned("later").ToPEM()));
  }
}

TEST_F(StoreResetTest, RestoresGroupsAndImportedKeys) {
  ASSERT_TRUE(store_.AddGroup("other", "Other") && store_.AddRoom("new", "other"));
  ASSERT_TRUE(store_.DeleteImportedKey("g", "seal", "1"));
  ASSERT_TRUE(store_.ConfigureGroup({.id = "g", .name = "Changed", .crlUrls = {"http://crl.example"}}));
  ASSERT_TRUE(store_.Reset());
  EXPECT_THAT(store_.GetGroups(), ElementsAre("g"));
  EXPECT_THAT(store_.GetRooms(), ElementsAre("r"));
  EXPECT_EQ(store_.GetGroup("g")->name, "Group");
  EXPECT_TRUE(store_.GetGroup("g")->crlUrls.empty());
  EXPECT_TRUE(store_.FindImportedKey("g", "seal", "1").has_value());
}

TEST_F(StoreResetTest, RefusesSequenceNumbersOfBefore) {
  const auto before = store_.HandOutSequence("r", /*renew=*/false);
  ASSERT_TRUE(store_.Reset());
  EXPECT_EQ(store_.UploadRoomKey("r", *before, SelfSigned("late"), "data"), Upload::StaleSequence);
  MakeKey("r", "second", "data 2");
  EXPECT_EQ(CurrentSubject("r"), "CN=second");
}

TEST_F(StoreResetTest, RemovesAuditRecordsOfThisRun) {
  ASSERT_TRUE(store_.AddAudit({.server = 0, .group = "g", .operation = "signRequest"}));
  const auto last = store_.GetLastAudit();
  ASSERT_TRUE(store_.Reset());
  EXPECT_TRUE(store_.GetAudit(0, "g", 0, last, 10).empty());
}

TEST_F(StoreResetTest, KeepsFormerCertificatesOfRenewedIdentities) {
  const KeyPair key = KeyPair::MakeEC();
  ASSERT_TRUE(store_.KeepIdentity("name", Identity::MakeRoot(CertSpec::Authority("one"), key)).has_value());
  ASSERT_TRUE(store_.RenewCertificate("name", SelfSigned("two")));
  ASSERT_TRUE(store_.Reset());
  EXPECT_EQ(store_.GetIdentity("name")->certificate.GetSubject(), "CN=two");
  ASSERT_EQ(store_.GetFormerCertificates("name").size(), 1U);
  EXPECT_EQ(store_.GetFormerCertificates("name")[0].GetSubject(), "CN=one");
  EXPECT_FALSE(store_.RenewCertificate("none", SelfSigned("two")));
}

}  // namespace
}  // namespace CryptStand
