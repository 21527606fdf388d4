#include "tests/stand/admin_peer.h"

namespace CryptStand {
namespace {

class RewrapTest : public AdminTest {
 protected:
  std::string Generate(const std::vector<std::string>& certificates) {
    const Reply made = RunCommand(With(GeneratePayload(), "encryptionKeys", Keys(certificates)));
    return ReadText(made.Payload(), "encodedWrappedKey").value_or("");
  }
  static KVMap ModifyPayload(const std::string& wrapped, const std::vector<std::string>& certificates) {
    return Object("type", "modifyWrappedKeyRequest", "encodedWrappedKey", wrapped.c_str(), "encryptionKeys",
                  Keys(certificates));
  }
  static KVMap ExportPayload(const std::string& wrapped) {
    return Object("type", "exportWrappedKeyRequest", "encodedWrappedKey", wrapped.c_str());
  }
  static std::string PEM(const char* reader) { return Reader(reader).certificate.ToPEM(); }
  static std::string WrappedIn(const Reply& reply) {
    return ReadText(reply.Payload(), "encodedWrappedKey").value_or("");
  }
  std::string Exported(const std::string& wrapped) {
    return ReadText(RunCommand(ExportPayload(wrapped)).Payload(), "encodedPrivateKey").value_or("");
  }
};

TEST_F(RewrapTest, WrapsAKeyForOtherReaders) {
  const std::string wrapped = Generate({PEM("one")});
  EXPECT_TRUE(OpensFor(wrapped, Reader("one")));
  const Reply reply = RunCommand(ModifyPayload(wrapped, {PEM("two"), PEM("three")}));
  EXPECT_EQ(reply.Type(), "modifyWrappedKeyResponse");
  EXPECT_TRUE(OpensFor(WrappedIn(reply), Reader("two")));
  EXPECT_TRUE(OpensFor(WrappedIn(reply), Reader("three")));
  EXPECT_FALSE(OpensFor(WrappedIn(reply), Reader("one")));
}

TEST_F(RewrapTest, KeepsTheKeyItself) {
  const std::string wrapped = Generate({});
  const std::string again = WrappedIn(RunCommand(ModifyPayload(wrapped, {PEM("one")})));
  EXPECT_NE(again, wrapped);
  EXPECT_NE(Exported(wrapped), "");
  EXPECT_EQ(Exported(again), Exported(wrapped));
}

TEST_F(RewrapTest, WrapsForKeyServersAloneWhenNoReaderIsNamed) {
  const std::string wrapped = Generate({PEM("one")});
  const std::string again = WrappedIn(RunCommand(ModifyPayload(wrapped, {})));
  EXPECT_FALSE(OpensFor(again, Reader("one")));
  EXPECT_EQ(Exported(again), Exported(wrapped));
}

TEST_F(RewrapTest, WrapsForTheGroupsEncryptionCertificateToo) {
  const std::string wrapped = Generate({});
  ASSERT_EQ(RunForGroup(ReencryptPayload(PEM("group"))).Code(), 0);
  const std::string again = WrappedIn(RunCommand(ModifyPayload(wrapped, {PEM("one")})));
  EXPECT_TRUE(OpensFor(again, Reader("one")));
  EXPECT_TRUE(OpensFor(again, Reader("group")));
}

TEST_F(RewrapTest, RefusesToModifyWhatIsMalformed) {
  const std::string wrapped = Generate({});
  const KVMap good = ModifyPayload(wrapped, {});
  OruGuiBase::Array<Val> handles;
  handles.Append(Key(PEM("one"), "handle"));
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {Object("type", "modifyWrappedKeyRequest", "encodedWrappedKey", wrapped.c_str()), 601, "no list"},
      {With(good, "more", Val("x")), 601, "a member too many"},
      {With(good, "encodedWrappedKey", Val()), 601, "a key that is no text"},
      {With(good, "encryptionKeys", Val("x")), 601, "no array"},
      {With(good, "encryptionKeys", TextsVal({PEM("one")})), 601, "an entry that is no object"},
      {With(good, "encryptionKeys", Val(handles)), 602, "another type of key"},
      {ModifyPayload(wrapped, {"AAAA"}), 603, "no certificate"},
      {ModifyPayload("", {}), 605, "no wrapped key"},
      {ModifyPayload("AAAA", {}), 605, "not one either"},
      {ModifyPayload(wrapped.substr(0, wrapped.size() - 4), {}), 605, "a cut one"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunCommand(row.payload).Code(), row.code) << row.reason;
}

TEST_F(RewrapTest, RefusesKeysOfAnotherStand) {
  const RoomKeyPair roomKey{Reader("one").certificate, Reader("one").key};
  const std::string foreign = WrapRoomKey(roomKey, Reader("two"), Reader("three").certificate, {});
  EXPECT_EQ(RunCommand(ModifyPayload(foreign, {})).Code(), 605);
  EXPECT_EQ(RunCommand(ExportPayload(foreign)).Code(), 605);
}

TEST_F(RewrapTest, ExportsThePrivateKeyAsBase64) {
  const Reply room = MakeRoomKey();
  const Reply reply = RunCommand(ExportPayload(room.Text("data")));
  EXPECT_EQ(reply.Type(), "exportWrappedKeyResponse");
  const std::string der =
      FromBase64(ReadText(reply.Payload(), "encodedPrivateKey").value_or("")).value_or("");
  const auto* position = reinterpret_cast<const unsigned char*>(der.data());
  const KeyPair key(d2i_AutoPrivateKey(nullptr, &position, static_cast<long>(der.size())));
  ASSERT_FALSE(key.IsEmpty());
  EXPECT_EQ(key.ToDER(), der) << "PKCS #8";
  EXPECT_EQ(key.ToPublicPEM(), Cert::FromPEM(room.Text("certificate")).GetPublicKey().ToPublicPEM());
}

TEST_F(RewrapTest, RefusesToExportWhatIsMalformed) {
  const std::string wrapped = Generate({});
  const struct {
    KVMap payload;
    int code;
    const char* reason;
  } rows[] = {
      {Object("type", "exportWrappedKeyRequest"), 601, "no key"},
      {With(ExportPayload(wrapped), "more", Val("x")), 601, "a member too many"},
      {With(ExportPayload(wrapped), "encodedWrappedKey", Val(true)), 601, "a key that is no text"},
      {ExportPayload(""), 605, "no wrapped key"},
      {ExportPayload(ToBase64(wrapped)), 605, "base64 of one"},
      {ExportPayload(wrapped.substr(4)), 605, "a cut one"},
  };
  for (const auto& row : rows) EXPECT_EQ(RunCommand(row.payload).Code(), row.code) << row.reason;
}

}  // namespace
}  // namespace CryptStand
