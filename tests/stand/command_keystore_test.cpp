#include "tests/stand/admin_peer.h"

namespace CryptStand {
namespace {

class KeyStoreTest : public AdminTest {
 protected:
  static const KeyPair& FirstKey() { return Reader("first").key; }
  static const KeyPair& SecondKey() { return Reader("second").key; }
  Reply Import(const KeyPair& key) { return RunForGroup(ImportPayload(key.ToPEM())); }
  // Whether the key server signs with this key when a request names this handle.
  bool SignsWith(const KeyPair& key, const std::string& subId, const char* id = "seal") {
    const Reply reply = Sign(SignWith(subId, id, "RSASSA-PKCS1-v1_5-SHA-512", HashOf("text", EVP_sha512())));
    const auto signatures = ReadTexts(reply.Payload(), "signedHashes").value_or(std::vector<std::string>{""});
    return key.Verify("text", FromBase64(signatures.at(0)).value_or(""));
  }
};

class ImportKeyTest : public KeyStoreTest {};

TEST_F(ImportKeyTest, SignsWithAnImportedKey) {
  EXPECT_EQ(Import(FirstKey()).Type(), "importKeyResponse");
  EXPECT_TRUE(SignsWith(FirstKey(), "1"));
  EXPECT_TRUE(SignsWith(FirstKey(), ""));
}

TEST_F(ImportKeyTest, PutsFurtherKeysBehindTheOthers) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  ASSERT_EQ(Import(SecondKey()).Code(), 0);
  EXPECT_TRUE(SignsWith(FirstKey(), "1"));
  EXPECT_TRUE(SignsWith(SecondKey(), "2"));
  EXPECT_TRUE(SignsWith(SecondKey(), ""));
}

TEST_F(ImportKeyTest, TakesKeysUnderAPassword) {
  EXPECT_EQ(RunForGroup(ImportPayload(FirstKey().ToEncryptedPEM("secret"), "secret")).Code(), 0);
  EXPECT_TRUE(SignsWith(FirstKey(), "1"));
}

TEST_F(ImportKeyTest, MakesTheIntegrityKeyOfTheGroup) {
  RunCommand(GetKeyPayload());
  ASSERT_EQ(RunForGroup(ImportPayload(FirstKey().ToPEM(), "", "integrity")).Code(), 0);
  const auto key = ReadMap(RunCommand(GetKeyPayload()).Payload(), "key").value_or(KVMap());
  EXPECT_EQ(ReadText(key, "subId"), "2");
  EXPECT_EQ(CertFromText(ReadText(key, "encodedCertificate").value_or("")).GetPublicKey().ToPublicPEM(),
            FirstKey().ToPublicPEM());
  EXPECT_TRUE(SignsWith(FirstKey(), "2", "integrity"));
}

TEST_F(ImportKeyTest, RefusesWhatIsMalformed) {
  const std::string pem = FirstKey().ToPEM();
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {Object("type", "importKeyRequest", "groupId", kGroup), 601, "members are missing"},
      {With(ImportPayload(pem), "more", Val("x")), 601, "a member too many"},
      {With(ImportPayload(pem), "id", Val("")), 601, "no identifier"},
      {With(ImportPayload(pem), "id", Val(true)), 601, "an identifier that is no text"},
      {With(ImportPayload(pem), "encodedKey", Val()), 601, "a key that is no text"},
      {With(ImportPayload(pem), "password", Val(std::int64_t{1})), 601, "a password that is no text"},
      {With(ImportPayload(pem), "groupId", Val("none")), 607, "an unknown group"},
      {ImportPayload(""), 604, "nothing"},
      {ImportPayload("no base64"), 604, "no base64"},
      {ImportPayload("AAAA"), 602, "no key"},
      {ImportPayload(KeyPair::MakeEC().ToPEM()), 602, "a key that makes other signatures"},
      {ImportPayload(FirstKey().ToPublicPEM()), 602, "a public key"},
      {ImportPayload(FirstKey().ToEncryptedPEM("secret"), "other"), 609, "another password"},
      {ImportPayload(FirstKey().ToEncryptedPEM("secret")), 609, "no password"},
      {ImportPayload(pem, "secret"), 609, "a password for a key that has none"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunForGroup(row.payload).Code(), row.code) << row.reason;
  EXPECT_EQ(Sign(SignWith("")).Code(), 607);
}

TEST_F(ImportKeyTest, RefusesATokenForAnotherGroup) {
  ASSERT_EQ(RunForGroup(ConfigPayload("other"), "other").Code(), 0);
  EXPECT_EQ(RunForGroup(ImportPayload(FirstKey().ToPEM()), "other").Code(), 609);
}

TEST_F(ImportKeyTest, LeavesOtherGroupsWithoutTheKey) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  ASSERT_EQ(RunForGroup(ConfigPayload("new"), "new").Code(), 0);
  ASSERT_TRUE(stand_.AddRoom("there", "new"));
  EXPECT_EQ(RunWithKey(SignWith("1"), Handle("1", "seal"), "there").Code(), 607);
}

class DeleteKeyTest : public KeyStoreTest {};

TEST_F(DeleteKeyTest, TakesAKeyAway) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  ASSERT_EQ(Import(SecondKey()).Code(), 0);
  EXPECT_EQ(Delete(DeletePayload("2")).Type(), "deleteKeyResponse");
  EXPECT_EQ(Sign(SignWith("2")).Code(), 607);
  EXPECT_TRUE(SignsWith(FirstKey(), ""));
  EXPECT_EQ(Delete(DeletePayload("2")).Code(), 607);
}

TEST_F(DeleteKeyTest, DoesNotGiveTheSubIdToAnother) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  ASSERT_EQ(Delete(DeletePayload("1")).Code(), 0);
  ASSERT_EQ(Import(SecondKey()).Code(), 0);
  EXPECT_EQ(Sign(SignWith("1")).Code(), 607);
  EXPECT_TRUE(SignsWith(SecondKey(), "2"));
}

TEST_F(DeleteKeyTest, TakesIntegrityKeysAway) {
  RunCommand(GetKeyPayload());
  EXPECT_EQ(Delete(DeletePayload("1", "integrity")).Code(), 0);
  EXPECT_EQ(Sign(SignWith("1", "integrity")).Code(), 607);
  EXPECT_EQ(RunCommand(GetKeyPayload("1")).Code(), 607);
  const auto key = ReadMap(RunCommand(GetKeyPayload()).Payload(), "key").value_or(KVMap());
  EXPECT_EQ(ReadText(key, "subId"), "2") << "a group always has an integrity key";
}

TEST_F(DeleteKeyTest, RefusesWhatIsMalformedOrUnknown) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {DeletePayload("9"), 607, "an unknown sub-identifier"},
      {DeletePayload("1", "other"), 607, "an unknown identifier"},
      {DeletePayload(""), 607, "no sub-identifier"},
      {With(DeletePayload("1"), "groupId", Val("none")), 607, "an unknown group"},
      {With(DeletePayload("1"), "groupId", Val()), 601, "a group that is no text"},
      {With(DeletePayload("1"), "more", Val("x")), 601, "a member too many"},
  };
  for (const auto& row : rows) EXPECT_EQ(Delete(row.payload).Code(), row.code) << row.reason;
  EXPECT_TRUE(SignsWith(FirstKey(), "1"));
}

TEST_F(DeleteKeyTest, RefusesOtherHandles) {
  const struct {
    Val key;
    int code;
    const char* reason;
  } rows[] = {
      {Val(KVMap()), 601, "an empty handle"},
      {Val("seal"), 601, "a text"},
      {Val(Object("type", "handle", "id", "seal")), 601, "no sub-identifier"},
      {Val(Object("type", "certificate", "id", "seal", "subId", "1")), 602, "another type"},
  };
  for (const auto& row : rows) {
    const Reply reply = RunForGroup(With(DeletePayload("1"), "key", row.key));
    EXPECT_EQ(reply.Code(), row.code) << row.reason;
  }
}

TEST_F(DeleteKeyTest, RefusesATokenForAnotherKey) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  EXPECT_EQ(RunWithKey(DeletePayload("1"), Handle("2", "seal"), kGroup).Code(), 609);
  EXPECT_EQ(RunWithKey(DeletePayload("1"), Handle("1", "other"), kGroup).Code(), 609);
  EXPECT_EQ(RunForGroup(DeletePayload("1")).Code(), 609) << "a token that names no key";
  EXPECT_TRUE(SignsWith(FirstKey(), "1"));
}

class SignByHandleTest : public KeyStoreTest {};

TEST_F(SignByHandleTest, SignsWithEachAlgorithm) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  const struct {
    const char* algorithm;
    const EVP_MD* method;
    const char* digest;
  } rows[] = {{"RSASSA-PKCS1-v1_5-SHA-256", EVP_sha256(), kSHA256},
              {"RSASSA-PKCS1-v1_5-SHA-384", EVP_sha384(), kSHA384},
              {"RSASSA-PKCS1-v1_5-SHA-512", EVP_sha512(), kSHA512}};
  for (const auto& row : rows) {
    const Reply reply = Sign(SignWith("1", "seal", row.algorithm, HashOf("text", row.method)));
    const auto signatures = ReadTexts(reply.Payload(), "signedHashes").value_or(std::vector<std::string>{""});
    EXPECT_TRUE(FirstKey().Verify("text", FromBase64(signatures.at(0)).value_or(""), row.digest))
        << row.algorithm;
    EXPECT_EQ(Sign(SignWith("1", "seal", row.algorithm, "short")).Code(), 601) << row.algorithm;
  }
}

TEST_F(SignByHandleTest, RefusesOtherAlgorithms) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  for (const char* algorithm : {"", "RSASSA-PSS", "RSASSA-PKCS1-v1_5-SHA-1", "rsassa-pkcs1-v1_5-sha-256"}) {
    EXPECT_EQ(Sign(SignWith("1", "seal", algorithm)).Code(), 608) << algorithm;
  }
}

TEST_F(SignByHandleTest, RefusesATokenForAnotherKey) {
  ASSERT_EQ(Import(FirstKey()).Code(), 0);
  EXPECT_EQ(RunWithKey(SignWith("1"), Handle("1"), "demo").Code(), 609);
  EXPECT_EQ(RunWithKey(SignWith("1"), Handle("", "seal"), "demo").Code(), 609);
}

TEST_F(SignByHandleTest, TakesTheIntegrityKeyInUseForAnEmptySubId) {
  RunCommand(GetKeyPayload());
  EXPECT_EQ(Sign(SignWith("", "integrity")).Type(), "signResponse");
}

}  // namespace
}  // namespace CryptStand
