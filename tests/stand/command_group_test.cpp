#include "tests/stand/admin_peer.h"

namespace CryptStand {
namespace {

class ConfigGroupTest : public AdminTest {};

TEST_F(ConfigGroupTest, ChangesAGroup) {
  const std::string root = Reader("root").certificate.ToPEM();
  const std::string issuing = Reader("issuing").certificate.ToBase64();
  KVMap payload = With(ConfigPayload(), "authnRootCertificates", TextsVal({root}));
  payload = With(payload, "authnIssuingCertificates", TextsVal({issuing, root}));
  payload = With(payload, "authnCrlUrls", TextsVal({"http://crl.example/a", "http://crl.example/b"}));
  EXPECT_EQ(RunForGroup(payload).Type(), "configGroupResponse");
  const auto group = stand_.GetGroup(kGroup);
  ASSERT_TRUE(group.has_value());
  EXPECT_EQ(group->name, "Group, new");
  EXPECT_EQ(group->owner, "owner");
  EXPECT_THAT(group->rootCertificates, testing::ElementsAre(root));
  EXPECT_THAT(group->issuingCertificates, testing::ElementsAre(issuing, root));
  EXPECT_THAT(group->crlUrls, testing::ElementsAre("http://crl.example/a", "http://crl.example/b"));
}

TEST_F(ConfigGroupTest, ReplacesListsInsteadOfAddingToThem) {
  const Val urls = TextsVal({"http://crl.example/a"});
  RunForGroup(With(ConfigPayload(), "authnCrlUrls", urls));
  EXPECT_EQ(RunForGroup(ConfigPayload()).Type(), "configGroupResponse");
  EXPECT_TRUE(stand_.GetGroup(kGroup)->crlUrls.empty());
}

TEST_F(ConfigGroupTest, MakesAGroupThatHasRoomsAndIntegrityKeys) {
  EXPECT_FALSE(stand_.GetGroup("new").has_value());
  EXPECT_FALSE(stand_.AddRoom("there", "new"));
  EXPECT_EQ(RunForGroup(ConfigPayload("new"), "new").Type(), "configGroupResponse");
  ASSERT_TRUE(stand_.AddRoom("there", "new"));
  EXPECT_EQ(Get(Service("crypt/key/there")).Text("group"), "new");
  EXPECT_EQ(RunCommand(GetKeyPayload(), "there").Type(), "getKeyResponse");
}

TEST_F(ConfigGroupTest, KeepsTheEncryptionCertificate) {
  const std::string certificate = Reader("one").certificate.ToPEM();
  ASSERT_EQ(RunForGroup(ReencryptPayload(certificate)).Code(), 0);
  ASSERT_EQ(RunForGroup(ConfigPayload()).Code(), 0);
  EXPECT_EQ(stand_.GetGroup(kGroup)->encryptionCertificate, certificate);
}

TEST_F(ConfigGroupTest, RefusesWhatIsMalformedAndChangesNothing) {
  const std::string good = Reader("root").certificate.ToPEM();
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {Object("type", "configGroupRequest", "groupId", kGroup), 601, "members are missing"},
      {With(ConfigPayload(), "more", Val("x")), 601, "a member too many"},
      {With(ConfigPayload(), "groupId", Val("")), 601, "no group"},
      {With(ConfigPayload(), "groupId", Val("demo")), 601, "the name of a room"},
      {With(ConfigPayload(), "groupId", Val("other")), 609, "a token for another group"},
      {With(ConfigPayload(), "groupName", Val(true)), 601, "a name that is no text"},
      {With(ConfigPayload(), "ownerGroupId", Val()), 601, "an owner that is no text"},
      {With(ConfigPayload(), "authnRootCertificates", Val(good.c_str())), 601, "no array"},
      {With(ConfigPayload(), "authnRootCertificates", Keys({good})), 601, "an array of objects"},
      {With(ConfigPayload(), "authnRootCertificates", TextsVal({"x"})), 603, "no root certificate"},
      {With(ConfigPayload(), "authnIssuingCertificates", TextsVal({good, ""})), 603,
       "no certificate after one"},
      {With(ConfigPayload(), "authnCrlUrls", TextsVal({""})), 601, "an empty address"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunForGroup(row.payload).Code(), row.code) << row.reason;
  EXPECT_EQ(stand_.GetGroup(kGroup)->name, "Demo group");
  EXPECT_FALSE(stand_.GetGroup("other").has_value());
}

class ReencryptTest : public AdminTest {
 protected:
  Reply ReencryptFor(const char* name) {
    return RunForGroup(ReencryptPayload(Reader(name).certificate.ToPEM()));
  }
};

TEST_F(ReencryptTest, OpensStoredKeysForTheNewCertificateAlone) {
  MakeRoomKey();
  EXPECT_FALSE(OpensFor(KeptKey(), Reader("one")));
  EXPECT_EQ(ReencryptFor("one").Type(), "reencryptResponse");
  EXPECT_TRUE(OpensFor(KeptKey(), Reader("one")));
  EXPECT_EQ(ReencryptFor("two").Type(), "reencryptResponse");
  EXPECT_TRUE(OpensFor(KeptKey(), Reader("two")));
  EXPECT_FALSE(OpensFor(KeptKey(), Reader("one")));
}

TEST_F(ReencryptTest, OpensEarlierKeysOfTheRoomToo) {
  const Cert first = Cert::FromPEM(MakeRoomKey().Text("certificate"));
  MakeRoomKey();
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  const KVMap id = Object("issuer", first.GetIssuer().c_str(), "serial", first.GetSerial().c_str());
  EXPECT_TRUE(OpensFor(Post(Service("crypt/key/demo"), Object("id", id)).Text("data"), Reader("one")));
}

TEST_F(ReencryptTest, KeepsOtherReadersOfAKey) {
  const Reply list = Post(Service("crypt/certlist/demo"), Object("keyserver", ""));
  const Val keys = Keys({Reader("member").certificate.ToPEM()});
  const Reply made = RunCommand(With(GeneratePayload(), "encryptionKeys", keys));
  const std::string wrapped = ReadText(made.Payload(), "encodedWrappedKey").value_or("");
  Post(Service("crypt/newkey/demo"), Object("seqnr", list.Text("seqnr").c_str(), "key", wrapped.c_str()));
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  EXPECT_TRUE(OpensFor(KeptKey(), Reader("member")));
  EXPECT_TRUE(OpensFor(KeptKey(), Reader("one")));
}

TEST_F(ReencryptTest, LeavesKeyServersAbleToDecrypt) {
  const KeyPair key = Cert::FromPEM(MakeRoomKey().Text("certificate")).GetPublicKey();
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  const Reply reply = RunCommand(DecryptPayload(KeptKey(), ToBase64(key.Encrypt("content key"))));
  EXPECT_EQ(ReadTexts(reply.Payload(), "plainData"), std::vector<std::string>{ToBase64("content key")});
}

TEST_F(ReencryptTest, WrapsKeysToComeForTheCertificate) {
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  EXPECT_TRUE(OpensFor(MakeRoomKey().Text("data"), Reader("one")));
}

TEST_F(ReencryptTest, MayNameTheSameCertificateAgain) {
  MakeRoomKey();
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  EXPECT_TRUE(OpensFor(KeptKey(), Reader("one")));
}

TEST_F(ReencryptTest, LeavesOtherGroupsAlone) {
  ASSERT_EQ(RunForGroup(ConfigPayload("new"), "new").Code(), 0);
  ASSERT_TRUE(stand_.AddRoom("there", "new"));
  const std::string before = MakeRoomKey("there").Text("data");
  ASSERT_EQ(ReencryptFor("one").Code(), 0);
  EXPECT_EQ(KeptKey("there"), before);
  EXPECT_EQ(stand_.GetGroup("new")->encryptionCertificate, "");
}

TEST_F(ReencryptTest, TakesACertificateThatAgreesKeys) {
  const Identity reader = Identity::MakeRoot(CertSpec::EndEntity("agreeing"), KeyPair::MakeEC());
  MakeRoomKey();
  ASSERT_EQ(RunForGroup(ReencryptPayload(reader.certificate.ToBase64())).Code(), 0);
  EXPECT_TRUE(OpensFor(KeptKey(), reader));
}

TEST_F(ReencryptTest, RefusesWhatIsMalformedAndChangesNothing) {
  MakeRoomKey();
  const std::string before = KeptKey();
  const std::string good = Reader("one").certificate.ToPEM();
  const KeyPair signing(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
  const Cert signer = Cert::Issue(CertSpec::EndEntity("signing alone"), signing, Reader("one"));
  ASSERT_FALSE(signer.IsEmpty());
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {Object("type", "reencryptRequest", "groupId", kGroup), 601, "no certificate"},
      {With(ReencryptPayload(good), "more", Val("x")), 601, "a member too many"},
      {With(ReencryptPayload(good), "groupId", Val(true)), 601, "a group that is no text"},
      {With(ReencryptPayload(good), "encryptionKey", Keys({good})), 601, "an array"},
      {With(ReencryptPayload(good), "encryptionKey", Val(Object("type", "externalCertificate"))), 601,
       "an empty object"},
      {With(ReencryptPayload(good), "encryptionKey", Key(good, "handle")), 602, "another type of key"},
      {ReencryptPayload(""), 603, "an empty certificate"},
      {ReencryptPayload("AAAA"), 603, "no certificate"},
      {ReencryptPayload(signer.ToPEM()), 603, "a certificate for signatures alone"},
      {ReencryptPayload(good, "none"), 607, "an unknown group"},
      {ReencryptPayload(good, "other"), 609, "a token for another group"},
  };
  ASSERT_EQ(RunForGroup(ConfigPayload("other"), "other").Code(), 0);
  for (const auto& row : rows) EXPECT_EQ(RunForGroup(row.payload).Code(), row.code) << row.reason;
  EXPECT_EQ(KeptKey(), before);
}

}  // namespace
}  // namespace CryptStand
