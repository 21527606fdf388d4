#include "stand/store.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
}

Identity MakeIdentity(const char* name) {
  static const KeyPair kKey = KeyPair::MakeRSA();
  return Identity::MakeRoot(CertSpec::Authority(name), kKey);
}

class StoreTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(store_.Open("", error)) << error;
    ASSERT_TRUE(store_.AddGroup("g", "Group") && store_.AddRoom("r", "g"));
  }
  Store store_;
};

TEST_F(StoreTest, FindsNothingWhereNothingIs) {
  EXPECT_FALSE(store_.GetIdentity("none").has_value());
  EXPECT_FALSE(store_.HasGroup("none"));
  EXPECT_FALSE(store_.GetRoom("none").has_value());
  EXPECT_FALSE(store_.GetCurrentRoomKey("r").has_value());
  EXPECT_TRUE(store_.GetIntegrityKeys("g").empty());
  EXPECT_FALSE(store_.HandOutSequence("none", /*renew=*/false).has_value());
  EXPECT_FALSE(store_.SetRoomOptions("none", {}));
}

TEST_F(StoreTest, KeepsTheFirstIdentityOfAName) {
  const Identity first = MakeIdentity("first");
  ASSERT_TRUE(store_.KeepIdentity("name", first).has_value());
  const auto kept = store_.KeepIdentity("name", MakeIdentity("second"));
  ASSERT_TRUE(kept.has_value());
  EXPECT_EQ(kept->certificate.ToPEM(), first.certificate.ToPEM());
  EXPECT_EQ(kept->key.ToPEM(), first.key.ToPEM());
}

TEST_F(StoreTest, KeepsRoomsWithTheirOptionsAndGroup) {
  ASSERT_TRUE(store_.SetRoomOptions("r", {true, false, true}));
  ASSERT_TRUE(store_.AddRoom("r", "other"));
  const auto room = store_.GetRoom("r");
  ASSERT_TRUE(room.has_value());
  EXPECT_EQ(room->group, "g");
  EXPECT_TRUE(room->options.locked);
  EXPECT_FALSE(room->options.plainKey);
  EXPECT_TRUE(room->options.certAuth);
}

TEST_F(StoreTest, AcceptsAnyStringAsRoomId) {
  const std::string names[] = {"a/b", "\xC3\xA4 '\"; DROP TABLE rooms", std::string("a\0b", 3)};
  for (const std::string& name : names) {
    ASSERT_TRUE(store_.AddRoom(name, "g"));
    EXPECT_TRUE(store_.GetRoom(name).has_value()) << name;
  }
  EXPECT_EQ(store_.GetRooms().size(), 4U);
}

TEST_F(StoreTest, TakesAnUploadOnceForItsSequenceNumber) {
  const Cert certificate = MakeIdentity("key").certificate;
  const auto sequence = store_.HandOutSequence("r", /*renew=*/true);
  ASSERT_TRUE(sequence.has_value());
  EXPECT_EQ(store_.UploadRoomKey("r", *sequence, certificate, "data"), Upload::Done);
  EXPECT_EQ(store_.UploadRoomKey("r", *sequence, certificate, "again"), Upload::StaleSequence);
  EXPECT_EQ(store_.GetCurrentRoomKey("r")->data, "data");
}

TEST_F(StoreTest, KeepsASequenceNumberUntilAnUploadUsesIt) {
  const Cert certificate = MakeIdentity("key").certificate;
  const auto first = store_.HandOutSequence("r", /*renew=*/false);
  const auto second = store_.HandOutSequence("r", /*renew=*/false);
  ASSERT_TRUE(first.has_value() && second.has_value());
  EXPECT_EQ(*first, *second);
  EXPECT_EQ(store_.UploadRoomKey("r", *first, certificate, "data"), Upload::Done);
  EXPECT_EQ(store_.UploadRoomKey("r", *second, certificate, "data"), Upload::StaleSequence);
  EXPECT_NE(*store_.HandOutSequence("r", /*renew=*/false), *first);
}

TEST_F(StoreTest, RefusesSequenceNumbersThatAreNotTheLast) {
  const Cert certificate = MakeIdentity("key").certificate;
  const auto first = store_.HandOutSequence("r", /*renew=*/true);
  const auto second = store_.HandOutSequence("r", /*renew=*/true);
  ASSERT_TRUE(first.has_value() && second.has_value());
  EXPECT_NE(*first, *second);
  for (const std::string& stale : {*first, std::string(), *second + "0", "0" + *second, std::string("x")}) {
    EXPECT_EQ(store_.UploadRoomKey("r", stale, certificate, "data"), Upload::StaleSequence) << stale;
  }
  EXPECT_EQ(store_.UploadRoomKey("r", *second, certificate, "data"), Upload::Done);
}

TEST_F(StoreTest, FindsRoomKeysByIssuerAndSerial) {
  const Cert old = MakeIdentity("old").certificate;
  const Cert current = MakeIdentity("current").certificate;
  ASSERT_EQ(store_.UploadRoomKey("r", *store_.HandOutSequence("r", /*renew=*/true), old, "old data"),
            Upload::Done);
  ASSERT_EQ(store_.UploadRoomKey("r", *store_.HandOutSequence("r", /*renew=*/true), current, "current data"),
            Upload::Done);
  EXPECT_EQ(store_.GetCurrentRoomKey("r")->data, "current data");
  EXPECT_EQ(store_.FindRoomKey("r", old.GetIssuer(), old.GetSerial())->data, "old data");
  EXPECT_FALSE(store_.FindRoomKey("r", old.GetIssuer(), current.GetSerial()).has_value());
  EXPECT_FALSE(store_.FindRoomKey("other", old.GetIssuer(), old.GetSerial()).has_value());
}

TEST_F(StoreTest, ShowsTheCurrentKeyWithAnotherCertificate) {
  const Cert certificate = MakeIdentity("key").certificate;
  EXPECT_FALSE(store_.ReplaceRoomCertificate("r", "shown"));
  ASSERT_EQ(store_.UploadRoomKey("r", *store_.HandOutSequence("r", /*renew=*/true), certificate, "data"),
            Upload::Done);
  ASSERT_TRUE(store_.ReplaceRoomCertificate("r", "shown"));
  EXPECT_EQ(store_.GetCurrentRoomKey("r")->certificate, "shown");
  EXPECT_EQ(store_.FindRoomKey("r", certificate.GetIssuer(), certificate.GetSerial())->certificate, "shown");
}

TEST_F(StoreTest, KeepsIntegrityKeysInTheirOrder) {
  ASSERT_TRUE(store_.AddIntegrityKey("g", "1", MakeIdentity("one")));
  ASSERT_TRUE(store_.AddIntegrityKey("g", "2", MakeIdentity("two")));
  ASSERT_TRUE(store_.AddIntegrityKey("h", "1", MakeIdentity("other")));
  const auto keys = store_.GetIntegrityKeys("g");
  ASSERT_EQ(keys.size(), 2U);
  EXPECT_EQ(keys[0].subId, "1");
  EXPECT_EQ(keys[1].identity.certificate.GetSubject(), "CN=two");
}

TEST(StoreFolderTest, KeepsEverythingInAPrivateFolder) {
  const Folder folder;
  const std::string path = folder.Path("state");
  std::string error;
  const Identity identity = MakeIdentity("kept");
  {
    Store store;
    ASSERT_TRUE(store.Open(path, error)) << error;
    ASSERT_TRUE(store.KeepIdentity("name", identity).has_value());
  }
  EXPECT_EQ(ModeOf(path), 0700U);
  EXPECT_EQ(ModeOf(path + "/stand.sqlite"), 0600U);
  Store store;
  ASSERT_TRUE(store.Open(path, error)) << error;
  EXPECT_EQ(store.GetIdentity("name")->certificate.ToPEM(), identity.certificate.ToPEM());
}

TEST(StoreFolderTest, SaysWhyAFolderCannotBeMade) {
  const Folder folder;
  Store store;
  std::string error;
  EXPECT_FALSE(store.Open(folder.Path("a/b"), error));
  EXPECT_THAT(error, testing::HasSubstr("No such file or directory"));
}

TEST(StoreFolderTest, SaysWhyAFileIsNoDatabase) {
  const Folder folder;
  std::ofstream(folder.Path("stand.sqlite")) << std::string(4096, 'x');
  Store store;
  std::string error;
  EXPECT_FALSE(store.Open(folder.Path(), error));
  EXPECT_THAT(error, testing::StartsWith(folder.Path("stand.sqlite") + ": "));
  EXPECT_THAT(error, testing::HasSubstr("not a database"));
}

TEST(StoreFolderTest, DoesNotFollowALinkInPlaceOfItsFile) {
  const Folder folder;
  std::filesystem::create_symlink(folder.Path("elsewhere"), folder.Path("stand.sqlite"));
  Store store;
  std::string error;
  EXPECT_FALSE(store.Open(folder.Path(), error));
  EXPECT_FALSE(std::filesystem::exists(folder.Path("elsewhere")));
}

}  // namespace
}  // namespace CryptStand
