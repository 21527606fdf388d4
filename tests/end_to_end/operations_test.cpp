// Each named operation over real HTTP, and what is different on the servers afterwards.
#include "tests/end_to_end/operations_fixture.h"

using CryptStand::FaultType;
using CryptStand::KeyPair;
using CryptStand::OpensFor;
using CryptStand::Reader;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace TestSupport {
namespace {

std::string PEM(const char* reader) {
  return Reader(reader).certificate.ToPEM();
}

const KeyPair& FirstKey() {
  static const KeyPair key = KeyPair::MakeRSA();
  return key;
}

const KeyPair& SecondKey() {
  static const KeyPair key = KeyPair::MakeRSA();
  return key;
}

class ConfigGroupEndToEnd : public OperationsTest {
 protected:
  bool Config(const char* group) {
    return Perform("ConfigGroup", {{"group", Text(group)},
                                   {"groupname", Text("A group, \"quoted\"")},
                                   {"ownergroup", Text(kGroup)},
                                   {"authnrootcerts", Texts({PEM("root")})},
                                   {"authnissuingcerts", Texts({PEM("issuing"), PEM("root")})},
                                   {"authncrlurls", Texts({"http://crl.example/a"})},
                                   {"transaction", Text("t")}});
  }
};

TEST_F(ConfigGroupEndToEnd, LeavesTheGroupWithAllThatWasConfigured) {
  ASSERT_TRUE(Config("new group")) << error;
  EXPECT_EQ(JsonText(result), "{}");
  const auto group = stand.GetGroup("new group");
  ASSERT_TRUE(group.has_value());
  EXPECT_EQ(group->name, "A group, \"quoted\"");
  EXPECT_EQ(group->owner, kGroup);
  EXPECT_THAT(group->rootCertificates, ElementsAre(PEM("root")));
  EXPECT_THAT(group->issuingCertificates, ElementsAre(PEM("issuing"), PEM("root")));
  EXPECT_THAT(group->crlUrls, ElementsAre("http://crl.example/a"));
}

TEST_F(ConfigGroupEndToEnd, MakesAGroupWhoseRoomsProtectFiles) {
  ASSERT_TRUE(Config("new")) << error;
  ASSERT_TRUE(stand.AddRoom("there", "new"));
  Protect("bytes", "there");
  ExpectComesBack("bytes", "there");
}

TEST_F(ConfigGroupEndToEnd, ChangesAGroupThatIsThere) {
  ASSERT_TRUE(Config("new")) << error;
  ASSERT_TRUE(Perform("CryptConfigGroup", {{"group", Text("new")}, {"groupname", Text("other")}})) << error;
  EXPECT_EQ(stand.GetGroup("new")->name, "other");
  EXPECT_THAT(stand.GetGroup("new")->rootCertificates, IsEmpty());
}

class ReencryptEndToEnd : public OperationsTest {
 protected:
  bool ReencryptFor(const char* reader) {
    return Perform("Reencrypt", {{"group", Text(kGroup)}, {"enccert", Text(PEM(reader))}});
  }
};

TEST_F(ReencryptEndToEnd, NewKeysOpenWithNewCertificateOnly) {
  Protect("bytes");
  ASSERT_TRUE(ReencryptFor("old")) << error;
  EXPECT_EQ(JsonText(result), "{}");
  EXPECT_TRUE(OpensFor(KeptKey("data"), Reader("old")));
  ASSERT_TRUE(ReencryptFor("new")) << error;
  EXPECT_TRUE(OpensFor(KeptKey("data"), Reader("new")));
  EXPECT_FALSE(OpensFor(KeptKey("data"), Reader("old")));
}

TEST_F(ReencryptEndToEnd, LeavesFilesThatWereProtectedBeforeReadable) {
  Protect("bytes");
  ASSERT_TRUE(ReencryptFor("new")) << error;
  ExpectComesBack("bytes");
}

class KeyStoreEndToEnd : public OperationsTest {};

TEST_F(KeyStoreEndToEnd, AnImportedKeySigns) {
  ASSERT_TRUE(Import("seal", FirstKey().ToPEM())) << error;
  EXPECT_EQ(JsonText(result), "{}");
  ASSERT_TRUE(Sign("seal", "1")) << error;
  EXPECT_TRUE(IsSignedBy(FirstKey()));
}

TEST_F(KeyStoreEndToEnd, AnImportedKeyIsReadUnderItsPassword) {
  const std::string key = FirstKey().ToEncryptedPEM("pass word");
  EXPECT_FALSE(Import("seal", key, "other"));
  EXPECT_EQ(error, "609 Auth Failed");
  EXPECT_FALSE(Sign("seal", "1"));
  ASSERT_TRUE(Import("seal", key, "pass word")) << error;
  ASSERT_TRUE(Sign("seal", "")) << error;
  EXPECT_TRUE(IsSignedBy(FirstKey()));
}

TEST_F(KeyStoreEndToEnd, AnImportedIntegrityKeySignsFilesFromThenOn) {
  Protect("bytes");
  ASSERT_TRUE(Import("integrity", SecondKey().ToBase64())) << error;
  ExpectComesBack("bytes");
  Protect("more bytes");
  ExpectComesBack("more bytes");
  ASSERT_TRUE(Sign("integrity", "2")) << error;
  EXPECT_TRUE(IsSignedBy(SecondKey()));
}

TEST_F(KeyStoreEndToEnd, ADeletedKeyIsGone) {
  ASSERT_TRUE(Import("seal", FirstKey().ToBase64())) << error;
  ASSERT_TRUE(Import("seal", SecondKey().ToBase64())) << error;
  ASSERT_TRUE(Perform("DeleteKey", {{"group", Text(kGroup)}, {"key", Handle("seal", "1")}})) << error;
  EXPECT_EQ(JsonText(result), "{}");
  EXPECT_FALSE(Sign("seal", "1"));
  EXPECT_EQ(error, "607 Key Not Found");
  EXPECT_TRUE(result.IsNil());
  EXPECT_FALSE(Perform("DeleteKey", {{"group", Text(kGroup)}, {"key", Handle("seal", "1")}}));
  EXPECT_EQ(error, "607 Key Not Found");
  ASSERT_TRUE(Sign("seal", "2")) << error;
  EXPECT_TRUE(IsSignedBy(SecondKey()));
}

TEST_F(KeyStoreEndToEnd, AKeyMapWinsOverIdAndSubId) {
  ASSERT_TRUE(Import("seal", FirstKey().ToBase64())) << error;
  ASSERT_TRUE(Import("other", SecondKey().ToBase64())) << error;
  const std::string hash = ToBase64(CryptStand::HashOf("what is signed", EVP_sha512()));
  ASSERT_TRUE(Perform("SignByKey", {{"object", Text(kGroup)},
                                    {"key", Handle("other", "1")},
                                    {"id", Text("seal")},
                                    {"subid", Text("1")},
                                    {"algorithm", Text(kAlgorithm)},
                                    {"hash", Text(hash)}}))
      << error;
  EXPECT_TRUE(IsSignedBy(SecondKey()));
}

class WrappedKeysEndToEnd : public OperationsTest {
 protected:
  // A key that a key server makes for a room and its readers.
  std::string MakeKey(const std::vector<std::string>& certificates) {
    EXPECT_TRUE(Perform("Encrypt",
                        {{"room", Text(kRoom)}, {"seqnr", Text("1")}, {"certificates", Texts(certificates)}}))
        << error;
    return Result("newkey");
  }
  std::string Export(const std::string& wrapped) {
    EXPECT_TRUE(Perform("Decrypt", {{"room", Text(kRoom)}, {"keys", Keys({{"k", wrapped}})}})) << error;
    return ResultKey(0, "plain");
  }
  static KeyPair LoadBase64(const std::string& text) {
    const std::string der = FromBase64(text);
    const auto* position = reinterpret_cast<const unsigned char*>(der.data());
    return KeyPair(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(der.size())));
  }
};

TEST_F(WrappedKeysEndToEnd, AKeyThatIsMadeOpensForTheCertificatesThatWereNamed) {
  const std::string wrapped = MakeKey({PEM("one"), PEM("two")});
  EXPECT_EQ(Result("room"), kRoom);
  EXPECT_EQ(Result("seqnr"), "1");
  EXPECT_TRUE(OpensFor(wrapped, Reader("one")));
  EXPECT_TRUE(OpensFor(wrapped, Reader("two")));
  EXPECT_FALSE(OpensFor(wrapped, Reader("three")));
}

TEST_F(WrappedKeysEndToEnd, ARewrappedKeyOpensForTheNewCertificates) {
  const std::string first = MakeKey({PEM("one")});
  const std::string second = MakeKey({PEM("one")});
  ASSERT_TRUE(Perform("Update", {{"room", Text(kRoom)},
                                 {"seqnr", Text("2")},
                                 {"certificates", Texts({PEM("two")})},
                                 {"keys", Keys({{"b", first}, {"a", second}})}}))
      << error;
  EXPECT_EQ(ResultKey(0, "id"), "b");
  EXPECT_EQ(ResultKey(1, "id"), "a");
  EXPECT_EQ(result.AsMap().GetCount(), 3U) << "no new key was asked for";
  const std::string firstAgain = ResultKey(0, "data");
  const std::string secondAgain = ResultKey(1, "data");
  for (const std::string& wrapped : {firstAgain, secondAgain}) {
    EXPECT_TRUE(OpensFor(wrapped, Reader("two")));
    EXPECT_FALSE(OpensFor(wrapped, Reader("one")));
  }
  EXPECT_EQ(Export(firstAgain), Export(first)) << "the key itself stays";
  EXPECT_EQ(Export(secondAgain), Export(second));
}

TEST_F(WrappedKeysEndToEnd, AnUpdateMakesANewKeyOnRequest) {
  ASSERT_TRUE(Perform("Update", {{"room", Text(kRoom)},
                                 {"seqnr", Text("3")},
                                 {"certificates", Texts({PEM("two")})},
                                 {"newkey", OruGuiBase::Val(true)}}))
      << error;
  EXPECT_THAT(ResultNames(), ElementsAre("room", "seqnr", "newkey"));
  EXPECT_TRUE(OpensFor(Result("newkey"), Reader("two")));
}

TEST_F(WrappedKeysEndToEnd, AnUpdateWhoseNewKeyCannotBeMadeStillRewraps) {
  const std::string wrapped = MakeKey({PEM("one")});
  SetFaults({.type = FaultType::ErrorCode, .operation = "generateWrappedKeyRequest", .number = 615});
  ASSERT_TRUE(Perform("Update", {{"room", Text(kRoom)},
                                 {"seqnr", Text("4")},
                                 {"certificates", Texts({PEM("two")})},
                                 {"keys", Keys({{"a", wrapped}})},
                                 {"newkey", OruGuiBase::Val(true)}}))
      << error;
  EXPECT_THAT(ResultNames(), ElementsAre("room", "seqnr", "keys"));
  EXPECT_TRUE(OpensFor(ResultKey(0, "data"), Reader("two")));
}

TEST_F(WrappedKeysEndToEnd, AnExportedKeyIsTheRoomsPrivateKey) {
  Protect("bytes");
  const KeyPair key = LoadBase64(Export(KeptKey("data")));
  ASSERT_FALSE(key.IsEmpty());
  const auto certificate = CryptStand::Cert::FromPEM(KeptKey("certificate"));
  ASSERT_FALSE(certificate.IsEmpty());
  EXPECT_EQ(key.ToPublicPEM(), certificate.GetPublicKey().ToPublicPEM());
  EXPECT_EQ(key.Decrypt(certificate.GetPublicKey().Encrypt("content key")), "content key");
}

TEST_F(WrappedKeysEndToEnd, EachExportedKeyCostsATokenOfItsOwn) {
  const std::string wrapped = MakeKey({});
  stand.ClearEvents();
  ASSERT_TRUE(Perform("CryptDecrypt", {{"room", Text(kRoom)},
                                       {"keys", Keys({{"a", wrapped}, {"b", wrapped}, {"c", wrapped}})}}))
      << error;
  EXPECT_EQ(CountRequests("authztoken"), 3U);
  EXPECT_EQ(CountRequests("exportWrappedKeyRequest"), 3U);
  EXPECT_EQ(ResultKey(2, "id"), "c");
  EXPECT_EQ(ResultKey(2, "plain"), ResultKey(0, "plain"));
}

}  // namespace
}  // namespace TestSupport
